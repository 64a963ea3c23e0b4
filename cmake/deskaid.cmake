# Build settings shared by every target of the project.

# Collects the .cpp files of the given folders, keeping only those meant for this platform.
function(deskaid_collect_sources out)
  set(result)
  foreach(area ${ARGN})
    file(GLOB files CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${area}/*.cpp)
    foreach(f ${files})
      if(f MATCHES "_win\\.cpp$" AND NOT WIN32)
        continue()
      endif()
      if(f MATCHES "_posix\\.cpp$" AND WIN32)
        continue()
      endif()
      list(APPEND result ${f})
    endforeach()
  endforeach()
  set(${out} ${result} PARENT_SCOPE)
endfunction()

function(deskaid_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

if(WIN32)
  # Wine's dbghelp reads DWARF 4; the runtime goes into every executable so no DLL is needed.
  add_compile_options(-gdwarf-4)
  add_link_options(-static -static-libgcc -static-libstdc++)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      env DESKAID_WINEPREFIX=${CMAKE_BINARY_DIR}/wineprefix ${CMAKE_SOURCE_DIR}/cmake/wine-run)
endif()

if(DESKAID_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if(DESKAID_FUZZ)
  # Coverage for the whole library; the fuzz targets add the libFuzzer driver themselves.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
