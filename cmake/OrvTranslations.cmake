# Catalogues of translated texts: translations/<name>_<language>.ts, compiled into the target that they belong to.

include_guard(GLOBAL)

set(ORV_LANGUAGES de es fr ja)
set(ORV_LUPDATE_OPTIONS -silent -locations none) # without line numbers, so that a catalogue changes with the texts alone

find_package(Qt6 QUIET OPTIONAL_COMPONENTS LinguistTools)
if(NOT TARGET Qt6::lrelease)
    message(STATUS "Qt Linguist tools are missing: texts stay English")
endif()

# orv_add_translations(<target> NAME <name> FOLDERS <folder>...)
#
# Makes the translations of the texts in FOLDERS resources of <target>, :/<name>/translations/<name>_<language>.qm. The
# target update-translations, of this project alone, brings the catalogues up to date with the sources.
function(orv_add_translations target)
    if(NOT TARGET Qt6::lrelease)
        return()
    endif()
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "NAME" "FOLDERS")
    list(TRANSFORM ORV_LANGUAGES REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/translations/${arg_NAME}_\\1.ts"
        OUTPUT_VARIABLE catalogues)
    # Empty: who prefers English and has another language next shall get the texts of the sources.
    set(english ${CMAKE_CURRENT_BINARY_DIR}/${arg_NAME}_en.ts)
    file(CONFIGURE OUTPUT ${english} CONTENT "<TS version=\"2.1\" language=\"en\"></TS>\n")
    qt_add_translation(compiled ${english} ${catalogues}) # unlike qt_add_lrelease() it adds no targets
    qt_add_resources(${target} ${arg_NAME}_translations
        PREFIX /${arg_NAME}/translations
        BASE ${CMAKE_CURRENT_BINARY_DIR}
        FILES ${compiled})

    if(NOT PROJECT_IS_TOP_LEVEL) # the other project may have targets of these names
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

# A test for each set of catalogues, which fails when a text is not translated, or is gone from the sources.
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
