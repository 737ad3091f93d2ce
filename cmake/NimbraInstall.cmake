# Installs the libraries, the program, the default data, and the CMake package
# `nimbralaunchpad` (targets nimbra::nimbrarecord, nimbra::nimbralife, nimbra::nimbralaunchpad and
# nimbra::nimbraplatform). Each folder installs its public headers itself.
include(CMakePackageConfigHelpers)

set(nimbra_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})
file(RELATIVE_PATH nimbra_bin_to_lib
    ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(nimbra PROPERTIES INSTALL_RPATH "$ORIGIN/${nimbra_bin_to_lib}")

install(TARGETS nimbraplatform nimbralaunchpad nimbralife nimbrarecord EXPORT nimbra-targets)
install(TARGETS nimbra)
install(TARGETS nimbra-behavior-guard
    DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/${PROJECT_NAME})

# The configuration is found where the robot's life service looks for it; the rest is ours.
install(FILES data/autonomy.cfg DESTINATION ${CMAKE_INSTALL_DATADIR}/tessel)
install(FILES data/demo-day.scenario.yaml DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME})
install(DIRECTORY data/packages DESTINATION ${CMAKE_INSTALL_DATADIR}/${PROJECT_NAME}
    USE_SOURCE_PERMISSIONS)

install(EXPORT nimbra-targets
    FILE ${PROJECT_NAME}-targets.cmake
    NAMESPACE nimbra::
    DESTINATION ${nimbra_package_dir})
configure_package_config_file(cmake/nimbralaunchpad-config.cmake.in
    ${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config.cmake
    INSTALL_DESTINATION ${nimbra_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config-version.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config.cmake
    ${PROJECT_BINARY_DIR}/${PROJECT_NAME}-config-version.cmake
    DESTINATION ${nimbra_package_dir})
