# Cross-compiles deskaid for 32-bit Windows with MinGW-w64. The POSIX thread model is used so that
# std::thread (and with it GoogleTest) is available; the runtime is linked statically, so a host
# needs no extra DLL. Tests run under Wine through CMAKE_CROSSCOMPILING_EMULATOR.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR i686)

set(DESKAID_MINGW_PREFIX i686-w64-mingw32)
set(CMAKE_C_COMPILER   ${DESKAID_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${DESKAID_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${DESKAID_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${DESKAID_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
