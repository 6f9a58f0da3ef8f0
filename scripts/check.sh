#!/bin/bash
# Installs what is missing, builds, runs every test and every checker. The tests run beside the next
# builds, which give way to them; what they printed comes at the end. Whatever else the machine does,
# the outcome is the same, only later: limits of time are there for what hangs.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

work=$(mktemp -d /tmp/tav_check.XXXXXX)
trap end_tests EXIT
trap 'exit 1' TERM INT
names=()
processes=()

end_tests() {
    local status=$?
    kill "${processes[@]}" 2>/dev/null || true
    wait
    rm -rf "$work"
    exit "$status"
}

step() { printf '\n== %s (%d s)\n' "$*" "$SECONDS"; }

build() { # PRESET [arguments of cmake --build]
    local preset=$1
    shift
    step "$preset: build"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" "$@" -- --quiet
}

# Starts a test that ends with this script, at the latest after an hour. Those with the lower numbers
# go before the others, and all before the builds, where the machine allows that.
start_test() { # NICENESS NAME COMMAND...
    local niceness=$1 name=$2
    shift 2
    step "$name: started"
    setpriv --pdeathsig TERM nice -n "$niceness" timeout --kill-after=10 3600 "$@" \
        >"$work/$name" 2>&1 &
    names+=("$name")
    processes+=($!)
}

await_tests() {
    local i failed=()
    for i in "${!names[@]}"; do
        wait "${processes[i]}" || failed+=("${names[i]} (status $?)")
        step "${names[i]}: outcome"
        cat "$work/${names[i]}"
    done
    processes=()
    if ((${#failed[@]})); then
        step "failed: ${failed[*]}"
        exit 1
    fi
}

# The thread sanitizer cannot live with as much address randomisation as newer kernels have.
start_suite() { # PRESET GTEST-FILTER
    start_test -5 "$1" env GTEST_FILTER="$2" setarch -R ctest --preset "$1"
}

install_packages "${build_packages[@]}" "${demo_packages[@]}" "${check_packages[@]}"
without=
if ! install_packages "${vm_packages[@]}"; then
    without=", but the virtual machines"
    echo "************ SKIPPED: QEMU cannot be installed, no virtual machine is run ************"
fi

unshare --net --mount --pid --uts --fork true # without namespaces most tests would be skipped

step "format, rooms and manuals"
git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
scripts/rooms.sh
scripts/manual.sh

build release
start_suite release '*'
build portable
[[ $without ]] || start_test -10 machines tests/vm/run.sh # whose clock is fast
cmake --preset clang >/dev/null
start_test 15 clang-tidy scripts/tidy.sh
build clang --target fuzz_targets
start_test 10 fuzz ctest --preset clang --tests-regex fuzz
# The thousands of processes of the longest tests say nothing new under every sanitizer.
build asan
start_suite asan '-StartStop.*:FaultLoop.misbehave*:FaultLoop.signal*'
build tsan
start_suite tsan '-StartStop.*:FaultLoop.*'

await_tests
step "all checks passed$without"
