# SPDX-License-Identifier: MIT
# 32-bit little-endian ARM with hard float, against the sysroot that `./run sysroot` makes.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# GCC 7 changed how some arguments travel and says so at every use; nothing here is that old.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# The same place as in tests/target/common.sh.
if(DEFINED ENV{QUOR_CACHE})
  set(quor_cache $ENV{QUOR_CACHE})
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(quor_cache $ENV{XDG_CACHE_HOME}/quorcachepinfiled)
else()
  set(quor_cache $ENV{HOME}/.cache/quorcachepinfiled)
endif()
set(CMAKE_SYSROOT ${quor_cache}/sysroot-armhf)
if(NOT EXISTS ${CMAKE_SYSROOT}/usr/include)
  message(FATAL_ERROR "No sysroot at ${CMAKE_SYSROOT}; make it with ./run sysroot")
endif()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# No binfmt entry is asked of the machine.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm-static -L ${CMAKE_SYSROOT})
