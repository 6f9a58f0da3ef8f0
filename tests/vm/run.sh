#!/bin/bash
# Runs tav_init as it is in virtual machines, where it talks through Linux' own IPMI driver and a KCS
# interface to the simulated BMC: first the portable one, then, in all modes, the one that shares libc.
# Needs the builds release and portable and the packages of the virtual machine.
#   tests/vm/run.sh [ROUNDS of a hundred looks with tav_status at a busy daemon; ten]
set -Eeuo pipefail
trap 'echo "FAILED: ${BASH_SOURCE[0]}, line $LINENO" >&2' ERR
cd "$(dirname "$0")/../.."
source sim/vm/machine.sh
source tests/vm/checks.sh

writes_behind() { bmc_log_behind "$1" | grep -c 'Write FRU data' || true; } # LINE

# The time of its last exchange.
bmc_seconds() {
    sed -n 's/^ *\([0-9]*\)\.[0-9]* s .*/\1/p' "$bmc_log" | tail -n 1
}

bmc_past() { # SECONDS
    local now
    now=$(bmc_seconds)
    ((now >= $1)) && echo -
}

add_interface() { # NAME IPV4-ADDRESS
    guest "ip link add $1 type dummy && ip link set $1 up && ip addr add $2/24 dev $1"
}

start_daemon() { guest_ends "$1" 0 'tav_init'; } # WHAT

# As a crash leaves it: with its pid file, which would block the next start.
kill_daemon() { guest 'kill -9 $(cat /var/run/tavd.pid) && rm /var/run/tavd.pid'; }

system_log() { guest 'cat /var/log/messages'; }

# A KESTRELBOX blade tells the chassis over the IPMB that its OS runs, which it does only when it
# has read who it is from the SMBIOS tables.
check_blade() { # FIRMWARE PREPARATION QEMU-OPTIONS...
    local firmware=$1 preparation=$2
    shift 2
    bmc_start --machine kestrelbox
    vm_boot "$@" -smbios type=1,family=KESTRELBOX,product=blade -smbios type=3,manufacturer=maker
    guest_ends "$firmware: entry point" 0 "$preparation"
    guest_ends "$firmware: once" 0 'tav_init -s'
    await "$firmware: OS status over the IPMB" 'OS status +OS running \(events: 2\)' bmc_view
    vm_tsc_khz=$(guest 'dmesg' |
        sed -n 's/.*tsc: Detected \([0-9]*\)\.\([0-9]*\) MHz processor.*/\1\2/p')
    [[ $vm_tsc_khz =~ ^[0-9]+$ ]] || vm_fail "FAILED: $firmware: frequency '$vm_tsc_khz'"
    vm_off
    bmc_stop
}

low_memory='dd if=/dev/mem of=/tmp/low bs=64k skip=15 count=1 2>/dev/null && test $(wc -c </tmp/low) = 65536'
kernels_table=/sys/firmware/dmi/tables/smbios_entry_point

echo "# Who the machine is"
programs=(build/release/tools/tav_{trace,status} /usr/bin/flock)
vm_prepare build/release/tools build/portable/src/sbin/tav_init "${programs[@]}"
# Without sysfs there is nothing but the entry point in low memory.
check_blade BIOS "$low_memory && grep -q _SM_ /tmp/low && umount /sys"
check_blade "UEFI, 32 bit" "$low_memory && ! grep -q _SM /tmp/low && grep -q _SM_ $kernels_table" \
    -bios /usr/share/ovmf/OVMF.fd -machine q35,smbios-entry-point-type=32
check_blade "UEFI, 64 bit" "$low_memory && ! grep -q _SM /tmp/low && grep -q _SM3_ $kernels_table" \
    -bios /usr/share/ovmf/OVMF.fd -machine q35,smbios-entry-point-type=64

hundred_looks='n=0; while [ $n -lt 100 ] && { tav_status --check >/tmp/look || [ $? = 1 ]; } && ! grep -E "pid file|alone|owner|agent runs:|run out" /tmp/look; do n=$((n + 1)); done; [ $n = 100 ] || cat /tmp/look; [ $n = 100 ]'

echo "# tav_status beside a daemon that has something to do"
bmc_start --machine nic --watchdog 240
vm_boot
add_interface eth0 192.0.2.1
guest 'ip link set eth0 address 02:00:00:00:00:12' # a port's: the daemon writes its record, too
start_daemon "status: a daemon to look at"
await "status: all is well" ' OK ' guest 'tav_status --check'
for hundred in $(seq "${1-10}"); do
    add_interface "more$hundred" "198.51.100.$hundred"
    # A warning is in order: the daemon needs two minutes to see that.
    guest_ends "status: a hundred looks, $hundred" 0 "$hundred_looks"
done
expect "status: the daemon has nothing to complain of" '^0$' guest \
    'grep -c "\.err " /var/log/messages; true'
expect "status: watchdog still running" 'running +yes' bmc_view
expect "status: watchdog not expired" 'expired uses +none' bmc_view
vm_off
bmc_stop

echo "# A day of a server, ten times as fast"
rm -r "$vm_folder/root"
vm_make_root build/release/src/sbin/tav_init "${programs[@]}"
vm_speed=10
bmc_options=(--watchdog 240 --speed $vm_speed)
bmc_start --machine nic "${bmc_options[@]}"
vm_boot
add_interface eth0 192.0.2.1
guest 'ip link set eth0 address 02:00:00:00:00:12'

guest_ends "once" 0 'tav_init -s'
await "once: address in the configuration space" 'conf_server_IPAddress1 +192\.0\.2\.1$' bmc_view
expect "once: address in the port's record" '^ +192\.0\.2\.1$' bmc_view
expect "once: the record is sound" 'checksums: header right, body right' bmc_view

