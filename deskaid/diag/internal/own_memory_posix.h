// Reading this process's memory where it may not be mapped, as a debugger reads another process:
// a signal handler follows pointers it cannot trust (a damaged stack, the linker's lists) with it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace deskaid {

// Copies `size` bytes from `address` into `out`; false, without faulting, when not all of them
// can be read. A system call, safe in a signal handler.
bool ReadOwnMemory(uint64_t address, void* out, size_t size);

}  // namespace deskaid
