#!/bin/bash
# Looks at what scripts/package.sh made: one version and maker's number in all, hardened, and what the
# .rpm and the .tar.gz do in a root folder that is empty but for a shell.
#   packaging/check.sh FOLDER ARCHIVE-OF-THE-PORTABLE-AGENT'S-OBJECTS
set -Eeuo pipefail
trap 'echo "FAILED: ${BASH_SOURCE[0]}, line $LINENO: $BASH_COMMAND" >&2' ERR
packages=$(realpath "$1")
objects=$2
cd "$(dirname "$0")/.."
work=$(mktemp -d /tmp/tav_packages.XXXXXX)
trap 'rm -rf "$work"' EXIT

version=$(sed -n 's/^project(tav_init VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
deb=$(echo "$packages"/tav-init_"$version"_*.deb)
rpm=$(echo "$packages"/tav-init-"$version"-1.*.rpm)
tar=$(echo "$packages"/tav-init-"$version"-linux-*.tar.gz)

same() { # WHAT IS SHOULD
    if [[ $2 != "$3" ]]; then
        diff <(echo "$3") <(echo "$2") || true
        echo "FAILED: $1" >&2
        exit 1
    fi
}

mkdir "$work"/{deb,rpm,tar}
dpkg-deb --extract "$deb" "$work/deb"
tar --directory "$work/tar" -xzf "$tar"

# As systemctl and sh are called by the scriptlets, in a root folder of its own.
rpm_do() { # ARGUMENTS OF RPM...
    : >"$work/rpm/calls"
    rpm --root "$work/rpm" --nodeps --force-debian "$@"
    calls=$(cat "$work/rpm/calls")
}
mkdir "$work"/rpm/{bin,dev}
cp /bin/busybox "$work/rpm/bin/sh"
touch "$work/rpm/dev/null"
printf '#!/bin/sh\necho "$*" >>/calls\n' >"$work/rpm/bin/systemctl"
chmod +x "$work/rpm/bin/systemctl"
rpm_do --install "$rpm"
same "scriptlets of a first installation" "$calls" "daemon-reload
--no-reload preset tavd.service"

# The same agent, and both start where there is nothing else.
diff -r "$work/tar/usr" "$work/rpm/usr"
for root in tar rpm; do
    said=$(chroot "$work/$root" /usr/sbin/tav_init --help 2>&1) && status=0 || status=$?
    same "usage line and status in an empty root" "$status ${said%%:*}" "1 Usage"
done

rpm_do --upgrade --replacepkgs "$rpm"
same "scriptlets of an upgrade" "$calls" "daemon-reload
daemon-reload
try-restart tavd.service"
rpm_do --erase tav-init
same "scriptlets of the last removal" "$calls" "--no-reload disable --now tavd.service
daemon-reload"
same "what is left after the removal" "$(find "$work/rpm/usr" ! -type d)" ""
same "what the package requires" "$(rpm -qp --requires "$rpm" | grep -v '^rpmlib(' | sort -u)" /bin/sh
same "folders of the .rpm" "$(rpm -qpl "$rpm" | grep -v '^/usr/share/' | sort)" \
    "/usr/lib/modules-load.d/tavd.conf
/usr/lib/systemd/system/tavd.service
/usr/lib/udev/rules.d/60-tavd.rules
/usr/sbin/tav_init"

# One version and number.
identity() { strings "$work/$1/usr/sbin/tav_init" | grep '^tav_init .*enterprise number'; } # deb|tar
same "identity of the agents" "$(identity deb)" "$(identity tar)"
[[ $(identity tar) == "tav_init $version, "* ]]
for page in "$work/tar/usr/share/man/man8/tav_init.8" "$work"/deb/usr/share/man/man8/tav_init.8.gz; do
    [[ $(zcat --force "$page") == *$'\n'".Os tav_init $version"$'\n'* ]]
done
marked() { [[ ${1,,} != *"$2"* ]] || echo demonstration; } # TEXT WORD
mark=$(marked "$(identity tar)." " 32473.")
tools=$(echo "$packages"/tav-init-tools_"$version"_*.deb)
for text in "$(dpkg-deb --field "$deb" Description)" "$(dpkg-deb --field "$tools" Description)" \
    "$(rpm -qpi "$rpm")" "$tar"; do
    same "mark of a demonstration" "$(marked "$text" demonstration)" "$mark"
done

# Hardening. Debian's start files of the C library carry no marks of control-flow protection, so the
# linker leaves them out of the whole; the agent's own objects have them all. What is linked into the
# static agent is no longer called from outside: its objects tell.
hardening-check --quiet --nocfprotection "$work/deb/usr/sbin/tav_init"
hardening-check --quiet --nocfprotection --nostackprotector "$work/tar/usr/sbin/tav_init"
hardening-check --quiet --nocfprotection "$objects"
if [[ $(uname -m) == x86_64 ]]; then
    same "objects marked for control-flow protection" \
        "$(readelf -n "$objects" | grep -c 'IBT, SHSTK')" "$(ar t "$objects" | wc -l)"
fi
for agent in deb tar; do
    same "executable beside code" "$(readelf -lW "$work/$agent/usr/sbin/tav_init" | awk '
        /^ +[A-Z_]+ +0x/ { executable[n++] = / R E / }
        /Segment Sections/ { mapping = 1 }
        mapping && executable[int($1)] && $1 ~ /^[0-9]/ && / \.(rodata|eh_frame|gcc_except_table)/')" ""
done
