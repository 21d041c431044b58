# Library, headers, CMake package and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS tav EXPORT tavTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tav)
install(EXPORT tavTargets NAMESPACE tav:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tav)

configure_package_config_file(cmake/tavConfig.cmake.in ${PROJECT_BINARY_DIR}/tavConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tav)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tavConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tavConfig.cmake ${PROJECT_BINARY_DIR}/tavConfigVersion.cmake
              cmake/Jsoncpp.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tav)
# The package finds itself where it stands, so that an installed tree can be moved.
file(RELATIVE_PATH TAV_PREFIX_FROM_PKGCONFIG "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(cmake/tav.pc.in ${PROJECT_BINARY_DIR}/tav.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tav.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
