# Updates copies of the catalogues in "arguments" (FOLDER... -ts FILE...), and fails if one of them then contains a text
# that is not translated, a text that is no longer in the sources, or a translation with different placeholders.

list(FIND arguments -ts position)
list(SUBLIST arguments 0 ${position} folders)
math(EXPR position "${position} + 1")
list(SUBLIST arguments ${position} -1 catalogues)

file(REMOVE_RECURSE ${scratch})
file(COPY ${catalogues} DESTINATION ${scratch})
file(GLOB copies ${scratch}/*.ts)
execute_process(COMMAND ${lupdate} ${folders} -ts ${copies} COMMAND_ERROR_IS_FATAL ANY)

# The placeholders of a text, sorted, since their order depends on the language.
function(find_placeholders text result)
    string(REGEX MATCHALL "%[0-9n]" found "${text}")
    list(SORT found)
    set(${result} "${found}" PARENT_SCOPE)
endfunction()

foreach(copy IN LISTS copies)
    file(READ ${copy} content)
    string(REPLACE ";" " " content "${content}") # semicolons would split list elements
    string(REGEX MATCHALL
        "<source>[^<]*</source>[ \n]*<translation[^>]*>([ \n]*<numerusform>)?[^<]*<" messages "${content}")
    if(NOT messages)
        message(SEND_ERROR "${copy} contains no text")
    endif()
    foreach(message IN LISTS messages)
        string(REGEX MATCH "^<source>(.*)</source>[ \n]*<translation([^>]*)>(.*)<$" message "${message}")
        set(text "${CMAKE_MATCH_1}")
        set(mark "${CMAKE_MATCH_2}")
        set(translation "${CMAKE_MATCH_3}")
        find_placeholders("${text}" expected)
        find_placeholders("${translation}" placeholders)
        if(mark)
            message(SEND_ERROR "${copy}: \"${text}\" has${mark}; build the target update-translations")
        elseif(translation STREQUAL "" OR NOT placeholders STREQUAL expected)
            message(SEND_ERROR "${copy}: \"${text}\" is translated as \"${translation}\"")
        endif()
    endforeach()
endforeach()
