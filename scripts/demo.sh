#!/bin/bash
# Installs what is missing, builds, and shows the agent at work against the simulated BMC, in a
# network namespace of its own. With --vm: in a virtual machine, through Linux' own IPMI driver.
set -Eeuo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

say() { printf '\n\033[1m# %s\033[0m\n' "$*"; }

build() { # PROGRAM...
    say "Building"
    cmake --preset demo >/dev/null
    cmake --build --preset demo --target "$@" -- --quiet
}

show_in_vm() {
    trap 'echo "failed: ${BASH_SOURCE[0]}, line $LINENO" >&2' ERR
    source sim/vm/machine.sh
    say "A machine boots: its kernel's driver finds the BMC and asks what it can do"
    vm_prepare build/demo/tools build/demo/src/sbin/tav_init build/demo/tools/tav_status
    bmc_start --machine kestrelbox --watchdog 300
    tail --follow --lines=+1 --pid="$bmc" "$bmc_log" &
    vm_boot -smbios type=1,family=KESTRELBOX
    guest 'ip link add eth0 address 02:00:00:00:00:02 type dummy && ip link set eth0 up'
    guest 'ip addr add 192.0.2.10/24 dev eth0; ls -l /dev/ipmi0'
    say "Once (-s): the OS status goes out as Send Message, over the IPMB"
    guest 'tav_init -s'
    say "As a daemon, which takes the watchdog"
    guest 'tav_init; while ! test -e /var/run/tavd.pid; do sleep 1; done; sleep 2'
    say "tav_status asks the BMC, too; what it finds stands at the end"
    local looked
    looked=$(guest 'tav_status')
    say "SIGTERM: the watchdog is stopped, the BMC is told that the agent goes"
    guest 'kill $(cat /var/run/tavd.pid); while pidof tav_init >/dev/null; do sleep 1; done'
    say "The machine's system log:"
    guest 'cat /var/log/messages'
    vm_off
    say "The BMC as it is left:"
    bmc_stop
    wait
    say "What tav_status showed while the daemon ran: all is right"
    printf '%s\n' "$looked"
}

case ${1-} in
--vm)
    install_packages "${build_packages[@]}" "${vm_packages[@]}"
    build tav_init tav_bmcd tav_status
    show_in_vm
    exit
    ;;
inside) ;;
*)
    install_packages "${build_packages[@]}" "${demo_packages[@]}"
    build tav_init tav_sim
    exec unshare --net scripts/demo.sh inside
    ;;
esac

sim=(build/demo/tools/tav_sim --root "$(mktemp -d /tmp/tav_demo.XXXXXX)")
agent=
trap '[[ -z $agent ]] || kill "$agent" || true; rm -rf "${sim[2]}"' EXIT
trap 'exit 1' TERM INT

add_interface() { # NAME: of whatever kind this kernel offers
    ip link add "$1" type dummy 2>/dev/null || ip link add "$1" type veth 2>/dev/null ||
        ip tuntap add "$1" mode tap
}

ip link set lo up
add_interface eth0
add_interface eth1
ip addr add 192.0.2.10/24 dev eth0

say "This host has one network address:"
ip -4 -brief addr show eth0

say "Once (-s): the agent reads the BMC's configuration space and puts the address into it"
"${sim[@]}" -- -s

say "The same on a blade: its management blade learns the address of LAN port 2"
ip link set eth0 address 02:00:00:00:00:02
"${sim[@]}" --machine kestrelbox -- -s | sed '/^Configuration space/,/^Management blade/{/^Management blade/!d}'

say "On a server whose adapter keeps port information: the record of NIC port 2 gets the address"
ip link set eth0 address 02:00:00:00:00:12
"${sim[@]}" --machine nic -- -s | sed '/^Configuration space/,/^Port information/{/^Port information/!d}' | cut -c1-150

say "In the foreground (-n), 20 times faster, with the soft watchdog of 300 s switched on"
setpriv --pdeathsig TERM "${sim[@]}" --speed 20 --watchdog 300 -- -n &
agent=$!
sleep 3

say "A second interface gets an address: ip addr add 198.51.100.20/24 dev eth1"
ip addr add 198.51.100.20/24 dev eth1
sleep 7

say "SIGTERM: the watchdog is stopped, the BMC is told that the agent goes"
kill -TERM "$agent"
status=0
wait "$agent" || status=$?
agent=
say "The agent ended with exit status $status, as it does when a signal ends it"

say "What tav_status shows of a server after one pass: all is right but that no agent has stayed"
"${sim[@]}" --quiet --machine nic --status -- -s
