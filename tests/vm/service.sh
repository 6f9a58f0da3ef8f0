#!/bin/bash
# Boots a Debian 12 whose process 1 is systemd, installs the packages there and looks at the service:
# how it comes and goes with the device, the administrator, errors and packages. Needs the packages
# of the agent and of its tools (scripts/package.sh makes them).
#   tests/vm/service.sh [FOLDER-OF-PACKAGES]
set -Eeuo pipefail
trap 'echo "FAILED: ${BASH_SOURCE[0]}, line $LINENO" >&2' ERR
cd "$(dirname "$0")/../.."
source scripts/packages.sh
source sim/vm/machine.sh
source sim/vm/debian.sh
source tests/vm/checks.sh

packages=${1-build/packages}
agent_package=$(echo "$packages"/tav-init_*.deb)
tools_package=$(echo "$packages"/tav-init-tools_*.deb)
vm_patience=600 # an emulated machine boots in half a minute, beside others in minutes
patience=240

# The same package with a higher version.
make_next_version() { # FILE
    local contents=$vm_folder/next
    dpkg-deb --raw-extract "$agent_package" "$contents"
    sed -i 's/^Version: .*/&+next/' "$contents/DEBIAN/control"
    dpkg-deb --root-owner-group --build "$contents" "$1" >/dev/null
    rm -rf "$contents"
}

