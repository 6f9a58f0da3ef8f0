#!/bin/bash
# Makes the Debian packages under build/packages. With the maker's IANA enterprise number as argument
# they are for that maker's BMCs, without it they are marked as a demonstration.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

number=${1-}
if [[ $number && ! $number =~ ^[1-9][0-9]*$ ]]; then
    echo "usage: scripts/package.sh [NUMBER]" >&2
    exit 2
fi
install_packages "${build_packages[@]}" "${package_packages[@]}"

# Of a copy: packaging leaves its traces in the folder that it works in.
work=$(mktemp -d /tmp/tav_package.XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir "$work/source"
git ls-files -z | xargs -0 cp --parents -t "$work/source" --
(
    cd "$work/source"
    TAV_NUMBER=$number dpkg-buildpackage --build=binary --no-sign >../build.log 2>&1 ||
        { tail -n 40 ../build.log; exit 1; }
)
mkdir -p build/packages
rm -f build/packages/*.deb
mv "$work"/*.deb build/packages/
rm -f build/packages/*-dbgsym_*
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
ls -l build/packages
