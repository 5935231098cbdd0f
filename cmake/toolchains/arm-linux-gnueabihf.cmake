# Cross build for the instrument's 32-bit ARM board, with Debian's compiler and libraries:
#   dpkg --add-architecture armhf && apt-get update
#   apt-get install g++-arm-linux-gnueabihf and each -dev package of scripts/packages.txt as NAME:armhf
# The code generators of Qt (moc, uic, rcc) run on the building machine.
# A root file system of another kind is named by -DCMAKE_SYSROOT=DIRECTORY.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(orla_triplet arm-linux-gnueabihf)

set(CMAKE_C_COMPILER ${orla_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${orla_triplet}-g++)
set(CMAKE_STRIP ${orla_triplet}-strip)
set(CMAKE_LIBRARY_ARCHITECTURE ${orla_triplet})

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
if(CMAKE_SYSROOT)
    set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
    set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
    set(ENV{PKG_CONFIG_SYSROOT_DIR} "${CMAKE_SYSROOT}")
endif()
set(ENV{PKG_CONFIG_LIBDIR}
    "${CMAKE_SYSROOT}/usr/lib/${orla_triplet}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig")

# CPack asks for the architecture of the packages.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
