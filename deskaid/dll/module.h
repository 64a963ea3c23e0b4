// The instance handle of deskaid.dll, recorded by its entry point. 0 outside the DLL (a host that
// links the static library) and after process detach.
#pragma once

#include <windows.h>

extern HINSTANCE g_hModule;
