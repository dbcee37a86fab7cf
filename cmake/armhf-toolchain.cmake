# Cross build for the instrument's board: 32-bit ARM Cortex-A8 with a Debian 12 armhf userland.
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/armhf-toolchain.cmake
# Headers and libraries (Qt 5.15, fuse3) come from an armhf root file system, the sysroot that
# scripts/test-armhf.sh makes; Qt's code generators (moc, uic, rcc) are the host's, of the same Qt version.
# Test programs run through the emulator, which finds the target's libraries in the same sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(ARMHF_SYSROOT /var/cache/instrument-updater/armhf-sysroot CACHE PATH "Debian 12 armhf root file system to build against")
find_program(ARMHF_EMULATOR NAMES qemu-arm qemu-arm-static HINTS /var/cache/instrument-updater/qemu
    DOC "user-mode emulator of 32-bit ARM")
# The compiler checks read this file again in projects of their own: hand the chosen paths on to them.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARMHF_SYSROOT ARMHF_EMULATOR)

set(CMAKE_SYSROOT ${ARMHF_SYSROOT})
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(cpu_flags "-mcpu=cortex-a8 -mfpu=neon -mfloat-abi=hard")
set(CMAKE_C_FLAGS_INIT "${cpu_flags}")
# -Wno-psabi: no notes about GCC 7.1's change of argument passing; everything here is built by GCC 12.
set(CMAKE_CXX_FLAGS_INIT "${cpu_flags} -Wno-psabi")

# Everything the build links or includes comes from the sysroot; programs it runs come from the host.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

if(ARMHF_EMULATOR)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${ARMHF_EMULATOR} -cpu cortex-a8 -L ${CMAKE_SYSROOT})
endif()
