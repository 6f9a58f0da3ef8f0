#!/bin/bash
# Builds the project in a Debian 13 root file system, where compiler, CMake, libc and googletest are
# newer, runs the unit tests there and builds the fuzz targets with its clang. The root file system
# is made once; all is in build/cross/debian13, and mounts are seen by nobody else.
set -euo pipefail
cd "$(dirname "$0")/../.."
source scripts/packages.sh

folder=$PWD/build/cross/debian13
root=$folder/root

make_root() { # whole or not at all
    local packages=("${build_packages[@]}" "${test_packages[@]}" iproute2)
    if [[ -d $root ]]; then
        return
    fi
    rm -rf "$root.new"
    mkdir -p "$folder/build"
    mmdebstrap --quiet --variant=essential --include="$(IFS=, && echo "${packages[*]}")" \
        trixie "$root.new" http://deb.debian.org/debian
    mkdir "$root.new/project"
    mv -T "$root.new" "$root"
}

# The sources are read only there, under a build folder of their own.
enter() { # COMMAND
    unshare --mount --pid --fork --kill-child sh -euc '
        mount --bind . "$1/project"
        mount -o remount,bind,ro "$1/project"
        mount --bind "$2" "$1/project/build"
        mount -t proc proc "$1/proc"
        mkdir -p "$1/dev/net"
        touch "$1/dev/net/tun"
        mount --bind /dev/net/tun "$1/dev/net/tun"
        exec chroot "$1" sh -euc "cd /project; $3"' - "$root" "$folder/build" "$1"
}

# Quiet as long as it succeeds.
step='step() { "$@" >build/log 2>&1 || { tail -n 40 build/log; exit 1; }; }'

install_packages "${debian13_packages[@]}"
make_root
enter "$step"'
    step cmake --preset release
    step cmake --build --preset release
    step cmake --preset clang
    step cmake --build --preset clang --target fuzz_targets
    step build/release/tests/tav_unit_tests
    echo "ok: Debian $(cat /etc/debian_version): $(tail -n 1 build/log)"
    g++ --version | head -n 1
    clang++ --version | head -n 1
    cmake --version | head -n 1'
