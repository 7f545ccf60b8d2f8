# A file that is not installed any more must not be found in what an earlier run has left.
file(REMOVE_RECURSE "${prefix}")
execute_process(COMMAND ${CMAKE_COMMAND} --install ${build_dir} --prefix ${prefix} COMMAND_ERROR_IS_FATAL ANY)
