# `cmake --install` puts in place the public headers (under include/deskaid/, reached as
# <deskaid/...>), the static library, deskaid.dll and logexport, with a package configuration and
# version file so that find_package(deskaid 1.0) gives the target deskaid::deskaid. Internal
# headers stay in the source tree.
include(CMakePackageConfigHelpers)

set(DESKAID_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/deskaid)

deskaid_public_headers(DESKAID_PUBLIC_HEADERS)
foreach(header ${DESKAID_PUBLIC_HEADERS})
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()

install(TARGETS deskaid EXPORT deskaidTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
if(TARGET deskaid_dll)
  install(TARGETS deskaid_dll RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT import_library_unused)
endif()
if(TARGET logexport)
  install(TARGETS logexport RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT deskaidTargets NAMESPACE deskaid:: DESTINATION ${DESKAID_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/deskaidConfig.cmake.in
  ${PROJECT_BINARY_DIR}/deskaidConfig.cmake INSTALL_DESTINATION ${DESKAID_INSTALL_CMAKEDIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/deskaidConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/deskaidConfig.cmake
              ${PROJECT_BINARY_DIR}/deskaidConfigVersion.cmake
              cmake/deskaidElfutils.cmake
        DESTINATION ${DESKAID_INSTALL_CMAKEDIR})
