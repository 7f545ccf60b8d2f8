# Configures the project with each of its options turned off, in one build directory.

function(configure)
    list(TRANSFORM ARGN PREPEND -D)
    execute_process(COMMAND ${CMAKE_COMMAND} -S ${source_dir} -B ${build_dir} -G ${generator} ${ARGN}
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(REMOVE_RECURSE ${build_dir})
configure(CMAKE_CXX_COMPILER=${compiler} ORV_BUILD_TESTING_KIT=OFF) # tests are off then, since they need the kit
configure(ORV_BUILD_EXAMPLES=OFF)
configure(ORV_INSTALL=OFF)
configure(ORV_BUILD_TESTING_KIT=ON ORV_BUILD_TESTS=ON)
configure(ORV_BUILD_EXAMPLES=ON ORV_BUILD_TESTS=OFF)

execute_process(COMMAND ${CMAKE_COMMAND} -D CMAKE_INSTALL_PREFIX=${build_dir}/prefix -P ${build_dir}/cmake_install.cmake
    COMMAND_ERROR_IS_FATAL ANY)
file(GLOB installed ${build_dir}/prefix/*)
if(installed)
    message(FATAL_ERROR "Without install rules, ${installed} was installed")
endif()
