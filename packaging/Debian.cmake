# The Debian packages: cpack --config <build folder>/CPackConfig.cmake. scripts/check-package tries them.
find_program(DPKG_SHLIBDEPS dpkg-shlibdeps)
if(NOT DPKG_SHLIBDEPS OR CMAKE_CROSSCOMPILING OR CINDRAL_SANITIZE)
    return()
endif()

set(runtime_package libcindral${PROJECT_VERSION_MAJOR})
set(dev_package libcindral-dev)
set(tools_package cindral-tools)

# What Debian wants to find beside every package's files.
string(TIMESTAMP packaging_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
foreach(component runtime dev tools)
    set(package ${${component}_package})
    set(folder ${CMAKE_CURRENT_BINARY_DIR}/debian/${package})
    configure_file(debian/changelog.in ${folder}/changelog @ONLY)
    add_custom_command(OUTPUT ${folder}/changelog.gz
        COMMAND gzip -9nkf changelog
        DEPENDS ${folder}/changelog
        WORKING_DIRECTORY ${folder})
    list(APPEND changelogs ${folder}/changelog.gz)
    install(FILES debian/copyright ${folder}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/debian/${component}.lintian-overrides)
        install(FILES debian/${component}.lintian-overrides RENAME ${package}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
    endif()
endforeach()
add_custom_target(debian_changelogs ALL DEPENDS ${changelogs})
configure_file(debian/shlibs.in debian/shlibs @ONLY)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "libcindral developers <libcindral@users.noreply.invalid>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Each component has a summary of its own, as the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(about_library
"libcindral keeps games at the display's frame rate without wasting power. The
display compositor reports every buffer that is queued and consumed and every
vsync; the library boosts late frames, paces the game and saves power when
frames come early.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs ${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "frame pacing for games in a display compositor\n${about_library}")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${dev_package})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_PACKAGE_SUGGESTS ${tools_package})
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "frame pacing for games in a display compositor, development files\n${about_library}
.
This package has what compiling against the library needs, and an example.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "replay of captured games to libcindral\n${about_library}
.
This package has cindral-replay, which plays a capture to the library in
virtual time and shows what the library did, and the stand-in for a phone's
performance service that it needs.")

include(CPack)

# What the packages hold, without building the tests as CMake's own target "package" does.
add_custom_target(debian_packages
    COMMAND ${CMAKE_COMMAND} -E rm -rf ${CPACK_PACKAGE_DIRECTORY}
    COMMAND ${CMAKE_CPACK_COMMAND} --config ${PROJECT_BINARY_DIR}/CPackConfig.cmake
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
    VERBATIM)
add_dependencies(debian_packages cindral cindral-replay cindral_service_libraries debian_changelogs)
if(TARGET manual_page)
    add_dependencies(debian_packages manual_page)
endif()
