# The CMake package that find_package(OrvNetwork) finds.

include(CMakePackageConfigHelpers)

set(ORV_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/OrvNetwork)

install(EXPORT OrvNetworkTargets NAMESPACE Orv:: DESTINATION ${ORV_PACKAGE_DIR})
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/OrvNetworkConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/OrvNetworkConfig.cmake
    INSTALL_DESTINATION ${ORV_PACKAGE_DIR})
write_basic_package_version_file(
    ${CMAKE_CURRENT_BINARY_DIR}/OrvNetworkConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/OrvNetworkConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/OrvNetworkConfigVersion.cmake
    DESTINATION ${ORV_PACKAGE_DIR})
