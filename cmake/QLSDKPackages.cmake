# The Debian packages that `cpack --preset package` makes, one for each component of QLSDKInstall.cmake.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qlsdkcorekit)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_CONTACT "The maintainers of QLSDKCoreKit <maintainers@quillo.example>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime dev quillkit schema)
if(QLSDK_BUILD_DESKTOP)
    list(APPEND CPACK_COMPONENTS_ALL desktop-runtime desktop-dev)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The packages need each other's libraries before any of them is installed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/QLSDKCoreKit ${PROJECT_BINARY_DIR}/QLSDKCoreKit/platform/desktop)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The summaries of the packages stand in their own descriptions.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
string(CONCAT description
    "Telemetry that stays out of its host's way, remote configuration, an installation\n"
    "identifier and deep links for applications that use the Quillo kits.")
get_property(has_development_key GLOBAL PROPERTY QLSDK_DEVELOPMENT_KEY)
if(has_development_key)
    string(APPEND description "\nBuilt with the public development key: its tokens prove nothing. Not for release.")
endif()

set(same_version "(= ${PROJECT_VERSION})")
set(core_runtime "libqlsdkcorekit${PROJECT_VERSION_MAJOR}")
set(desktop_runtime "libqlsdkcorekit-desktop${PROJECT_VERSION_MAJOR}")

# qlsdk_debian_package(component NAME name SECTION section SUMMARY text [DEPENDS package...] [LIBRARY library])
# LIBRARY names the shared library in the package: programs that use it learn from the package what to depend on, and
# the loader's cache is brought up to date.
macro(qlsdk_debian_package component)
    cmake_parse_arguments(arg "" "NAME;SECTION;SUMMARY;LIBRARY" DEPENDS ${ARGN})
    string(TOUPPER ${component} id)
    set(CPACK_DEBIAN_${id}_PACKAGE_NAME ${arg_NAME})
    set(CPACK_DEBIAN_${id}_PACKAGE_SECTION ${arg_SECTION})
    set(CPACK_DEBIAN_${id}_DESCRIPTION "${arg_SUMMARY}\n${description}")
    list(JOIN arg_DEPENDS ", " CPACK_DEBIAN_${id}_PACKAGE_DEPENDS)
    if(arg_LIBRARY)
        set(control ${PROJECT_BINARY_DIR}/install/${arg_NAME})
        file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
        file(WRITE ${control}/shlibs
            "${arg_LIBRARY} ${PROJECT_VERSION_MAJOR} ${arg_NAME} (>= ${PROJECT_VERSION})\n")
        set(CPACK_DEBIAN_${id}_PACKAGE_CONTROL_EXTRA ${control}/triggers ${control}/shlibs)
    endif()
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${arg_NAME} COMPONENT ${component})
endmacro()

qlsdk_debian_package(runtime LIBRARY libqlsdkcorekit NAME ${core_runtime} SECTION libs
    SUMMARY "core library of the Quillo kits"
    DEPENDS ca-certificates)
# Static linking takes the libraries that the adapters use, and those their pkg-config files name.
qlsdk_debian_package(dev NAME libqlsdkcorekit-dev SECTION libdevel
    SUMMARY "core library of the Quillo kits, for development"
    DEPENDS "${core_runtime} ${same_version}" ${qlsdk_core_packages} zlib1g-dev)
# The config file of a static library asks it.
set(CPACK_DEBIAN_DEV_PACKAGE_RECOMMENDS pkg-config)
set(workbench_needs "${core_runtime} ${same_version}")
if(QLSDK_BUILD_DESKTOP)
    list(APPEND workbench_needs "${desktop_runtime} ${same_version}")
endif()
qlsdk_debian_package(quillkit NAME quillkit SECTION devel
    SUMMARY "workbench for hosts of the Quillo kits"
    DEPENDS ${workbench_needs})
qlsdk_debian_package(schema NAME qlsdkcorekit-schema SECTION doc
    SUMMARY "messages of the Quillo kits, for services that receive them")
set(CPACK_DEBIAN_SCHEMA_PACKAGE_ARCHITECTURE all)
if(QLSDK_BUILD_DESKTOP)
    qlsdk_debian_package(desktop-runtime LIBRARY libqlsdkcorekit-desktop NAME ${desktop_runtime} SECTION libs
        SUMMARY "desktop adapters for the core library of the Quillo kits"
        DEPENDS "${core_runtime} ${same_version}")
    qlsdk_debian_package(desktop-dev NAME libqlsdkcorekit-desktop-dev SECTION libdevel
        SUMMARY "desktop adapters for the core library of the Quillo kits, for development"
        DEPENDS "${desktop_runtime} ${same_version}" "libqlsdkcorekit-dev ${same_version}")
endif()
include(CPack)
