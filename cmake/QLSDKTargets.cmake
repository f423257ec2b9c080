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
    # GCC 12 takes the optimised `"text" + string` for overlapping copies (its bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>:-Wno-restrict>
    # So that a link leaves out what nobody calls.
    "$<$<NOT:$<CONFIG:Debug>>:-ffunction-sections;-fdata-sections>"
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

# Keeps what a shared library exports to our own symbols, and its calls of itself to itself; a static one has no such
# list.
function(qlsdk_set_exported_symbols target)
    set(symbol_map ${PROJECT_SOURCE_DIR}/cmake/exported-symbols.map)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL SHARED_LIBRARY)
        target_link_options(${target} PRIVATE -Wl,--version-script=${symbol_map} -Wl,-Bsymbolic-functions
            -Wl,--gc-sections -Wl,--as-needed)
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${symbol_map})
    endif()
endfunction()

# qlsdk_add_core_library(NAME STATIC|SHARED): the library, made of its objects.
function(qlsdk_add_core_library target kind)
    add_library(${target} ${kind} $<TARGET_OBJECTS:qlsdk_objects>)
    qlsdk_configure_target(${target})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME qlsdkcorekit VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME CoreKit)
    qlsdk_set_exported_symbols(${target})
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