locked=$(bmc_log_length)
guest 'flock /dev/ipmi0 sleep 1000 &'
guest_ends "record locked by another program: once" 0 'tav_init -s'
expect "record locked by another program: left alone" '^0$' writes_behind "$locked"
guest 'kill $(pidof sleep)'
guest_ends "record unlocked again: once" 0 'tav_init -s'
expect "record unlocked again: written" '^[1-9]' writes_behind "$locked"

guest_ends "record: once" 0 'tav_trace -o /tmp/record -s >/tmp/lines'
guest 'cat /tmp/record' >"$vm_folder/record"
expect "record: what the driver carried" 'Read FRU data: .* -> ok' guest 'cat /tmp/lines'
expect "record: replays outside" "Replayed as recorded, exchanges: $(wc -l <<<"$(guest 'cat /tmp/lines')")" \
    build/release/tools/tav_sim --root "$vm_folder/host" --replay "$vm_folder/record" -- -s

start_daemon "daemon: start"
guest_ends "daemon: number in the pid file" 0 'grep -qx tav_init /proc/$(cat /var/run/tavd.pid)/comm'
expect "daemon: a second one is refused" 'already running' guest 'tav_init'
await "daemon: watchdog armed" 'running +yes' bmc_view
expect "daemon: system log" 'local5\.info tav_daemon\[[0-9]+\]: starting' system_log
# An unchanged host is not pushed again: another interface makes the next inventory tell.
add_interface eth1 198.51.100.1
await "daemon: a new address arrives" 'conf_server_IPAddress2 +198\.51\.100\.1$' bmc_view

guest 'until rmmod ipmi_si 2>/dev/null; do sleep 1; done' # the daemon may be using it
add_interface eth2 198.51.100.2
add_interface eth3 198.51.100.3
await "driver gone: logged" 'local5\.err tav_daemon.*Error: Open failed: No such file' system_log
guest_ends "driver gone: once" 1 'tav_init -s'
back=$(bmc_log_length)
guest 'insmod /lib/modules/ipmi_si.ko'
await "driver back: what was missed arrives" 'conf_server_IPAddress4 +198\.51\.100\.3$' bmc_view
await "driver back: watchdog kept going" '^[1-9]' resets_behind "$back"

kill -STOP "$bmc"
guest_ends "BMC silent: once" 1 'tav_init -s'
expect "BMC silent: logged" 'user\.err TAVD.*Error: GetDeviceId does not yield response data' system_log
back=$(bmc_log_length)
kill -CONT "$bmc"
# The first may have been waiting in the meantime.
await "BMC speaks again: watchdog kept going" '^([2-9]|[1-9][0-9])' resets_behind "$back"

armed_at=$(bmc_seconds)
patience=120 await "watchdog: three periods later" - bmc_past $((armed_at + 3 * 240))
expect "watchdog: still running" 'running +yes' bmc_view
expect "watchdog: not expired" 'expired uses +none' bmc_view

bmc_stop
guest_ends "BMC gone: once" 1 'tav_init -s'
guest_ends "BMC gone: the daemon lives" 0 'test -d /proc/$(cat /var/run/tavd.pid)'
bmc_start --machine plain "${bmc_options[@]}"
add_interface eth4 198.51.100.4
await "another BMC: all addresses arrive" 'conf_server_IPAddress1 +192\.0\.2\.1$' bmc_view
await "another BMC: watchdog armed" 'running +yes' bmc_view

kill_daemon
await "killed: watchdog expires" 'expired uses +SMS/OS' bmc_view
start_daemon "terminate mode: a watchdog left behind"
await "terminate mode: armed before" 'running +yes' bmc_view
kill_daemon
guest_ends "terminate mode" 0 'tav_init -t'
# Its start alone would leave the use OS load.
expect "terminate mode: watchdog stopped" 'running +no' bmc_view
expect "terminate mode: as this agent's" 'use +SMS/OS' bmc_view

expect "foreground: the BMC takes the agent for connected" 'agent +connected' bmc_view
guest '(tav_init -n; echo $? >/tmp/status) &'
await "foreground: watchdog armed" 'running +yes' bmc_view
guest 'date -s "@$(($(date +%s) - 3600))" >/dev/null'
set_back=$(bmc_log_length)
await "foreground: goes on when the clock is set back" '^[1-9]' resets_behind "$set_back"
guest 'kill $(pidof tav_init)'
await "foreground: ends with 1" '^1$' guest 'cat /tmp/status'
expect "foreground: watchdog stopped" 'running +no' bmc_view
expect "foreground: the BMC knows that it ended" 'agent +not connected' bmc_view

bmc_stop
bmc_start --machine plain "${bmc_options[@]}" # which takes the agent for connected again
guest 'until tav_init -s; do sleep 1; done'
start_daemon "end of the daemon: start"
await "end of the daemon: watchdog armed before" 'running +yes' bmc_view
daemon_end=$(bmc_log_length)
guest 'kill $(cat /var/run/tavd.pid)'
await "end of the daemon: pid file gone" '' guest '! test -e /var/run/tavd.pid'
await "end of the daemon: process gone" '' guest '! pidof tav_init'
expect "end of the daemon: system log" 'local5.info tav_daemon.*Termination signal received' system_log
expect "end of the daemon: watchdog stopped" 'running +no' bmc_view
expect "end of the daemon: the BMC is told" 'Agent communication: disconnect' bmc_log_behind "$daemon_end"
vm_off
echo "# All as it should be, after $SECONDS s"
