#include "deskaid/diag/internal/own_memory.h"

#include <sys/uio.h>
#include <unistd.h>

namespace deskaid {

bool ReadOwnMemory(uint64_t address, void* out, size_t size) {
  iovec local{out, size};
  iovec remote{reinterpret_cast<void*>(static_cast<uintptr_t>(address)), size};
  return process_vm_readv(getpid(), &local, 1, &remote, 1, 0) == static_cast<ssize_t>(size);
}

}  // namespace deskaid
