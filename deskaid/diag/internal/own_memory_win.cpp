#include "deskaid/diag/internal/own_memory.h"

#include <windows.h>

namespace deskaid {

bool ReadOwnMemory(uint64_t address, void* out, size_t size) {
  SIZE_T got = 0;
  return size == 0 ||
         (ReadProcessMemory(GetCurrentProcess(),
                            reinterpret_cast<const void*>(static_cast<uintptr_t>(address)), out,
                            size, &got) &&
          got == size);
}

}  // namespace deskaid
