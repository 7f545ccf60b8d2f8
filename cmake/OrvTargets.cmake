# Functions that declare the libraries, programs and tests of this project in a uniform way.

include_guard(GLOBAL)
include(GenerateExportHeader)

# The environment of every test. Without a locale, newer Qt prints a message in each program.
set(ORV_TEST_ENVIRONMENT
    LC_ALL=C.UTF-8
    QT_LOGGING_RULES=
    QT_QPA_PLATFORM=offscreen
    LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/leaks.supp:print_suppressions=0)

# Compiler settings for our own code, which do not affect users of the libraries.
function(orv_configure_target target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_compile_definitions(${target} PRIVATE
        QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING
        QT_NO_KEYWORDS QT_NO_FOREACH QT_STRICT_ITERATORS
        QT_DISABLE_DEPRECATED_BEFORE=0x060B00) # nothing that Qt 6.11 or an older version deprecates
    target_compile_options(${target} PRIVATE
        $<$<CXX_COMPILER_ID:GNU,Clang,AppleClang>:-Wall -Wextra -Wpedantic -Wshadow
            -Woverloaded-virtual -Wcast-align -Wformat=2 -Wimplicit-fallthrough>
        $<$<CXX_COMPILER_ID:MSVC>:/W4 /permissive-  /utf-8>)
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        AUTORCC ON
        CXX_EXTENSIONS OFF
        CXX_SCAN_FOR_MODULES OFF # it takes longer than some of the sources
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    if(TARGET orv_precompiled)
        target_compile_options(${target} PRIVATE -fPIC) # in programs, too: with the same options as the headers
        if(NOT target STREQUAL orv_precompiled)
            target_precompile_headers(${target} REUSE_FROM orv_precompiled)
        endif()
    endif()
endfunction()

# orv_add_precompiled_headers()
#
# Most of the time to compile a file goes into headers of Qt and the standard library, so those in precompiled.h are
# compiled once, for all targets that are declared later. The preset "lint" does without, and so finds what a file
# forgets to include.
function(orv_add_precompiled_headers)
    if(CMAKE_DISABLE_PRECOMPILE_HEADERS OR WIN32 OR NOT CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
        return()
    endif()
    set(stub ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp)
    file(CONFIGURE OUTPUT ${stub} CONTENT "")
    add_library(orv_precompiled OBJECT ${stub})
    orv_configure_target(orv_precompiled)
    set_target_properties(orv_precompiled PROPERTIES AUTOMOC OFF)
    target_link_libraries(orv_precompiled PRIVATE Qt6::Core)
    foreach(library IN ITEMS Qt6::Network QCoro6::Coro) # without their definitions, which not all targets have
        target_include_directories(orv_precompiled SYSTEM PRIVATE
            $<TARGET_PROPERTY:${library},INTERFACE_INCLUDE_DIRECTORIES>)
    endforeach()
    target_precompile_headers(orv_precompiled PRIVATE ${PROJECT_SOURCE_DIR}/cmake/precompiled.h)
endfunction()

# orv_add_library(<target> ALIAS <Name> DESCRIPTION <text> SOURCES ... HEADERS ... [LINK ...] [LINK_PRIVATE ...])
#
# A shared library <target> with the alias Orv::<Name>. HEADERS are the public ones in src: they are installed, and are
# included by their file name alone, from the build tree as from an install. With ORV_CLANG_TIDY set to a command,
# they are checked by it while they are compiled; programs are not, since clang-tidy is slow.
function(orv_add_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "ALIAS;DESCRIPTION" "SOURCES;HEADERS;LINK;LINK_PRIVATE")
    add_library(${target} SHARED ${arg_SOURCES})
    add_library(Orv::${arg_ALIAS} ALIAS ${target})
    orv_configure_target(${target})
    generate_export_header(${target})
    target_sources(${target} PUBLIC FILE_SET HEADERS
        BASE_DIRS src ${CMAKE_CURRENT_BINARY_DIR} # also added to the include directories of users
        FILES ${arg_HEADERS} ${CMAKE_CURRENT_BINARY_DIR}/${target}_export.h)
    target_link_libraries(${target} PUBLIC ${arg_LINK} PRIVATE ${arg_LINK_PRIVATE})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${arg_ALIAS}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${ORV_ABI_VERSION})
    if(ORV_CLANG_TIDY)
        set_target_properties(${target} PROPERTIES CXX_CLANG_TIDY "${ORV_CLANG_TIDY}")
    endif()
    if(ORV_INSTALL)
        orv_install_library(${target} ALIAS ${arg_ALIAS} DESCRIPTION ${arg_DESCRIPTION}
            LINK ${arg_LINK} LINK_PRIVATE ${arg_LINK_PRIVATE})
    endif()
endfunction()

# orv_add_program(<target> [INSTALLED] SOURCES ... LINK ...)
#
# With INSTALLED it is installed as one of the tools.
function(orv_add_program target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "INSTALLED" "" "SOURCES;LINK")
    add_executable(${target} ${arg_SOURCES})
    orv_configure_target(${target})
    target_link_libraries(${target} PRIVATE ${arg_LINK})
    if(arg_INSTALLED AND ORV_INSTALL)
        orv_install_program(${target})
    endif()
endfunction()

# orv_add_test(<name> LABEL <label> [TIMEOUT <seconds>] LINK ... [SOURCES ...])
#
# The test program tests/<label>/<name>.cpp, with one ctest entry <label>.<name>.
function(orv_add_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABEL;TIMEOUT" "LINK;SOURCES")
    orv_add_program(${name} SOURCES ${name}.cpp ${arg_SOURCES} LINK Qt6::Test ${arg_LINK})
    add_test(NAME ${arg_LABEL}.${name} COMMAND ${name})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 60)
    endif()
    set_tests_properties(${arg_LABEL}.${name} PROPERTIES
        LABELS ${arg_LABEL}
        TIMEOUT ${arg_TIMEOUT}
        ENVIRONMENT "${ORV_TEST_ENVIRONMENT}")
endfunction()
