// Heap storage for big integers, with a fault-injection hook for tests.
//
// Every word array and text buffer of a CBigInt comes from here. A size that does not fit in 32
// bits is refused outright, so a huge word count makes the allocation fail instead of wrapping.
// A failed allocation is what puts a CBigInt into its null state; the hook below lets tests make
// the n-th allocation fail on purpose and watch the null state travel through the arithmetic.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {

// Returns `bytes` bytes of storage, or null when the request is 0xFFFFFFFF bytes or more, when
// the system has no memory left, or when the fault-injection hook says this one must fail.
void* BigIntAllocate(uint64_t bytes);
void BigIntRelease(void* block);

// Test hook. After SetBigIntAllocationFailure(n) with n >= 1, the n-th allocation from now fails
// (1 = the very next one); with `sticky` every allocation from that one onward fails as well.
// n = 0 switches the hook off. The counter is process-wide and not synchronised: use the hook
// from one thread only.
void SetBigIntAllocationFailure(int64_t nth, bool sticky = false);

// Number of allocation requests seen since the process started (failed ones included).
int64_t BigIntAllocationCount();

// Number of requests the hook has refused since the process started.
int64_t BigIntInjectedFailures();

}  // namespace deskaid
