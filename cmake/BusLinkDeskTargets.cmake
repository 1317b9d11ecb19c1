# SPDX-License-Identifier: MIT
# What every target of this project is built with.

add_library(buslinkdesk_settings INTERFACE)
target_compile_features(buslinkdesk_settings INTERFACE cxx_std_20)
target_compile_definitions(buslinkdesk_settings INTERFACE
    QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_FOREACH)
target_compile_options(buslinkdesk_settings INTERFACE -Wall -Wextra -Wconversion -Wshadow)
target_link_options(buslinkdesk_settings INTERFACE -Wl,--no-undefined)
if(BUSLINKDESK_WERROR)
    target_compile_options(buslinkdesk_settings INTERFACE -Werror)
endif()
if(BUSLINKDESK_SANITIZE)
    target_compile_options(buslinkdesk_settings INTERFACE
        -fsanitize=${BUSLINKDESK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(buslinkdesk_settings INTERFACE -fsanitize=${BUSLINKDESK_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # clang's runtime stays undefined in a shared library until the program is linked.
        target_link_options(buslinkdesk_settings INTERFACE -Wl,-z,undefs)
    endif()
endif()

if(BUSLINKDESK_BUILD_FUZZERS)
    # Everything that a fuzz target can reach tells which ways were taken; the targets add the engine.
    target_compile_options(buslinkdesk_settings INTERFACE -fsanitize=fuzzer-no-link)
    target_link_options(buslinkdesk_settings INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Only the library's own objects record; whatever they are linked into writes it down. Threads of one program count
# at once, so the counters are atomic.
if(BUSLINKDESK_COVERAGE)
    target_link_options(buslinkdesk_settings INTERFACE --coverage)
endif()
function(buslinkdesk_record_coverage target)
    if(BUSLINKDESK_COVERAGE)
        target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    endif()
endfunction()

# Gives a target the project's settings. They stay out of what is installed.
function(buslinkdesk_configure target)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:buslinkdesk_settings>)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    set_target_properties(${target} PROPERTIES
        AUTOMOC ON
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
endfunction()
