# Cross build for 32-bit ARM Linux (Debian armhf) with Debian's arm-linux-gnueabihf compilers,
# against the sysroot of scripts/armhf-sysroot; programs run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# GCC notes that ARM argument passing changed in GCC 7.1; everything here is built by one GCC.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

execute_process(
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/../scripts/armhf-sysroot --path
  OUTPUT_VARIABLE QRIX_ARMHF_SYSROOT OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
if(NOT IS_DIRECTORY "${QRIX_ARMHF_SYSROOT}/usr/include")
  message(FATAL_ERROR "no armhf sysroot at ${QRIX_ARMHF_SYSROOT}: run scripts/bootstrap --armhf")
endif()

set(CMAKE_SYSROOT "${QRIX_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${QRIX_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config sees the sysroot's .pc files and nothing of this machine's.
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR}
    "${QRIX_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${QRIX_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${QRIX_ARMHF_SYSROOT}")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L "${QRIX_ARMHF_SYSROOT}")
