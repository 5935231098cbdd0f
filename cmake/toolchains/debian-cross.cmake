# Cross build with Debian's compiler for another of its architectures; to be included by a toolchain
# file that has set orla_triplet, orla_processor and orla_architecture.
#
# The compiler is crossbuild-essential-ARCHITECTURE, the libraries are the -dev packages of
# scripts/packages.txt as NAME:ARCHITECTURE. Some of them cannot stand beside this machine's own, so
# packaging/build makes a root of its own for them. Qt's code generators (moc, uic, rcc) run on the
# building machine. A root file system of another kind is named by -DCMAKE_SYSROOT=DIRECTORY.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${orla_processor})

set(CMAKE_C_COMPILER ${orla_triplet}-gcc)
set(CMAKE_CXX_COMPILER ${orla_triplet}-g++)
set(CMAKE_STRIP ${orla_triplet}-strip)
set(CMAKE_OBJCOPY ${orla_triplet}-objcopy)
set(CMAKE_READELF ${orla_triplet}-readelf)
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
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${orla_architecture})
