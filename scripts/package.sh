#!/bin/bash
# Makes the packages under build/packages: .debs for this distribution, .rpm and .tar.gz of the portable
# agent for every other, and looks at them. With the maker's IANA enterprise number as argument they are
# for that maker's BMCs, without it they are marked as a demonstration. With --test it then boots a
# Debian in a virtual machine and looks whether the installed service does what it should.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

test=
if [[ ${1-} == --test ]]; then
    test=yes
    shift
fi
number=${1-}
if [[ $number && ! $number =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: scripts/package.sh [--test] [NUMBER]" >&2
    exit 2
fi
[[ $number != 32473 ]] || number= # no maker's: a demonstration
install_packages "${build_packages[@]}" "${package_packages[@]}"

work=$(mktemp -d /tmp/tav_package.XXXXXX)
trap 'rm -rf "$work"' EXIT
# The same day for every file, so that the same sources make the same packages.
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog --show-field Timestamp)
export SOURCE_DATE_EPOCH

# Of a copy: packaging leaves its traces in the folder that it works in.
copy_source() { # FOLDER
    mkdir -p "$1"
    git ls-files -z | xargs -0 cp --parents -t "$1" --
}

quietly() { "$@" >"$work/log" 2>&1 || { tail -n 40 "$work/log" >&2; exit 1; }; } # COMMAND...

# The .rpm and the .tar.gz, which is to be unpacked in the root folder.
make_portable() { # SOURCE
    local version name
    cd "$1"
    quietly cmake --preset portable ${number:+"-DTAV_IANA_ENTERPRISE_NUMBER=$number"}
    quietly cmake --build --preset portable
    cd build/portable
    version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' CMakeCache.txt)
    name=tav-init-$version-linux-$(uname -m)
    [[ $number ]] || name+=-demonstration
    mkdir packages
    quietly cpack -B packages
    rm -r packages/_CPack_Packages
    DESTDIR=root quietly cmake --install . --strip
    tar --directory root --sort=name --mtime="@$SOURCE_DATE_EPOCH" --owner=0 --group=0 \
        --numeric-owner --create usr | gzip -9n >"packages/$name.tar.gz"
}

make_debian() { # SOURCE
    cd "$1"
    TAV_NUMBER=$number quietly dpkg-buildpackage --build=binary --no-sign
    rm ../*-dbgsym_*
}

for folder in "$work/source" "$work/another/source"; do
    copy_source "$folder"
    (make_portable "$folder")
done
diff -r "$work"/{,another/}source/build/portable/packages
(make_debian "$work/source")

mkdir -p build/packages
rm -f build/packages/*.{deb,rpm,tar.gz}
mv "$work"/*.deb "$work"/source/build/portable/packages/* build/packages/
# The service, and with the example that records it.
units=$work/units
mkdir -p "$units/tavd.service.d"
dpkg-deb --fsys-tarfile build/packages/tav-init_*.deb |
    tar -xO ./lib/systemd/system/tavd.service >"$units/tavd.service"
systemd-analyze verify --man=no "$units/tavd.service"
cp packaging/examples/tavd-trace.conf "$units/tavd.service.d/"
systemd-analyze verify --man=no "$units/tavd.service"
systemd-analyze security --offline=true --threshold=15 "$units/tavd.service" | tail -n 1
lintian --allow-root --fail-on error,warning build/packages/*.deb
packaging/check.sh build/packages "$work/source/build/portable/src/libtav.a"
ls -l build/packages
if [[ $test ]]; then
    tests/vm/service.sh
fi
