# Helpers of this build. Everything they set is private to our own targets: a project that takes the library as a
# subproject gets no flag, no warning and no test from it.

find_package(Threads REQUIRED)
if(PROJECT_IS_TOP_LEVEL)
    find_program(QLSDK_CCACHE ccache)
    if(QLSDK_CCACHE)
        set(CMAKE_C_COMPILER_LAUNCHER ${QLSDK_CCACHE})
        set(CMAKE_CXX_COMPILER_LAUNCHER ${QLSDK_CCACHE})
    endif()
endif()

add_library(qlsdk_build_flags INTERFACE)
target_compile_options(qlsdk_build_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow
    $<$<BOOL:${QLSDK_WARNINGS_AS_ERRORS}>:-Werror>)
if(QLSDK_SANITIZE)
    target_compile_options(qlsdk_build_flags INTERFACE -fsanitize=${QLSDK_SANITIZE}
        -fno-sanitize-recover=all -fno-omit-frame-pointer
        # The sanitizers' own code makes GCC doubt variables that it follows without them.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_link_options(qlsdk_build_flags INTERFACE -fsanitize=${QLSDK_SANITIZE})
endif()

# Gives one of our targets the language level, the hidden visibility and the private flags.
function(qlsdk_configure_target target)
    set_target_properties(${target} PROPERTIES
        CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF
        C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden C_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:qlsdk_build_flags>)
endfunction()

# Gives a program that tests run the sanitizer's options of this build.
function(qlsdk_set_sanitizer_options target)
    if(QLSDK_SANITIZE MATCHES thread)
        target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/ThreadSanitizerOptions.cpp)
    endif()
endfunction()

# qlsdk_add_test(NAME SOURCES file... [LIBRARIES lib...] [TIMEOUT seconds])
# One test program. CTest runs each of its tests in a process of its own, because the kit's shared objects live
# as long as the process.
function(qlsdk_add_test name)
    if(NOT QLSDK_BUILD_TESTS)
        return()
    endif()
    cmake_parse_arguments(arg "" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 120)
    endif()
    add_executable(${name} ${arg_SOURCES})
    qlsdk_set_sanitizer_options(${name})
    qlsdk_configure_target(${name})
    target_link_libraries(${name} PRIVATE QLSDK::CoreKit QLSDK::Testing GTest::gmock_main ${arg_LIBRARIES})
    target_precompile_headers(${name} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:<gtest/gtest.h$<ANGLE-R>>)
    set(temporary ${PROJECT_BINARY_DIR}/tmp)
    file(MAKE_DIRECTORY ${temporary})
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120
        PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "TMPDIR=${temporary}")
endfunction()
