# Builds the Debian packages and unpacks them into ${root}.

file(REMOVE_RECURSE ${root} ${build_dir}/packages)
execute_process(COMMAND ${CMAKE_CPACK_COMMAND} WORKING_DIRECTORY ${build_dir} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(GLOB packages ${build_dir}/packages/*.deb)
foreach(package IN LISTS packages)
    execute_process(COMMAND ${dpkg_deb} --extract ${package} ${root} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${dpkg_deb} --show "--showformat=\${Package}: \${Depends}\\n" ${package}
        OUTPUT_VARIABLE line COMMAND_ERROR_IS_FATAL ANY)
    string(APPEND dependencies ${line})
endforeach()
foreach(expected IN ITEMS
    "liborv-network${abi}: [^\n]*libqt6network6 \\("
    "liborv-network-dev: liborv-network${abi} \\(= [^\n]*qt6-base-dev[^\n]*qcoro-qt6-dev")
    if(NOT dependencies MATCHES "${expected}")
        message(SEND_ERROR "Expected ${expected} in\n${dependencies}")
    endif()
endforeach()
