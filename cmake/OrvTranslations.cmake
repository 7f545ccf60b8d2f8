# Catalogues of translated texts, translations/<name>_<language>.ts, compiled into the targets they belong to.

include_guard(GLOBAL)

set(ORV_LANGUAGES de es fr ja)
set(ORV_LUPDATE_OPTIONS -silent -locations none) # without line numbers, so that catalogues only change if texts do

find_package(Qt6 QUIET OPTIONAL_COMPONENTS LinguistTools)
if(NOT TARGET Qt6::lrelease)
    message(STATUS "Qt Linguist tools are missing: texts stay English")
endif()

# orv_add_translations(<target> NAME <name> FOLDERS <folder>...)
#
# Adds the translations of the texts in FOLDERS to <target> as resources, :/<name>/translations/<name>_<language>.qm. The
# target update-translations updates the catalogues from the sources; it exists only if this project is the top level.
function(orv_add_translations target)
    if(NOT TARGET Qt6::lrelease)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME" "FOLDERS")
    list(TRANSFORM ORV_LANGUAGES REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/translations/${arg_NAME}_\\1.ts"
        OUTPUT_VARIABLE catalogues)
    # Empty, so that users who prefer English to another language get the source texts.
    set(english ${CMAKE_CURRENT_BINARY_DIR}/${arg_NAME}_en.ts)
    file(CONFIGURE OUTPUT ${english} CONTENT "<TS version=\"2.1\" language=\"en\"></TS>\n")
    qt_add_translation(compiled ${english} ${catalogues}) # unlike qt_add_lrelease() it adds no targets
    qt_add_resources(${target} ${arg_NAME}_translations
        PREFIX /${arg_NAME}/translations
        BASE ${CMAKE_CURRENT_BINARY_DIR}
        FILES ${compiled})

    if(NOT PROJECT_IS_TOP_LEVEL) # the parent project may have targets with these names
        return()
    endif()
    list(TRANSFORM arg_FOLDERS PREPEND ${PROJECT_SOURCE_DIR}/)
    add_custom_target(update-translations-${arg_NAME}
        COMMAND Qt6::lupdate ${ORV_LUPDATE_OPTIONS} -no-obsolete ${arg_FOLDERS} -ts ${catalogues}
        VERBATIM)
    if(NOT TARGET update-translations)
        add_custom_target(update-translations)
    endif()
    add_dependencies(update-translations update-translations-${arg_NAME})
    set_property(GLOBAL APPEND PROPERTY ORV_CATALOGUES ${arg_NAME})
    set_property(GLOBAL PROPERTY ORV_CATALOGUES_${arg_NAME} ${arg_FOLDERS} -ts ${catalogues})
endfunction()

# Adds a test for each set of catalogues, which fails if a text is not translated or no longer in the sources.
function(orv_test_translations)
    get_property(names GLOBAL PROPERTY ORV_CATALOGUES)
    foreach(name IN LISTS names)
        get_property(arguments GLOBAL PROPERTY ORV_CATALOGUES_${name})
        add_test(NAME translations.${name} COMMAND ${CMAKE_COMMAND}
            -D "lupdate=$<TARGET_FILE:Qt6::lupdate>;${ORV_LUPDATE_OPTIONS}"
            -D "arguments=${arguments}"
            -D scratch=${CMAKE_CURRENT_BINARY_DIR}/${name}
            -P ${PROJECT_SOURCE_DIR}/cmake/OrvTestTranslations.cmake)
        set_tests_properties(translations.${name} PROPERTIES LABELS translations TIMEOUT 60)
    endforeach()
endfunction()
