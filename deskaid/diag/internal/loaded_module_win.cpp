// Loaded modules through the loader: the module that holds an address, and its headers as mapped.
#include <windows.h>

#include "deskaid/diag/internal/module_identity.h"

namespace deskaid {

bool IdentifyLoadedModule(uint64_t address, ModuleIdentity& identity) {
  HMODULE module = nullptr;
  if (!GetModuleHandleExA(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCSTR>(static_cast<uintptr_t>(address)), &module)) {
    return false;
  }
  if (!ReadLoadedPeIdentity(reinterpret_cast<uintptr_t>(module), identity)) return false;
  // The wide call and a conversion on the stack: the ANSI call takes a buffer from the heap,
  // which a crash report may not touch.
  wchar_t wide[kMaxPath];
  const DWORD length = GetModuleFileNameW(module, wide, kMaxPath);
  if (length == 0 || length >= kMaxPath ||
      WideCharToMultiByte(CP_ACP, 0, wide, static_cast<int>(length) + 1, identity.path,
                          sizeof identity.path, nullptr, nullptr) == 0) {
    identity.path[0] = '\0';
  }
  SetNameFromPath(identity);
  return true;
}

}  // namespace deskaid
