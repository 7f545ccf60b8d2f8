# Removed first, so that files of an earlier install cannot hide that a file is no longer installed.
file(REMOVE_RECURSE "${prefix}")
execute_process(COMMAND ${CMAKE_COMMAND} --install ${build_dir} --prefix ${prefix} COMMAND_ERROR_IS_FATAL ANY)
