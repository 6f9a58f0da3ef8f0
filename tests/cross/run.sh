#!/bin/bash
# Builds the project for other processors with Debian's cross compilers and runs the unit tests under
# qemu-user; the static agent must tell its usage there. Then looks whether machines that are not
# supported are refused in clear words. All that it makes is in
# build/cross, where libraries and what is fetched are kept.
#   tests/cross/run.sh [ARCHITECTURE...]
set -euo pipefail
cd "$(dirname "$0")/../.."
source scripts/packages.sh

declare -A triplets=(
    [arm64]=aarch64-linux-gnu [ppc64el]=powerpc64le-linux-gnu [riscv64]=riscv64-linux-gnu)
cache=$PWD/build/cross
libpcap=$cache/libpcap
work=$(mktemp -d /tmp/tav_cross.XXXXXX)
trap 'rm -rf "$work"' EXIT

# Debian has no libpcap of its own for each of them. What the host's apt knows stays as it is.
fetch_libpcap() {
    local apt=$work/apt options release
    if [[ -d $libpcap ]]; then
        return
    fi
    release=$(source /etc/os-release && echo "$VERSION_CODENAME")
    mkdir -p "$apt"/{lists,cache,source}
    echo "deb-src http://deb.debian.org/debian $release main" >"$apt/sources.list"
    options=(-qq -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts=/dev/null
        -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt/cache" -o APT::Sandbox::User=root)
    apt-get "${options[@]}" update
    (cd "$apt/source" && apt-get "${options[@]}" source libpcap >/dev/null)
    mv -T "$apt"/source/libpcap-*/ "$libpcap"
}

# What the tests link, in $folder/libraries: whole or not at all.
make_libraries() {
    local new=$folder/libraries.new
    if [[ -d $folder/libraries ]]; then
        return
    fi
    rm -rf "$new"
    make_library /usr/src/googletest
    make_library "$libpcap" -DBUILD_SHARED_LIBS=OFF -DBUILD_WITH_LIBNL=OFF -DDISABLE_DBUS=ON \
        -DDISABLE_RDMA=ON
    cp -r /usr/include/nlohmann "$new/include/" # headers alone
    cp -r /usr/share/cmake/nlohmann_json "$new/lib/cmake/"
    mv -T "$new" "$folder/libraries"
}

make_library() { # SOURCE [OPTIONS of cmake]
    rm -rf "$folder/library"
    cmake -S "$1" -B "$folder/library" -G Ninja "${toolchain[@]}" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_INSTALL_PREFIX="$folder/libraries.new" "${@:2}"
    cmake --build "$folder/library" --target install
    rm -rf "$folder/library"
}

build() { # PRESET
    cmake --preset "$1" -B "$folder/$1" "${toolchain[@]}"
    cmake --build "$folder/$1"
}

check() { # ARCHITECTURE
    local folder=$cache/$1 triplet=${triplets[$1]} processor status=0
    processor=${triplet%%-*}
    local emulator=("qemu-${processor/powerpc/ppc}-static" -L "/usr/$triplet")
    local toolchain=(--toolchain "$PWD/tests/cross/toolchain.cmake" -DTAV_TRIPLET="$triplet"
        -DTAV_LIBRARIES="$folder/libraries"
        -DCMAKE_CROSSCOMPILING_EMULATOR="$(IFS=';' && echo "${emulator[*]}")")
    make_libraries
    build portable
    # Without this machine's device: any start takes over the timer.
    unshare --mount sh -c 'mount -t tmpfs none /dev && exec "$@"' - \
        "${emulator[@]}" "$folder/portable/src/sbin/tav_init" --help || status=$?
    ((status == 1))
    grep -q '^Usage: ' "$folder/log"
    build release
    ctest --test-dir "$folder/release" --tests-regex '^unit$' --verbose
    grep -q '\[  PASSED  \]' "$folder/log" # and not skipped
}

# The compiler must refuse the agent's sources with that text.
refused() { # WHAT TEXT COMPILER...
    local options=(-std=c++20 -fsyntax-only -Isrc -DTAV_IANA_ENTERPRISE_NUMBER=1)
    if "${@:3}" "${options[@]}" src/tavIpmi.cpp >"$work/refusal" 2>&1 ||
        ! grep "static assertion failed: $2" "$work/refusal" >/dev/null; then
        echo "FAILED: $1: not refused with '$2'"
        return 1
    fi
    echo "ok: $1: refused"
}

(($#)) || set -- arm64 ppc64el riscv64
for architecture in "$@"; do
    [[ -v triplets[$architecture] ]] || { echo "usage: tests/cross/run.sh [${!triplets[*]}]" >&2; exit 2; }
done
install_packages "${build_packages[@]}" "${cross_packages[@]}"
mkdir -p "$cache"
fetch_libpcap
failed=0
for architecture in "$@"; do
    mkdir -p "$cache/$architecture"
    log=$cache/$architecture/log
    check "$architecture" >"$log" 2>&1 &
    if wait $!; then
        echo "ok: $architecture: built; $(grep -o 'PASSED.*' "$log" | grep -o '[0-9]*') unit tests passed"
    else
        tail -n 40 "$log"
        echo "FAILED: $architecture: see $log"
        failed=1
    fi
done
refused "64-bit, big-endian" "tav_init runs on little-endian machines only" \
    powerpc64le-linux-gnu-g++ -mbig-endian || failed=1
refused "32-bit" "tav_init runs on 64-bit machines only" aarch64-linux-gnu-g++ -mabi=ilp32 || failed=1
exit "$failed"
