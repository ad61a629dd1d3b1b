# The installed package: the executable, the public headers, and what find_package(Kiv) reads.
include(CMakePackageConfigHelpers)

install(TARGETS kiv RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY include/kiv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES cmake/KivModule.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kiv)

configure_package_config_file(cmake/KivConfig.cmake.in ${CMAKE_BINARY_DIR}/KivConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kiv
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_BINDIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KivConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/KivConfig.cmake ${CMAKE_BINARY_DIR}/KivConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Kiv)
