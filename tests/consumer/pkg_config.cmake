# Builds and runs the application with the flags that pkg-config prints for the libraries in ${libdir}.

set(ENV{PKG_CONFIG_PATH} ${libdir}/pkgconfig)
execute_process(COMMAND ${pkg_config} --cflags --libs orv_network_testing orv_network
    OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
# pkg-config makes no system directories of ours, so an application sees the warnings of our headers.
separate_arguments(flags UNIX_COMMAND "${compiler_flags} ${flags} -Wall -Wextra -Wnon-virtual-dtor -Werror")
execute_process(COMMAND ${compiler} -std=c++20 -fPIC ${source} -o ${program} ${flags} -Wl,-rpath,${libdir}
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${program} COMMAND_ERROR_IS_FATAL ANY)

execute_process(COMMAND ${readelf} -d ${program} OUTPUT_VARIABLE needed COMMAND_ERROR_IS_FATAL ANY)
if(NOT needed MATCHES "\\[liborv_network\\.so\\.${abi}\\]")
    message(FATAL_ERROR "liborv_network.so.${abi} is not among the libraries that the application needs:\n${needed}")
endif()
