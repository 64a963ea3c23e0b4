# Cross-compiles deskaid for 64-bit Windows with MinGW-w64, with the same settings as the 32-bit
# build (POSIX thread model, runtime linked statically). Tests run under 64-bit Wine through
# CMAKE_CROSSCOMPILING_EMULATOR, in a 64-bit prefix of their own.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(DESKAID_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER   ${DESKAID_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${DESKAID_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${DESKAID_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${DESKAID_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
