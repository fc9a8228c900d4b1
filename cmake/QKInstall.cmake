# How the libraries reach a host: a CMake package, pkg-config files, an uninstall target
# and Debian packages. The install rules of the targets themselves sit beside the targets.
include(CMakePackageConfigHelpers)

set(QK_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QKUtilities)
set(QK_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(EXPORT QKUtilitiesTargets
    NAMESPACE QKUtilities::
    DESTINATION ${QK_INSTALL_CMAKEDIR}
    COMPONENT Development)
configure_package_config_file(cmake/QKUtilitiesConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QKUtilitiesConfig.cmake
    INSTALL_DESTINATION ${QK_INSTALL_CMAKEDIR})
# Within a major version the interface only grows.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QKUtilitiesConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/QKUtilitiesConfig.cmake
    ${PROJECT_BINARY_DIR}/QKUtilitiesConfigVersion.cmake
    DESTINATION ${QK_INSTALL_CMAKEDIR}
    COMPONENT Development)

# The prefix is found from the .pc file's own place, so an installed tree can move (or be
# installed with --prefix) and its pkg-config files still point into it.
file(RELATIVE_PATH QK_PC_PREFIX_FROM_PCDIR "/prefix/${QK_INSTALL_PKGCONFIGDIR}" "/prefix")
string(REGEX REPLACE "/$" "" QK_PC_PREFIX_FROM_PCDIR "${QK_PC_PREFIX_FROM_PCDIR}")
foreach(pc qkbase qkutilities)
    configure_file(cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc
        DESTINATION ${QK_INSTALL_PKGCONFIGDIR}
        COMPONENT Development)
endforeach()

if(NOT TARGET uninstall)
    add_custom_target(uninstall
        COMMAND ${CMAKE_COMMAND} -DQK_INSTALL_MANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
                -P ${PROJECT_SOURCE_DIR}/cmake/QKUninstall.cmake
        COMMENT "Removing the installed files")
endif()

# Packaging is for this project's own build, not for a host that adds it as a subdirectory.
if(NOT PROJECT_IS_TOP_LEVEL)
    return()
endif()

# "cpack -G DEB" in the build folder: a runtime package named after the SONAME, and a
# development package pinned to exactly that runtime.
set(QK_DEB_RUNTIME libqkutilities${PROJECT_VERSION_MAJOR})
set(CPACK_PACKAGE_NAME qkutilities)
set(CPACK_PACKAGE_VENDOR Velmora)
set(CPACK_PACKAGE_CONTACT "Velmora <support@velmora.com>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
    "Shortcuts, help desk and standard panels for Qt audio applications")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL Runtime Development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "${QK_SUPPORT_BASE_URL}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QK_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Diagnostic uploads zip their files; the system profile and crash traces use lshw and
# addr2line when present. Help desk exchanges over https need OpenSSL, which Qt's TLS
# backend loads at run time, so no library dependency names it.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "zip, libssl3")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "lshw, binutils")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "The QKUtilities and QKBase shared libraries.")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqkutilities-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${QK_DEB_RUNTIME} (= ${PROJECT_VERSION}), qt6-base-dev (>= ${QK_QT_MINIMUM_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "Headers, CMake package and pkg-config files.")

if(QK_INSTALL_EXTRAS)
    list(APPEND CPACK_COMPONENTS_ALL Extras)
    set(CPACK_DEBIAN_EXTRAS_PACKAGE_NAME qkutilities-extras)
    # dpkg-shlibdeps cannot see the libraries in the sibling package, so the list is ours.
    set(CPACK_DEBIAN_EXTRAS_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_DEBIAN_EXTRAS_PACKAGE_DEPENDS "${QK_DEB_RUNTIME} (= ${PROJECT_VERSION}), \
libqt6httpserver6 (>= ${QK_QT_MINIMUM_VERSION}), libqt6sql6-sqlite (>= ${QK_QT_MINIMUM_VERSION})")
    set(CPACK_DEBIAN_EXTRAS_DESCRIPTION
        "Sound Lab and the loopback support site.")
endif()
include(CPack)
