# 32-bit x86 Linux with the host's GCC (-m32) and Debian's i386 libraries (GMP from
# libgmp-dev:i386), for the big integer tests of the 32-bit limbs and rows (preset limbs32). The
# tests run through cmake/run-x86-32: directly where the machine runs 32-bit programs, else under
# qemu-i386.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc)
set(CMAKE_CXX_COMPILER g++)
set(CMAKE_C_FLAGS_INIT -m32)
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/run-x86-32)