prepare() {
    install_packages "${vm_packages[@]}" "${service_packages[@]}"
    vm_make_folder
    vm_fetch_kernel
    dpkg-deb --extract "$tools_package" "$vm_folder/tools"
    tools=$vm_folder/tools/usr/bin
    vm_bmcd=$tools/tav_bmcd
    mkdir "$vm_folder/files"
    cp "$agent_package" "$vm_folder/files/agent.deb"
    cp "$tools_package" "$vm_folder/files/tools.deb"
    make_next_version "$vm_folder/files/next.deb"
    vm_prepare_debian "$vm_folder"/files/*
}

boot() { # QEMU's options
    vm_boot -drive "file=$vm_disk,format=raw,if=virtio,cache=unsafe" "$@"
    await "boot: all units are at work" '^running$' guest 'systemctl is-system-running --wait'
}

service_is() { guest 'systemctl is-active tavd || true'; }
failed_units() { guest 'systemctl --failed --no-legend --plain'; }
agents() { guest 'pidof tav_init tav_trace || true'; }
daemon_number() { guest 'cat /run/tavd.pid'; }
uptime() { guest 'cut -d. -f1 /proc/uptime'; }
journal() { guest "journalctl --quiet --boot --output=cat $*"; }

# What no driver says to the BMC.
agent_words_behind() { # LINE
    bmc_log_behind "$1" | grep -E 'Configuration space:|Agent communication' || true
}

# Not at work, and nobody has to look after it.
expect_skipped() { # WHAT
    expect "$1: not started" '^inactive$' service_is
    expect "$1: by its condition" '^no$' guest 'systemctl show --property=ConditionResult --value tavd'
    expect "$1: no agent" '^$' agents
    expect "$1: nothing has failed" '^$' failed_units
}

# The daemon is up and has taken the watchdog.
await_work() { # WHAT
    await "$1: the service is active" '^active$' service_is
    await "$1: watchdog armed" 'running +yes' bmc_view
    expect "$1: nothing has failed" '^$' failed_units
}

# The agent has gone in order; it tells the BMC once, and asks from then on.
expect_gone() { # WHAT LINE-OF-THE-BMC'S-LOG
    expect "$1: watchdog stopped" 'running +no' bmc_view
    expect "$1: the agent said goodbye" 'Agent communication: ' bmc_log_behind "$2"
    expect "$1: the BMC knows" 'agent +not connected' bmc_view
}

# A daemon with another number is at work.
another_daemon() { # NUMBER
    local now
    now=$(guest 'systemctl is-active --quiet tavd && cat /run/tavd.pid || true')
    [[ $now && $now != "$1" ]] && echo "$now"
}

# When systemd last looked whether the service may start, if not at that time.
condition_time() { guest 'systemctl show --property=ConditionTimestampMonotonic --value tavd'; }
another_condition_time() { condition_time | grep -vx "$1"; } # TIME

install_deb() { # WHAT PACKAGE
    guest_ends "$1" 0 "dpkg --install /root/$2 >/run/dpkg.log 2>&1 || { cat /run/dpkg.log; false; }"
}

# All files but those in which the system keeps account of what was done.
files() {
    guest 'find / -xdev -path /var/log -prune -o -path /var/lib/dpkg -prune -o -print | sort'
}

prepare

echo "# A server without a device"
bmc_start --machine nic --watchdog 240
# The driver comes when the test says so.
vm_kernel_options=modprobe.blacklist=ipmi_si boot
files >"$vm_folder/before"
install_deb "no device: install" agent.deb
expect_skipped "no device"

echo "# The device appears"
guest 'modprobe ipmi_si'
await_work "device"
await "device: address in the configuration space" 'conf_server_IPAddress1 +192\.0\.2\.1$' bmc_view
expect "device: journal" '^starting$' journal SYSLOG_FACILITY=21 --identifier=tav_daemon
expect "device: no complaint" '^$' journal --priority=warning --unit=tavd

echo "# The administrator"
told=$(bmc_log_length)
guest_ends "stop" 0 'systemctl stop tavd'
expect_gone "stop" "$told"
expect "stop: the BMC was told" 'Agent communication: disconnect' bmc_log_behind "$told"
expect "stop: pid file gone" '' guest '! test -e /run/tavd.pid'
expect "stop: no agent" '^$' agents
guest_ends "start" 0 'systemctl start tavd'
await_work "start"
guest_ends "restart" 0 'systemctl restart tavd'
await_work "restart"

echo "# Mishaps"
killed=$(daemon_number)
killed_at=$(uptime)
guest "kill -9 $killed"
await "killed: another daemon" '^[0-9]+$' another_daemon "$killed"
pass "killed: it took $(($(uptime) - killed_at)) s"
await_work "killed"
expect "killed: watchdog has not expired" 'expired uses +none' bmc_view

guest 'ip addr add 192.0.2.2/24 dev eth0'
await "second address: ends the work" 'if entry for eth0 is already existing' journal --unit=tavd
await "second address: the service waits" '^activating$' service_is
guest 'ip addr del 192.0.2.2/24 dev eth0'
gone_at=$(uptime)
await "second address gone: the service is back" '^active$' service_is
pass "second address gone: it took $(($(uptime) - gone_at)) s"
await_work "second address gone"

echo "# The example that records the service"
install_deb "tools: install" tools.deb
drop_ins=/etc/systemd/system/tavd.service.d
guest "mkdir $drop_ins && cp /usr/share/doc/tav-init/examples/tavd-trace.conf $drop_ins/"
guest_ends "record: restart" 0 'systemctl daemon-reload && systemctl restart tavd'
await_work "record"
expect "record: by tav_trace" '^tav_trace$' guest 'cat /proc/$(cat /run/tavd.pid)/comm'
guest_ends "record: stop" 0 'systemctl stop tavd'
guest 'cat /var/log/tavd/*.record' >"$vm_folder/record"
expect "record: replays outside" '^Replayed as recorded' "$tools/tav_sim" --root "$vm_folder/host" \
    --replay "$vm_folder/record" --
guest "rm -r $drop_ins /var/log/tavd && systemctl daemon-reload && systemctl start tavd"
await_work "record taken back"
expect "record taken back: by tav_init" '^tav_init$' guest 'cat /proc/$(cat /run/tavd.pid)/comm'

echo "# Upgrade"
before=$(daemon_number)
install_deb "upgrade" next.deb
await "upgrade: another daemon" '^[0-9]+$' another_daemon "$before"
await_work "upgrade"
expect "upgrade: watchdog has not expired" 'expired uses +none' bmc_view

echo "# Beside the kernel's watchdog driver"
guest 'systemctl stop tavd && modprobe --remove ipmi_si && udevadm settle && modprobe ipmi_watchdog'
seen_at=$(condition_time)
kept=$(bmc_log_length)
guest 'modprobe ipmi_si'
await "ipmi_watchdog: the device comes" "^[0-9]+$" another_condition_time "$seen_at"
expect_skipped "ipmi_watchdog: device"
guest_ends "ipmi_watchdog: start" 0 'systemctl start tavd'
expect_skipped "ipmi_watchdog: start"
expect "ipmi_watchdog: the BMC hears no agent" '^$' agent_words_behind "$kept"
guest_ends "ipmi_watchdog gone: start" 0 'modprobe --remove ipmi_watchdog && systemctl start tavd'
await_work "ipmi_watchdog gone"

echo "# Purge"
told=$(bmc_log_length)
guest_ends "purge" 0 'dpkg --purge tav-init tav-init-tools >/dev/null'
expect_gone "purge" "$told"
expect "purge: no agent" '^$' agents
expect "purge: no pid file" '' guest '! test -e /run/tavd.pid'
expect "purge: no unit" '^not-found$' guest 'systemctl show --property=LoadState --value tavd'
files >"$vm_folder/after"
expect "purge: no file" '^$' diff "$vm_folder/before" "$vm_folder/after"

echo "# A server with a device"
install_deb "install" agent.deb
await_work "install"
told=$(bmc_log_length)
guest 'systemctl --no-block start reboot.target'
vm_await_off
expect_gone "shutdown" "$told"

echo "# The next boot, in a blade of the KESTRELBOX line"
bmc_stop
bmc_start --machine kestrelbox --watchdog 240
boot -smbios type=1,family=KESTRELBOX,product=blade -smbios type=3,manufacturer=maker
await_work "boot"
await "boot: address in the configuration space" 'conf_server_IPAddress1 +192\.0\.2\.1$' bmc_view
# It knows from the SMBIOS tables alone that there is a chassis to tell.
await "boot: OS status over the IPMB" 'OS status +OS running' bmc_view
expect "boot: no complaint" '^$' journal --priority=warning --unit=tavd
guest 'systemctl --no-block start poweroff.target'
vm_await_off
bmc_stop
echo "# All as it should be, after $SECONDS s"
