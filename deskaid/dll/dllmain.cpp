// Entry point of deskaid.dll. It records the instance handle and nothing else: the process-wide
// objects are built by static initialisation, and nothing opens the global log during start-up.
// The DLL exports no functions.
#include "deskaid/dll/module.h"

HINSTANCE g_hModule = nullptr;

BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID /*reserved*/) {
  if (reason == DLL_PROCESS_ATTACH) {
    g_hModule = instance;
  } else if (reason == DLL_PROCESS_DETACH) {
    g_hModule = nullptr;
  }
  return TRUE;
}
