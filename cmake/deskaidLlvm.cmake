# LLVM's symbolizer library, through which logexport names the code of Windows images (DWARF or
# PDB) on machines without dbghelp. Optional: a build without it names only ELF files natively.
# LLVM's package configuration is read inside a function, so its variables and module path stay
# there and its imported targets exist only in the directory that asked; the settings go to the
# targets named, never to the library or to a host.

# deskaid_find_llvm_symbolizer(found)
# Sets `found` to TRUE when LLVM 14 or later is installed with its shared library; then
# deskaid_add_llvm_symbolizer works in the same directory. Debian installs LLVM's package
# configuration under /usr/lib/llvm-N only, out of find_package's default reach; the newest
# version there is preferred, and LLVM_DIR overrides the choice.
function(deskaid_find_llvm_symbolizer found)
  set(${found} FALSE PARENT_SCOPE)
  file(GLOB hints /usr/lib/llvm-*/lib/cmake/llvm)
  list(SORT hints COMPARE NATURAL ORDER DESCENDING)
  find_package(LLVM CONFIG QUIET HINTS ${hints})
  if(NOT LLVM_FOUND OR LLVM_VERSION_MAJOR LESS 14 OR NOT TARGET LLVM)
    return()
  endif()
  separate_arguments(definitions NATIVE_COMMAND "${LLVM_DEFINITIONS}")
  set(DESKAID_LLVM_INCLUDE_DIRS ${LLVM_INCLUDE_DIRS} PARENT_SCOPE)
  set(DESKAID_LLVM_DEFINITIONS ${definitions} PARENT_SCOPE)
  set(${found} TRUE PARENT_SCOPE)
endfunction()

# deskaid_add_llvm_symbolizer(target)
# Builds LlvmLogSymbolizer (tools/llvm_log_symbolizer.h) into `target`, with LLVM's headers as
# system headers (they are not kept free of this project's warnings), its definitions and its
# shared library, for that target alone.
function(deskaid_add_llvm_symbolizer target)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/llvm_log_symbolizer.cpp
                                   ${PROJECT_SOURCE_DIR}/tools/debug_info_checks.cpp)
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools)
  target_include_directories(${target} SYSTEM PRIVATE ${DESKAID_LLVM_INCLUDE_DIRS})
  target_compile_definitions(${target} PRIVATE ${DESKAID_LLVM_DEFINITIONS})
  target_link_libraries(${target} PRIVATE LLVM)
endfunction()
