# Install rules: shared libraries with headers, CMake and pkg-config packages, and tools.

include_guard(GLOBAL)
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

# Builds what is installed and nothing else.
add_custom_target(orv_installed)

set(ORV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/OrvNetwork)
set(ORV_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/orv_network)

# orv_install_library(<target> ALIAS <Name> DESCRIPTION <text> LINK ... LINK_PRIVATE ...)
#
# For find_package(), <Name> is a component with its own targets file; for pkg-config, <target> is a package.
function(orv_install_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "ALIAS;DESCRIPTION" "LINK;LINK_PRIVATE")
    set_target_properties(${target} PROPERTIES
        INSTALL_RPATH "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>") # the libraries are installed side by side
    add_dependencies(orv_installed ${target})
    install(TARGETS ${target} EXPORT Orv${arg_ALIAS}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
        FILE_SET HEADERS DESTINATION ${ORV_INCLUDE_DIR} COMPONENT Development
        INCLUDES DESTINATION ${ORV_INCLUDE_DIR}) # for applications whose CMake does not know file sets (before 3.23)
    install(EXPORT Orv${arg_ALIAS}Targets NAMESPACE Orv:: DESTINATION ${ORV_CMAKE_DIR} COMPONENT Development)

    list(FILTER arg_LINK_PRIVATE INCLUDE REGEX "^Orv::") # users of the library do not need the others
    set_property(GLOBAL APPEND PROPERTY ORV_COMPONENTS ${arg_ALIAS})
    set_property(GLOBAL PROPERTY ORV_${arg_ALIAS}_NEEDS ${arg_LINK} ${arg_LINK_PRIVATE})
    orv_install_pkgconfig(${target} DESCRIPTION ${arg_DESCRIPTION} LINK ${arg_LINK} LINK_PRIVATE ${arg_LINK_PRIVATE})
endfunction()

# orv_install_program(<target>): one of the tools. It finds the libraries by a relative path, so an install can be moved.
function(orv_install_program target)
    file(RELATIVE_PATH to_libraries ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(${target} PROPERTIES
        INSTALL_RPATH "$<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>/${to_libraries}")
    add_dependencies(orv_installed ${target})
    install(TARGETS ${target} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Tools)
endfunction()

# orv_install_pkgconfig(<target> DESCRIPTION <text> LINK ... LINK_PRIVATE ...)
function(orv_install_pkgconfig target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "DESCRIPTION" "LINK;LINK_PRIVATE")
    orv_pkgconfig_names(requires cflags ${arg_LINK})
    orv_pkgconfig_names(requires_private cflags_private ${arg_LINK_PRIVATE})
    file(RELATIVE_PATH to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" to_prefix ${to_prefix})
    file(READ ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/library.pc.in content)
    string(CONFIGURE "${content}" content @ONLY)
    file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/${target}.pc CONTENT "${content}" TARGET ${target})
    install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${target}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)
endfunction()

# Translates the CMake targets ARGN for pkg-config: into package names, or into flags where there is no package.
function(orv_pkgconfig_names requires cflags)
    foreach(item IN LISTS ARGN)
        if(item MATCHES "^Orv::")
            get_target_property(name ${item} ALIASED_TARGET)
            list(APPEND names "${name} = ${PROJECT_VERSION}")
        elseif(item MATCHES "^Qt6::(.+)")
            list(APPEND names "Qt6${CMAKE_MATCH_1} >= ${ORV_QT_VERSION}")
        else()
            string(APPEND flags " -I$<JOIN:$<TARGET_PROPERTY:${item},INTERFACE_INCLUDE_DIRECTORIES>, -I>")
        endif()
    endforeach()
    list(JOIN names ", " names)
    set(${requires} "${names}" PARENT_SCOPE)
    set(${cflags} "${flags}" PARENT_SCOPE)
endfunction()

# The package for find_package(OrvNetwork). To be called after all libraries have been declared.
function(orv_install_cmake_package)
    get_property(components GLOBAL PROPERTY ORV_COMPONENTS)
    foreach(component IN LISTS components)
        get_property(needs GLOBAL PROPERTY ORV_${component}_NEEDS)
        string(APPEND component_needs "set(_orv_${component}_needs ${needs})\n")
    endforeach()
    configure_package_config_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/OrvNetworkConfig.cmake.in OrvNetworkConfig.cmake
        INSTALL_DESTINATION ${ORV_CMAKE_DIR})
    write_basic_package_version_file(OrvNetworkConfigVersion.cmake COMPATIBILITY SameMinorVersion)
    install(FILES
        ${CMAKE_CURRENT_BINARY_DIR}/OrvNetworkConfig.cmake
        ${CMAKE_CURRENT_BINARY_DIR}/OrvNetworkConfigVersion.cmake
        DESTINATION ${ORV_CMAKE_DIR} COMPONENT Development)
endfunction()
