# What `cmake --install` lays down: libraries, public headers, CMake and pkg-config files. Its components are the Debian
# packages of QLSDKPackages.cmake: runtime, dev, desktop-runtime, desktop-dev, schema and quillkit.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(qlsdk_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QLSDKCoreKit)
set(qlsdk_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# qlsdk_install_library(TARGET EXPORT name RUNTIME component DEV component)
# The library with its CMake targets in the file QLSDKCoreKit-<name>.cmake, which the config file includes on demand.
# No run path is installed: the loader's own search finds the library, or the host says where it is.
function(qlsdk_install_library target)
    cmake_parse_arguments(arg "" "EXPORT;RUNTIME;DEV" "" ${ARGN})
    install(TARGETS ${target} EXPORT QLSDKCoreKit-${arg_EXPORT}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${arg_RUNTIME} NAMELINK_COMPONENT ${arg_DEV}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${arg_DEV})
    install(EXPORT QLSDKCoreKit-${arg_EXPORT} NAMESPACE QLSDK::
        DESTINATION ${qlsdk_cmake_dir} COMPONENT ${arg_DEV})
endfunction()

# qlsdk_install_pkgconfig(NAME component): cmake/NAME.pc.in, filled in. The prefix is known for sure only when
# things are installed.
function(qlsdk_install_pkgconfig name component)
    set(prefix @prefix@)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/install/${name}.pc.in @ONLY)
    install(CODE "set(prefix \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(\"${PROJECT_BINARY_DIR}/install/${name}.pc.in\"
            \"${PROJECT_BINARY_DIR}/install/${name}.pc\" @ONLY)" COMPONENT ${component})
    install(FILES ${PROJECT_BINARY_DIR}/install/${name}.pc
        DESTINATION ${qlsdk_pkgconfig_dir} COMPONENT ${component})
endfunction()

# The public headers; the desktop's belong to its own package.
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/public-headers.txt qlsdk_public_headers REGEX "^[^#]")
foreach(header IN LISTS qlsdk_public_headers)
    set(component dev)
    if(header MATCHES "/desktop/")
        if(NOT QLSDK_BUILD_DESKTOP)
            continue()
        endif()
        set(component desktop-dev)
    endif()
    cmake_path(GET header PARENT_PATH folder)
    install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder}
        COMPONENT ${component})
endforeach()

# Which kinds of the core library there are; the config file takes what it finds.
get_target_property(core_type QLSDKCoreKit TYPE)
if(core_type STREQUAL SHARED_LIBRARY)
    set(core_export shared)
    set(other_export static)
else()
    set(core_export static)
    set(other_export shared)
endif()
qlsdk_install_library(QLSDKCoreKit EXPORT ${core_export} RUNTIME runtime DEV dev)
if(QLSDK_BOTH_KINDS)
    qlsdk_install_library(qlsdk_other_kind EXPORT ${other_export} RUNTIME runtime DEV dev)
endif()
qlsdk_install_library(QLSDKTesting EXPORT Testing RUNTIME runtime DEV dev)

# The library's texts, which a host may replace: beside the shared library, under a name without ".so", because ldconfig
# would take it for a library; and for hosts that link it statically, where programs of the same prefix look for them.
if(core_export STREQUAL shared OR QLSDK_BOTH_KINDS)
    install(FILES cmake/qlsdkcorekit.en.strings.plist DESTINATION ${CMAKE_INSTALL_LIBDIR}
        RENAME libqlsdkcorekit.${PROJECT_VERSION}.en.strings.plist COMPONENT runtime)
endif()
install(FILES cmake/qlsdkcorekit.en.strings.plist DESTINATION ${CMAKE_INSTALL_DATADIR}/qlsdkcorekit COMPONENT dev)

# What a static library is linked with.
list(JOIN qlsdk_core_flags " " core_libraries)
string(APPEND core_libraries " -lstdc++ -pthread -ldl")
list(JOIN qlsdk_core_modules ", " core_requirements)
# Beside a shared library they are private, for `pkg-config --static`; where there is only the static one, every
# program needs them.
set(static_only "")
set(private ".private")
if(core_export STREQUAL static AND NOT QLSDK_BOTH_KINDS)
    set(static_only " ${core_libraries}")
    set(private "")
endif()
qlsdk_install_pkgconfig(qlsdkcorekit dev)
qlsdk_install_pkgconfig(qlsdkcorekit-testing dev)

if(QLSDK_BUILD_DESKTOP)
    # A library of its own, not a part of the core's and not a static one in its development package: so that
    # neither a host without a desktop nor its builder gets GLib, libsecret and fontconfig.
    qlsdk_install_library(QLSDKDesktop EXPORT Desktop RUNTIME desktop-runtime DEV desktop-dev)
    get_target_property(desktop_type QLSDKDesktop TYPE)
    set(desktop_requirements "")
    if(desktop_type STREQUAL STATIC_LIBRARY)
        list(JOIN qlsdk_desktop_modules ", " desktop_requirements)
        string(PREPEND desktop_requirements ", ")
    endif()
    qlsdk_install_pkgconfig(qlsdkcorekit-desktop desktop-dev)
endif()

configure_package_config_file(cmake/QLSDKCoreKitConfig.cmake.in install/QLSDKCoreKitConfig.cmake
    INSTALL_DESTINATION ${qlsdk_cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(install/QLSDKCoreKitConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/install/QLSDKCoreKitConfig.cmake
    ${PROJECT_BINARY_DIR}/install/QLSDKCoreKitConfigVersion.cmake
    DESTINATION ${qlsdk_cmake_dir} COMPONENT dev)

# For those who build the service: messages, formats, and what a receiver must make of tokens and bodies.
install(FILES schema/heartbeat.proto schema/kit_events.proto schema/metrics.proto schema/timestamp.proto
    schema/vectors/vectors.json
    DESTINATION ${CMAKE_INSTALL_DATADIR}/qlsdkcorekit-schema COMPONENT schema)
install(FILES server/nginx.conf.in server/python/tables.sql server/python/tokens.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/qlsdkcorekit-schema/receiver COMPONENT schema)
install(PROGRAMS server/python/receiver.py
    DESTINATION ${CMAKE_INSTALL_DATADIR}/qlsdkcorekit-schema/receiver COMPONENT schema)
# The chapters of docs/formats.md up to the library's own files.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/formats.md)
file(READ docs/formats.md wire_chapters)
string(FIND "${wire_chapters}" "\n## Files\n" end)
if(end EQUAL -1)
    message(FATAL_ERROR "docs/formats.md has no chapter Files, before which those of the wire stand")
endif()
string(SUBSTRING "${wire_chapters}" 0 ${end} wire_chapters)
file(WRITE ${PROJECT_BINARY_DIR}/install/wire.md "${wire_chapters}")
install(FILES ${PROJECT_BINARY_DIR}/install/wire.md
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qlsdkcorekit-schema COMPONENT schema)
