// Reading this process's memory where it may not be mapped, as a debugger reads another process:
// the crash path follows pointers it cannot trust (a damaged stack, the linker's lists), and a
// dump's completion reads regions that may go away meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {

// Copies `size` bytes from `address` into `out`; false, without faulting, when not all of them
// can be read (then `out` is undefined). Through the system, not by pointer: a region may go
// while it is read. On POSIX a single system call, safe in a signal handler.
bool ReadOwnMemory(uint64_t address, void* out, size_t size);

}  // namespace deskaid
