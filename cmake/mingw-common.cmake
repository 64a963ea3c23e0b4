# What the MinGW-w64 toolchain files share: the POSIX-thread GCC compilers of DESKAID_MINGW_PREFIX
# (the clang toolchain file names its own) and the search for libraries, headers and packages
# under that target's root only.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER   ${DESKAID_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${DESKAID_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER  ${DESKAID_MINGW_PREFIX}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${DESKAID_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
