# Cross-compiles deskaid for 64-bit Windows with clang and lld instead of GCC and GNU ld: the same
# MinGW-w64 headers and import libraries, and the same GCC runtime (libstdc++ of the POSIX thread
# model, linked statically), so a second compiler builds the same Windows target. Debug
# information is CodeView, in a PDB file beside each image, as MSVC and clang hosts ship it.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(DESKAID_MINGW_PREFIX x86_64-w64-mingw32)
include(${CMAKE_CURRENT_LIST_DIR}/mingw-common.cmake)
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${DESKAID_MINGW_PREFIX})
set(CMAKE_CXX_COMPILER_TARGET ${DESKAID_MINGW_PREFIX})
# The target's root, so that clang searches no header or library of the build machine's own.
set(CMAKE_SYSROOT ${CMAKE_FIND_ROOT_PATH})

# Debian names the GCC runtime's folder after its thread model ("12-posix"), which clang's search
# for a GCC installation does not read as a version: its C++ headers and libraries are named here.
file(GLOB DESKAID_MINGW_GCC_DIRS /usr/lib/gcc/${DESKAID_MINGW_PREFIX}/*-posix)
list(SORT DESKAID_MINGW_GCC_DIRS COMPARE NATURAL ORDER DESCENDING)
list(GET DESKAID_MINGW_GCC_DIRS 0 gcc)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
    ${gcc}/include/c++ ${gcc}/include/c++/${DESKAID_MINGW_PREFIX} ${gcc}/include/c++/backward)
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "-fuse-ld=lld -L${gcc}")
endforeach()
# std::thread of this runtime calls the POSIX thread library, which clang's driver does not add.
set(CMAKE_C_STANDARD_LIBRARIES "-lpthread")
set(CMAKE_CXX_STANDARD_LIBRARIES "-lpthread")
