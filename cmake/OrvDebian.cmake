# Debian packages: run "cpack" in a build directory, or tools/package to follow Debian's file layout.

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME orv-network)
set(CPACK_PACKAGE_CONTACT "OrvLabs <packages@orvlabs.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL Runtime Development)
if(ORV_BUILD_EXAMPLES)
    list(APPEND CPACK_COMPONENTS_ALL Tools)
endif()
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Dependencies of our libraries, and the shlibs file for packages that are built against them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
get_property(components GLOBAL PROPERTY ORV_COMPONENTS)
foreach(component IN LISTS components)
    get_target_property(library Orv::${component} ALIASED_TARGET)
    get_target_property(dir ${library} BINARY_DIR)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${dir})
endforeach()

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liborv-network${ORV_ABI_VERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "shared libraries
OrvNetwork gives desktop applications an object for each HTTP(S) exchange,
which ends exactly once: with its content, or with an error that says what
happened. It retries requests, waits for logins and runs queues of tasks.
.
This package contains the shared libraries.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liborv-network-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "qt6-base-dev (>= ${ORV_QT_VERSION}), qcoro-qt6-dev (>= 0.8)")
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS Runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "development files
Headers and the CMake (OrvNetwork) and pkg-config (orv_network) files of the
libraries for tasks over HTTP(S), and of the loopback server for tests of such
tasks.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME orv-network-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION web)
set(CPACK_COMPONENT_TOOLS_DEPENDS Runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "command-line tools
orv-fetch fetches URLs over HTTP or HTTPS, with retries, logins and parallel
downloads. orv-loopback-service is a local service to try it with.")

include(CPack)
