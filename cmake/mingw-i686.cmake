# Cross-compiles deskaid for 32-bit Windows with MinGW-w64. The POSIX thread model is used so that
# std::thread (and with it GoogleTest) is available; the runtime is linked statically, so a host
# needs no extra DLL. Tests run under Wine through CMAKE_CROSSCOMPILING_EMULATOR.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(DESKAID_MINGW_PREFIX i686-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
