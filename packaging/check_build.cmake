# Read by cpack before it makes the packages: what would leave them wrong without a word.

cmake_minimum_required(VERSION 3.25)
find_program(shlibdeps dpkg-shlibdeps)
if(NOT shlibdeps)
    message(FATAL_ERROR "dpkg-shlibdeps was not found: the packages would not name the libraries that "
        "they need. Install the package dpkg-dev.")
endif()

file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in" newest LIMIT_COUNT 1)
set(expected "orla-verifier (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) ")
string(FIND "${newest}" "${expected}" at)
if(NOT at EQUAL 0)
    message(FATAL_ERROR "packaging/debian/changelog.in does not begin with an entry of this version, "
        "\"${expected}\", but with \"${newest}\".")
endif()
