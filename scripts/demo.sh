#!/bin/bash
# Installs what is missing, builds, and shows the agent at work against the simulated BMC, in a
# network namespace of its own.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

say() { printf '\n\033[1m# %s\033[0m\n' "$*"; }

if [[ ${1-} != inside ]]; then
    install_packages "${build_packages[@]}" "${demo_packages[@]}"
    say "Building"
    cmake --preset release >/dev/null
    cmake --build --preset release --target tav_init tav_sim -- --quiet
    exec unshare --net scripts/demo.sh inside
fi

sim=(build/release/sim/tav_sim --root "$(mktemp -d /tmp/tav_demo.XXXXXX)")
trap 'rm -rf "${sim[2]}"' EXIT

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
"${sim[@]}" --speed 20 --watchdog 300 -- -n &
agent=$!
sleep 3

say "A second interface gets an address: ip addr add 198.51.100.20/24 dev eth1"
ip addr add 198.51.100.20/24 dev eth1
sleep 7

say "SIGTERM: the watchdog is stopped, the BMC is told that the agent goes"
kill -TERM "$agent"
status=0
wait "$agent" || status=$?
say "The agent ended with exit status $status, as it does when a signal ends it"
