# Toolchain file: 32-bit ARM Linux with hardware floating point, the gateway's own processor, by the distribution's cross
# compiler. Programs that the build or the tests run are run by the user-mode emulator.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(kvTriple arm-linux-gnueabihf)
set(kvSysroot /usr/${kvTriple})
set(CMAKE_CXX_COMPILER ${kvTriple}-g++)
set(CMAKE_C_COMPILER ${kvTriple}-gcc)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes about a calling convention that changed before this project began

# Headers, libraries and packages of this machine are for this machine's processor: none of them is looked at. What has
# headers only, and GoogleTest, come by CrossPackages.cmake.
set(CMAKE_FIND_ROOT_PATH ${kvSysroot})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The MIME library comes as a package of the target, where scripts/test has unpacked it; without it there are no mails.
cmake_path(SET kvUnpacked NORMALIZE ${CMAKE_CURRENT_LIST_DIR}/../build/armhf/root)
set(ENV{PKG_CONFIG_LIBDIR} ${kvUnpacked}/usr/lib/${kvTriple}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${kvUnpacked})
if(EXISTS ${kvUnpacked})
    list(APPEND CMAKE_FIND_ROOT_PATH ${kvUnpacked})
    set(kvSysroot ${kvUnpacked})
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${kvSysroot})
