# Helpers of this build. Everything they set is private to our own targets: a project that takes the library as a
# subproject gets no flag, no warning and no test from it.

if(PROJECT_IS_TOP_LEVEL)
    find_program(QLSDK_CCACHE ccache)
    if(QLSDK_CCACHE)
        # What its manual asks for where headers are precompiled.
        set(launcher ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${QLSDK_CCACHE})
        set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
        set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
    endif()
endif()

add_library(qlsdk_build_flags INTERFACE)
target_compile_options(qlsdk_build_flags INTERFACE -Wall -Wextra -Wconversion -Wshadow
    # GCC 12 takes the optimised `"text" + string` for overlapping copies (its bug 105651).
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>:-Wno-restrict>
    # So that a link leaves out what nobody calls.
    "$<$<NOT:$<CONFIG:Debug>>:-ffunction-sections;-fdata-sections>"
    # Lets ccache keep what uses a precompiled header.
    $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>
    $<$<BOOL:${QLSDK_WARNINGS_AS_ERRORS}>:-Werror>)
if(QLSDK_SANITIZE)
    target_compile_options(qlsdk_build_flags INTERFACE -fsanitize=${QLSDK_SANITIZE}
        -fno-sanitize-recover=all -fno-omit-frame-pointer
        # The sanitizers' own code makes GCC doubt variables and texts that it follows without them.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized;-Wno-array-bounds>)
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
            -Wl,--gc-sections -Wl,--as-needed
            # A thread that has used the library runs some of its code when it ends, whatever a host has closed by then.
            -Wl,-z,nodelete)
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${symbol_map})
    endif()
endfunction()

# qlsdk_add_core_library(NAME STATIC|SHARED): the library, made of its objects.
function(qlsdk_add_core_library target kind)
    add_library(${target} ${kind} $<TARGET_OBJECTS:qlsdk_objects>)
    qlsdk_configure_target(${target})
    if(kind STREQUAL SHARED)
        target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/QLSDKCoreKit/platform/SharedLibrary.cpp)
        # Its texts lie beside it, as they do where it is installed.
        file(GENERATE OUTPUT $<TARGET_FILE_DIR:${target}>/libqlsdkcorekit.${PROJECT_VERSION}.en.strings.plist
            INPUT ${PROJECT_SOURCE_DIR}/cmake/qlsdkcorekit.en.strings.plist)
    endif()
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    set_target_properties(${target} PROPERTIES
        OUTPUT_NAME qlsdkcorekit VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME CoreKit)
    qlsdk_set_exported_symbols(${target})
endfunction()

# Links the library with others of which its hosts see nothing: the objects for their headers, the library for the rest.
function(qlsdk_link_privately)
    target_link_libraries(qlsdk_objects PRIVATE ${ARGN})
    target_link_libraries(QLSDKCoreKit PRIVATE ${ARGN})
endfunction()

# Gives a program that tests run the sanitizer's options of this build.
function(qlsdk_set_sanitizer_options target)
    if(QLSDK_SANITIZE MATCHES thread)
        target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/ThreadSanitizerOptions.cpp)
    endif()
endfunction()

# Links a program of the tests with the library in a way that lets it ask for more than the shared one exports.
function(qlsdk_link_internals target)
    target_link_libraries(${target} PRIVATE $<IF:$<TARGET_EXISTS:qlsdk_internals>,qlsdk_internals,QLSDKCoreKit>)
endfunction()

# What every test includes, compiled once for all of them.
if(QLSDK_BUILD_TESTS)
    include(GoogleTest)
    find_package(GTest REQUIRED)
    file(CONFIGURE OUTPUT precompiled.cpp CONTENT "int main() {}\n" @ONLY)
    add_executable(qlsdk_precompiled EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/precompiled.cpp)
    qlsdk_configure_target(qlsdk_precompiled)
    target_link_libraries(qlsdk_precompiled PRIVATE GTest::gmock)
    target_precompile_headers(qlsdk_precompiled PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
endif()

# qlsdk_add_test(NAME [INTERNALS] SOURCES file... [LIBRARIES lib...] [TIMEOUT seconds])
# One test program. CTest runs each of its tests in a process of its own, because the kit's shared objects live
# as long as the process. INTERNALS: it asks for more than the shared library exports, and is linked with the library's
# objects where the others are linked with that.
function(qlsdk_add_test name)
    if(NOT QLSDK_BUILD_TESTS)
        return()
    endif()
    cmake_parse_arguments(arg "INTERNALS" "TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 300)
    endif()
    add_executable(${name} ${arg_SOURCES})
    qlsdk_set_sanitizer_options(${name})
    qlsdk_configure_target(${name})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
    if(arg_INTERNALS AND BUILD_SHARED_LIBS)
        # As a file: the target asks for the shared library.
        add_dependencies(${name} QLSDKTesting)
        target_link_libraries(${name} PRIVATE $<TARGET_FILE:QLSDKTesting>)
    else()
        target_link_libraries(${name} PRIVATE QLSDK::Testing)
    endif()
    if(arg_INTERNALS)
        qlsdk_link_internals(${name})
    else()
        target_link_libraries(${name} PRIVATE QLSDK::CoreKit)
    endif()
    target_link_libraries(${name} PRIVATE GTest::gmock_main)
    if(NOT arg_SOURCES MATCHES "\\.c(;|$)")
        target_precompile_headers(${name} REUSE_FROM qlsdk_precompiled)
    endif()
    set(temporary ${PROJECT_BINARY_DIR}/tmp)
    file(MAKE_DIRECTORY ${temporary})
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120
        PROPERTIES TIMEOUT ${arg_TIMEOUT} ENVIRONMENT "TMPDIR=${temporary}")
endfunction()
