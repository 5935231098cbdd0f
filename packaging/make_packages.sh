#!/bin/sh
# Builds the packages of one preset where its compiler and libraries are installed, and asks lintian:
# packaging/make_packages.sh PRESET. They are left in build/PRESET/packages.
set -eu
preset=$1
cmake --preset "$preset"
cmake --build "build/$preset" --target package
mkdir "build/$preset/packages"
mv "build/$preset"/*.deb "build/$preset"/*.ddeb "build/$preset/packages"
lintian --allow-root --pedantic --fail-on error,warning "build/$preset/packages"/*.deb
