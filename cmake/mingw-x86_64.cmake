# Cross-compiles deskaid for 64-bit Windows with MinGW-w64, with the same settings as the 32-bit
# build (POSIX thread model, runtime linked statically). Tests run under 64-bit Wine through
# CMAKE_CROSSCOMPILING_EMULATOR, in a 64-bit prefix of their own.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(DESKAID_MINGW_PREFIX x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
