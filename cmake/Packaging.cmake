# The Debian packages: `cpack` in the build tree writes
#   instrument-updater_<version>_<architecture>.deb      the stripped updater in /usr/bin (the instrument's)
#   instrument-update-tools_<version>_<architecture>.deb the engineers' update-package in /usr/bin and, in
#       /usr/lib/instrument-update-tools/, what its preview runs, laid out as the source and build trees
#       hold it (tools/update-package/Installation.h): a build of the unmodified updater for the machine,
#       the simulated instrument, its stubs and probe, the sandbox and the default instrument profile
#       (native builds with the tests on, which build the simulated instrument)
# Depends comes from dpkg-shlibdeps, i.e. from the libraries the binaries really need, plus the tools the
# scripts run; a cross build asks the sysroot's own package database (cmake/sysroot-shlibdeps.sh), since
# dpkg-shlibdeps only knows the build machine's.
install(TARGETS updater RUNTIME DESTINATION bin COMPONENT updater)
set(packaged_components updater)
if(TARGET update-package AND TARGET sim-instrument AND TARGET probe)
    list(APPEND packaged_components tools)
    set(tools_dir lib/instrument-update-tools)
    install(TARGETS update-package RUNTIME DESTINATION bin COMPONENT tools)
    install(TARGETS updater RUNTIME DESTINATION ${tools_dir}/updater COMPONENT tools)
    install(TARGETS sim-instrument RUNTIME DESTINATION ${tools_dir}/sim/instrument COMPONENT tools)
    install(TARGETS probe LIBRARY DESTINATION ${tools_dir}/sim/probe/plugins/generic COMPONENT tools)
    install(PROGRAMS scripts/technician.sh DESTINATION ${tools_dir}/scripts COMPONENT tools)
    install(PROGRAMS sim/sandbox DESTINATION ${tools_dir}/sim COMPONENT tools)
    install(FILES sim/keep.list DESTINATION ${tools_dir}/sim COMPONENT tools)
    install(FILES sim/profile/instrument.profile DESTINATION ${tools_dir}/sim/profile COMPONENT tools)
    install(DIRECTORY sim/stubs sim/target sim/tools DESTINATION ${tools_dir}/sim USE_SOURCE_PERMISSIONS
        COMPONENT tools)
    # Debian keeps manual pages compressed, without a time stamp in the gzip header.
    set(man_page ${PROJECT_BINARY_DIR}/update-package.1.gz)
    add_custom_command(OUTPUT ${man_page}
        COMMAND gzip -9n -c ${PROJECT_SOURCE_DIR}/tools/update-package/share/update-package.1 > ${man_page}
        DEPENDS ${PROJECT_SOURCE_DIR}/tools/update-package/share/update-package.1 VERBATIM)
    add_custom_target(update-package-man ALL DEPENDS ${man_page})
    install(FILES ${man_page} DESTINATION share/man/man1 COMPONENT tools)
    install(FILES tools/update-package/share/update-package.bash-completion
        DESTINATION share/bash-completion/completions RENAME update-package COMPONENT tools)
endif()
# What Debian asks of every package: its copyright and a (native package's) change log.
set(changelog ${PROJECT_BINARY_DIR}/changelog.Debian.gz)
string(TIMESTAMP build_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${PROJECT_BINARY_DIR}/changelog.Debian
    "instrument-updater (${PROJECT_VERSION}) stable; urgency=medium\n\n"
    "  * Release ${PROJECT_VERSION}.\n\n"
    " -- Halbern instrument firmware team <firmware@halbern.example>  ${build_date}\n")
execute_process(COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/changelog.Debian)
foreach(component IN LISTS packaged_components)
    set(package_name instrument-${component})
    if(component STREQUAL tools)
        set(package_name instrument-update-tools)
    endif()
    install(FILES cmake/debian/copyright DESTINATION share/doc/${package_name} COMPONENT ${component})
    install(FILES ${changelog} DESTINATION share/doc/${package_name} RENAME changelog.gz COMPONENT ${component})
endforeach()

execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -qDEB_HOST_ARCH
    OUTPUT_VARIABLE deb_arch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE deb_arch_status)
if(NOT deb_arch_status EQUAL 0 OR NOT deb_arch)
    message(STATUS "Packaging: no Debian architecture for '${CMAKE_LIBRARY_ARCHITECTURE}' (dpkg-dev missing?): no .deb")
    return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME instrument-updater)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${packaged_components})
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${deb_arch})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Halbern instrument firmware team <firmware@halbern.example>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The control files with the modes Debian's policy gives them (lintian checks them).
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_UPDATER_PACKAGE_NAME instrument-updater)
set(CPACK_DEBIAN_UPDATER_FILE_NAME instrument-updater_${PROJECT_VERSION}_${deb_arch}.deb)
set(CPACK_DEBIAN_UPDATER_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_UPDATER_DESCRIPTION "firmware updater of the electrical test instrument
The full-screen update program of the instrument's board. From its menu a
technician updates the instrument from a PC or a memory stick, or formats its
storage: an update package replaces the application, kernel, root image, files
and modules, runs scripts, programs the boards' PIC18F microcontrollers and
loads the AVR boards.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME instrument-update-tools)
set(CPACK_DEBIAN_TOOLS_FILE_NAME instrument-update-tools_${PROJECT_VERSION}_${deb_arch}.deb)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION devel)
# What the sandbox and the technician run besides the libraries (dpkg-shlibdeps adds those) and the
# essential packages (coreutils, tar, util-linux): bubblewrap for the instrument's root, fuse3 for the
# simulated instrument, python3 to build its root, bzip2 for the updater's tar.
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "bubblewrap, fuse3, python3, bzip2")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "engineers' tool for the test instrument's update packages
update-package builds, lints and inspects firmware update packages for the
electrical test instrument, and previews them: it runs a package with the real,
unmodified updater on a simulated instrument in a sandbox and compares what the
instrument shows and holds with its prediction, line by line.")
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSROOT)
    # Read by cpack before its own search for dpkg-shlibdeps, which then keeps this command.
    set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CPackSysroot.cmake)
    file(WRITE ${CPACK_PROJECT_CONFIG_FILE}
        "set(SHLIBDEPS_EXECUTABLE ${PROJECT_SOURCE_DIR}/cmake/sysroot-shlibdeps.sh ${CMAKE_SYSROOT} ${deb_arch})\n")
endif()
include(CPack)
