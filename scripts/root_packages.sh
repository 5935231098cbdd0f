# Sourced by packaging/build and scripts/in_root, which make clean roots of the distribution.

# root_packages ARCHITECTURE: reads names of packages, and prints what a root on this machine needs
# to build for that architecture. The libraries are the architecture's; what runs while building is
# this machine's, the compiler's target apart.
root_packages() {
    sed "/^g++\$/d; /^#/d; s/-dev\$/-dev:$1/"
    if [ "$1" = "$(dpkg --print-architecture)" ]; then
        echo g++
    else
        echo "crossbuild-essential-$1"
    fi
}
