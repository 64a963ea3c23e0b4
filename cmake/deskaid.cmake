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

# The files of the limb rows (deskaid/math/internal, see limb_rows.h) for this compiler and
# processor: the assembly of x86-64 or of 32-bit x86 where GCC or Clang target them, the loops in C
# everywhere else (MSVC has neither that inline assembly nor a 128-bit integer), and with PORTABLE
# for a build that asks for those by DESKAID_PORTABLE_LIMBS or DESKAID_NARROW_LIMBS. Each file stops
# a build that limb_kernels.h would give other rows.
function(deskaid_limb_rows out)
  cmake_parse_arguments(R "PORTABLE" "" "" ${ARGN})
  set(kind portable)
  if(NOT R_PORTABLE AND CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang" AND NOT MSVC AND
     CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64|i[3-6]86|x86)$")
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
      set(kind x86_64)
    else()
      set(kind i386)
    endif()
  endif()
  set(x86_64 limb_rows_x86.cpp limb_rows_x86_64.cpp)
  set(i386 limb_rows_x86.cpp limb_rows_i386.cpp limb_addsub_portable.cpp)
  set(portable limb_rows_portable.cpp limb_addsub_portable.cpp)
  list(TRANSFORM ${kind} PREPEND ${PROJECT_SOURCE_DIR}/deskaid/math/internal/ OUTPUT_VARIABLE result)
  set(${out} ${result} PARENT_SCOPE)
endfunction()

# Collects the .cpp files of the given library folders (and of their internal/ folders), keeping
# only those meant for this platform and, of math/, the limb rows of deskaid_limb_rows (the
# portable ones with PORTABLE_LIMBS).
# deskaid_collect_sources(out area... [PORTABLE_LIMBS])
function(deskaid_collect_sources out)
  cmake_parse_arguments(C "PORTABLE_LIMBS" "" "" ${ARGN})
  set(result)
  foreach(area ${C_UNPARSED_ARGUMENTS})
    file(GLOB files CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/deskaid/${area}/*.cpp
         ${PROJECT_SOURCE_DIR}/deskaid/${area}/internal/*.cpp)
    if(area STREQUAL "math")
      list(FILTER files EXCLUDE REGEX "/limb_(rows|addsub)_[^/]*\\.cpp$")
      if(C_PORTABLE_LIMBS)
        deskaid_limb_rows(rows PORTABLE)
      else()
        deskaid_limb_rows(rows)
      endif()
      list(APPEND files ${rows})
    endif()
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

# The settings every target of deskaid's own build gets: C++17 without extensions; warnings,
# shadowed names and narrowing conversions included, which every source of the project is kept
# free of; for Windows, debug information (DWARF 4 from GCC, CodeView in PDB files from clang) and
# a static runtime; and the sanitizers when asked for.
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
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wconversion)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
      # Clang's -Wconversion also takes in sign changes, which GCC's leaves out for C++.
      target_compile_options(${target} PRIVATE -Wno-sign-conversion)
    endif()
  elseif(MSVC)
    target_compile_options(${target} PRIVATE /W3)
  endif()
  if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # CodeView in every build type, with a PDB file beside each image, as Windows debuggers and
    # dbghelp read it.
    target_compile_options(${target} PRIVATE -g -gcodeview)
    if(links)
      target_link_options(${target} PRIVATE -Wl,--pdb=)
    endif()
  elseif(MINGW)
    # DWARF 4 in every build type, which Wine's dbghelp reads.
    target_compile_options(${target} PRIVATE -gdwarf-4)
    # GCC cannot align a 64-bit Windows stack frame beyond 16 bytes, yet spills 256- and 512-bit
    # vector registers with aligned moves; the assembler makes every such move an unaligned one.
    deskaid_check_unaligned_vector_moves()
    if(DESKAID_UNALIGNED_VECTOR_MOVES)
      target_compile_options(${target} PRIVATE -Wa,-muse-unaligned-vector-move)
    endif()
  endif()
  if(MINGW)
    # The runtime goes into every program, so that no DLL is needed.
    if(links)
      target_link_options(${target} PRIVATE -static -static-libgcc -static-libstdc++)
    endif()
  endif()
  # The carry chains of the limb loops gain from unrolling, which GCC does not do by default.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    get_target_property(sources ${target} SOURCES)
    list(FILTER sources INCLUDE REGEX "/math/internal/limb_(kernels|rows_[^/]*|addsub_[^/]*)\\.cpp$")
    if(sources)
      set_source_files_properties(${sources} TARGET_DIRECTORY ${target}
                                  PROPERTIES COMPILE_OPTIONS -funroll-loops)
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
include(${CMAKE_CURRENT_LIST_DIR}/deskaidLlvm.cmake)
