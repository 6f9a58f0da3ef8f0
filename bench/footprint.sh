#!/bin/bash
# Whole-process figures of the release binary: size, libraries, system calls up to the first open of
# the device, memory at rest, memory over ten thousand cycles.
set -euo pipefail
cd "$(dirname "$0")/.."
if compgen -G '/dev/ipmi*' >/dev/null; then
    echo "this machine has an IPMI device: the agent would work on its BMC" >&2
    exit 1
fi
agent=build/release/src/sbin/tav_init
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

strip -o "$work/stripped" $agent
echo "stripped size:                     $(stat -c %s "$work/stripped") bytes"
echo "shared libraries besides the loader: $(ldd $agent | grep -c '=> /')"

strace -o "$work/calls" $agent -t
echo "system calls to the first open:    $(grep -n -m1 /dev/ipmi0 "$work/calls" | cut -d: -f1)"
run_time() { # microseconds that 500 runs of a program took, each
    local begin
    begin=$(date +%s%N)
    for _ in $(seq 500); do "$@"; done
    echo $((($(date +%s%N) - begin) / 500000))
}
echo "a whole run without a device:      $(run_time $agent -t) us; of /bin/true: $(run_time /bin/true) us"

resident() { awk '/^VmRSS/ { print $2 }' "/proc/$1/status"; }

LD_PRELOAD=$PWD/build/release/bench/libanswering_device.so $agent -n &
pid=$!
sleep 1
echo "resident at rest:                  $(resident $pid) KiB"
echo "of it anonymous:                   $(awk '/^RssAnon/ { print $2 }' /proc/$pid/status) KiB"
strace -c -f -p $pid -o "$work/rest" 2>/dev/null &
tracer=$!
sleep 10
kill -INT $tracer
wait $tracer || true
echo "system calls in 10 s at rest:      $(awk '$NF == "total" { print $(NF - 1) }' "$work/rest") (of which strace causes 2: it interrupts each thread)"
kill $pid
wait $pid || true

# The simulator's clock runs fast enough for hundreds of cycles a second; seven exchanges are a cycle.
build/release/tools/tav_sim --root "$work" --quiet --speed 20000 -- -n >"$work/view" &
pid=$!
sleep 2
early=$(resident $pid)
sleep 30
late=$(resident $pid)
kill $pid
wait $pid || true
echo "with the simulator, after 2 s and 32 s: $early and $late KiB; $(grep ^Device "$work/view")"
