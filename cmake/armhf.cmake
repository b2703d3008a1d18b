# Cross build for the terminal's board: 32-bit ARM, hard float (Debian armhf).
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake -DORVIN_ARMHF_SYSROOT=<dir>
# ORVIN_ARMHF_SYSROOT holds the armhf OpenSSL and GoogleTest packages unpacked with dpkg -x
# (tools/cross-test.sh makes it); the C library comes with the cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(ORVIN_ARMHF_SYSROOT "" CACHE PATH "Unpacked armhf packages (OpenSSL, GoogleTest)")
# The compiler checks configure their own small projects: hand them the sysroot too.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ORVIN_ARMHF_SYSROOT)
if(NOT ORVIN_ARMHF_SYSROOT)
    message(FATAL_ERROR "Set ORVIN_ARMHF_SYSROOT (tools/cross-test.sh armhf makes one)")
endif()
set(CMAKE_FIND_ROOT_PATH ${ORVIN_ARMHF_SYSROOT} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# OpenSSL keeps its configuration header under the multiarch include directory.
set(CMAKE_C_FLAGS_INIT "-isystem ${ORVIN_ARMHF_SYSROOT}/usr/include/arm-linux-gnueabihf")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${ORVIN_ARMHF_SYSROOT}/usr/include/arm-linux-gnueabihf")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ORVIN_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L /usr/arm-linux-gnueabihf)
