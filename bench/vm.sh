#!/bin/bash
# The agent beside other programs in a virtual machine with Linux' own IPMI driver: one exchange
# beside ipmitool, ten minutes of the daemon beside FreeIPMI's bmc-watchdog. Takes 22 minutes.
set -Eeuo pipefail
trap 'echo "failed: ${BASH_SOURCE[0]}, line $LINENO" >&2' ERR
cd "$(dirname "$0")/.."
source scripts/packages.sh
source sim/vm/machine.sh
if compgen -G '/dev/ipmi*' >/dev/null; then
    echo "this machine has an IPMI device: bmc-watchdog's package would take its watchdog" >&2
    exit 1
fi
span=${1:-600} # seconds for each daemon

install_packages "${build_packages[@]}" "${check_packages[@]}" "${vm_packages[@]}" "${vm_bench_packages[@]}"
cmake --preset release >/dev/null
cmake --build --preset release -- --quiet
vm_prepare build/release/tools build/release/src/sbin/tav_init build/release/bench/one_exchange \
    /usr/bin/{ipmitool,strace,time} /usr/sbin/bmc-watchdog
bmc_start --watchdog 300
vm_boot
guest 'ip link add eth0 type dummy && ip link set eth0 up && ip addr add 192.0.2.1/24 dev eth0'

one_run() { # COMMAND
    local calls begin end runs=100 memory
    guest "strace -f -o /tmp/calls $1" >/dev/null
    calls=$(guest 'grep -vc -e "+++" -e "---" /tmp/calls')
    memory=$(guest "/bin/time -f %M $1 2>&1 >/dev/null" | tail -n 1)
    begin=$(guest 'cut -d" " -f1 /proc/uptime')
    guest "for i in \$(seq $runs); do $1; done" >/dev/null
    end=$(guest 'cut -d" " -f1 /proc/uptime')
    awk -v what="$1" -v calls="$calls" -v begin="$begin" -v end="$end" -v runs=$runs -v memory="$memory" \
        'BEGIN { printf "%-28s %5d system calls, %.1f ms, %d KiB at the most\n",
                 what, calls, (end - begin) * 1000 / runs, memory }'
}

processor_time() { guest "cut -d' ' -f1 /proc/$1/schedstat"; } # PID: in nanoseconds

while_it_runs() { # NAME
    local pid before after memory
    pid=$(guest "until pidof $1; do sleep 1; done")
    before=$(processor_time "$pid")
    sleep "$span" &
    wait $! # a signal ends this, but not a sleep in the foreground
    after=$(processor_time "$pid")
    memory=$(guest "awk '/^Rss/ { print \$2 }' /proc/$pid/smaps_rollup")
    printf '%-28s %5s KiB resident, %s ms of processor time in %s s\n' "$1" \
        "$memory" "$(((after - before) / 1000000))" "$span"
    guest "kill $pid; while test -d /proc/$pid; do sleep 1; done"
}

echo "One Get Device ID:"
one_run 'ipmitool raw 6 1'
one_run one_exchange
echo "Keeping the watchdog timer, 300 s:"
guest 'tav_init'
while_it_runs tav_init
guest 'mkdir -p /var/lib/freeipmi /var/log/freeipmi && bmc-watchdog -D openipmi -d -u 4 -p 0 -a 0 -i 300 -e 60'
while_it_runs bmc-watchdog
vm_off
bmc_stop
