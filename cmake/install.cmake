# The installed package: the executable, the public headers, and what find_package(Kiv) reads.
include(CMakePackageConfigHelpers)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Kiv)
install(TARGETS kiv EXPORT KivTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}  # the import library, where there is one
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT KivTargets NAMESPACE Kiv:: DESTINATION ${package_folder})
install(DIRECTORY include/kiv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES cmake/KivModule.cmake DESTINATION ${package_folder})

configure_package_config_file(cmake/KivConfig.cmake.in ${CMAKE_BINARY_DIR}/KivConfig.cmake
    INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/KivConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/KivConfig.cmake ${CMAKE_BINARY_DIR}/KivConfigVersion.cmake
    DESTINATION ${package_folder})
