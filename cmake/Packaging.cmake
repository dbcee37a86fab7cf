# The Debian package of the updater: `cpack` in the build tree writes
# instrument-updater_<version>_<architecture>.deb with the stripped updater in /usr/bin. Depends comes
# from dpkg-shlibdeps, i.e. from the libraries the binary really needs; a cross build asks the sysroot's
# own package database (cmake/sysroot-shlibdeps.sh), since dpkg-shlibdeps only knows the build machine's.
install(TARGETS updater RUNTIME DESTINATION bin)

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
set(CPACK_DEBIAN_FILE_NAME ${CPACK_PACKAGE_NAME}_${PROJECT_VERSION}_${deb_arch}.deb)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${deb_arch})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Halbern instrument firmware team <firmware@halbern.example>")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "firmware updater of the electrical test instrument
The full-screen update program of the instrument's board. From its menu a technician updates the
instrument from a PC or a memory stick, or formats its storage: an update package replaces the
application, kernel, root image, files and modules, runs scripts, programs the boards' PIC18F
microcontrollers and loads the AVR boards.")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSROOT)
    # Read by cpack before its own search for dpkg-shlibdeps, which then keeps this command.
    set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/CPackSysroot.cmake)
    file(WRITE ${CPACK_PROJECT_CONFIG_FILE}
        "set(SHLIBDEPS_EXECUTABLE ${PROJECT_SOURCE_DIR}/cmake/sysroot-shlibdeps.sh ${CMAKE_SYSROOT} ${deb_arch})\n")
endif()
include(CPack)
