# elfutils' libdw and libelf, which the symbol engine reads modules with on POSIX systems, as the
# imported target PkgConfig::deskaid_elfutils. deskaid's own build and its installed package
# configuration both use this file, so a host finds them on its own machine, not at the paths of
# the machine that built deskaid.
macro(deskaid_find_elfutils)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(deskaid_elfutils REQUIRED QUIET IMPORTED_TARGET libdw libelf)
endmacro()
