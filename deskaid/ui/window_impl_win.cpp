// The non-template helpers of the window-implementation base.
#include "deskaid/ui/window_impl.h"

namespace deskaid {

namespace {
// The object whose window CreateWindowExA is making on this thread, until its first message.
thread_local void* t_creatingObject = nullptr;
}  // namespace

HINSTANCE ThisModuleInstance() {
  HMODULE module = nullptr;
  // The module that holds this function: deskaid.dll, or the executable that links the library.
  if (!::GetModuleHandleExA(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCSTR>(&ThisModuleInstance), &module))
    return ::GetModuleHandleA(nullptr);
  return module;
}

void SetCreatingObject(void* object) { t_creatingObject = object; }

void* TakeCreatingObject() {
  void* object = t_creatingObject;
  t_creatingObject = nullptr;
  return object;
}

}  // namespace deskaid
