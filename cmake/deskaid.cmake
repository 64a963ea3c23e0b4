# Helpers of deskaid's own build. Nothing here touches a directory or a global setting: each
# function works on the targets it is given, so a host that adds deskaid keeps its own flags.

# The files of the list meant for this platform: those ending in _win.cpp only on Windows, those
# ending in _posix.cpp everywhere else.
function(deskaid_platform_files out)
  set(result)
  foreach(f ${ARGN})
    if(f MATCHES "_win\\.cpp$" AND NOT WIN32)
      continue()
    endif()
    if(f MATCHES "_posix\\.cpp$" AND WIN32)
      continue()
    endif()
    list(APPEND result ${f})
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# Collects the .cpp files of the given library folders (and of their internal/ folders), keeping
# only those meant for this platform.
function(deskaid_collect_sources out)
  set(result)
  foreach(area ${ARGN})
    file(GLOB files CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/deskaid/${area}/*.cpp
         ${PROJECT_SOURCE_DIR}/deskaid/${area}/internal/*.cpp)
    list(APPEND result ${files})
  endforeach()
  deskaid_platform_files(result ${result})
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# The public headers, relative to the source folder (deskaid/...): the umbrella and every header
# of the library's folders that is built on this platform, apart from internal/ folders and the
# DLL's entry point.
function(deskaid_public_headers out)
  set(result deskaid/deskaid.h)
  foreach(area ${DESKAID_AREAS})
    file(GLOB headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/deskaid/${area}/*.h)
    list(APPEND result ${headers})
  endforeach()
  list(SORT result)
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# Whether the assembler can turn aligned vector moves into unaligned ones (binutils 2.38 and
# later); the answer is cached.
function(deskaid_check_unaligned_vector_moves)
  if(NOT DEFINED DESKAID_UNALIGNED_VECTOR_MOVES)
    include(CheckCXXCompilerFlag)
    check_cxx_compiler_flag(-Wa,-muse-unaligned-vector-move DESKAID_UNALIGNED_VECTOR_MOVES)
  endif()
endfunction()

# The settings every target of deskaid's own build gets: C++17 without extensions, warnings,
# DWARF 4 and a static runtime for Windows, and the sanitizers when asked for.
function(deskaid_target_settings target)
  set_target_properties(${target} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON
                                             CXX_EXTENSIONS OFF)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "EXECUTABLE" OR type STREQUAL "SHARED_LIBRARY" OR type STREQUAL "MODULE_LIBRARY")
    set(links TRUE)
  else()
    set(links FALSE)
  endif()
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    target_compile_options(${target} PRIVATE -Wall -Wextra)
  elseif(MSVC)
    target_compile_options(${target} PRIVATE /W3)
  endif()
  if(MINGW)
    # Wine's dbghelp reads DWARF 4; the runtime goes into every program so that no DLL is needed.
    target_compile_options(${target} PRIVATE -gdwarf-4)
    # GCC cannot align a 64-bit Windows stack frame beyond 16 bytes, yet spills 256- and 512-bit
    # vector registers with aligned moves; the assembler makes every such move an unaligned one.
    deskaid_check_unaligned_vector_moves()
    if(DESKAID_UNALIGNED_VECTOR_MOVES)
      target_compile_options(${target} PRIVATE -Wa,-muse-unaligned-vector-move)
    endif()
    if(links)
      target_link_options(${target} PRIVATE -static -static-libgcc -static-libstdc++)
    endif()
  endif()
  if(DESKAID_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined
                           -fno-sanitize-recover=all -fno-omit-frame-pointer)
    if(links)
      target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
  endif()
  if(DESKAID_FUZZ)
    # Coverage for the library and the targets; fuzz targets add the libFuzzer driver themselves.
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()

include(${CMAKE_CURRENT_LIST_DIR}/deskaidElfutils.cmake)
