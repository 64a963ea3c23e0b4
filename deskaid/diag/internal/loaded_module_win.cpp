// Loaded modules as the memory manager and the loader's lists show them, read as another process
// would: the image mapping that holds an address, its headers as mapped, and the file it was
// loaded from. The loader's own calls for this (GetModuleHandleEx, GetModuleFileName) take its
// lock, which a crash report may find held by the failing thread.
#include <windows.h>
#include <psapi.h>

#include "deskaid/diag/internal/module_identity.h"

namespace deskaid {

uint64_t LoadedImageBase(uint64_t address) {
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(reinterpret_cast<const void*>(static_cast<uintptr_t>(address)), &region,
                   sizeof region) != sizeof region ||
      region.State != MEM_COMMIT || region.Type != MEM_IMAGE) {
    return 0;
  }
  return reinterpret_cast<uintptr_t>(region.AllocationBase);
}

bool IdentifyLoadedModule(uint64_t address, ModuleIdentity& identity) {
  const uint64_t base = LoadedImageBase(address);
  if (base == 0 || !ReadLoadedPeIdentity(base, identity)) return false;
  // The wide call and a conversion on the stack: the ANSI calls take a buffer from the heap, which
  // a crash report may not touch.
  wchar_t wide[kMaxPath];
  const DWORD length = K32GetModuleFileNameExW(
      GetCurrentProcess(), reinterpret_cast<HMODULE>(static_cast<uintptr_t>(base)), wide, kMaxPath);
  if (length == 0) return false;  // an image mapped as data, not loaded as a module
  if (length >= kMaxPath ||
      WideCharToMultiByte(CP_ACP, 0, wide, static_cast<int>(length) + 1, identity.path,
                          sizeof identity.path, nullptr, nullptr) == 0) {
    identity.path[0] = '\0';
  }
  SetNameFromPath(identity);
  return true;
}

}  // namespace deskaid
