# `cmake --install` puts the headers, the static library, deskaid.dll and logexport in place, with
# a package configuration so that find_package(deskaid) gives the target deskaid::deskaid.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(DESKAID_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/deskaid)

install(FILES deskaid.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/deskaid)
foreach(area ${DESKAID_AREAS})
  install(DIRECTORY ${area}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/deskaid/${area}
          FILES_MATCHING PATTERN "*.h")
endforeach()

install(TARGETS deskaid EXPORT deskaidTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/deskaid)
if(TARGET deskaid_dll)
  install(TARGETS deskaid_dll RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT import_library_unused)
endif()
if(TARGET logexport)
  install(TARGETS logexport RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

install(EXPORT deskaidTargets NAMESPACE deskaid:: DESTINATION ${DESKAID_INSTALL_CMAKEDIR})
configure_package_config_file(cmake/deskaidConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/deskaidConfig.cmake INSTALL_DESTINATION ${DESKAID_INSTALL_CMAKEDIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/deskaidConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/deskaidConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/deskaidConfigVersion.cmake
        DESTINATION ${DESKAID_INSTALL_CMAKEDIR})
