#!/bin/bash
# Installs what is missing, builds with both compilers, runs every test and every checker.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

step() { printf '\n== %s\n' "$*"; }

# The thread sanitizer cannot live with as much address randomisation as newer kernels have.
build_and_test() { # PRESET [ctest arguments]
    local preset=$1
    shift
    step "$preset: build and test"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -- --quiet
    setarch -R ctest --preset "$preset" "$@"
}

install_packages "${build_packages[@]}" "${demo_packages[@]}" "${check_packages[@]}"

step "format"
git ls-files '*.h' '*.cpp' | xargs clang-format-14 --dry-run -Werror

build_and_test release
# The thousands of processes of the longest tests say nothing new under every sanitizer.
GTEST_FILTER='-StartStop.*:FaultLoop.misbehave*:FaultLoop.signal*' build_and_test asan
GTEST_FILTER='-StartStop.*:FaultLoop.*' build_and_test tsan

step "virtual machines: started, to run beside the next steps"
vm_log=$(mktemp /tmp/tav_vm_log.XXXXXX)
vm_test=
trap 'kill $vm_test 2>/dev/null || true; rm -f "$vm_log"' EXIT
if install_packages "${vm_packages[@]}"; then
    timeout --kill-after=10 600 tests/vm/run.sh >"$vm_log" 2>&1 &
    vm_test=$!
fi

step "clang: build and fuzz"
cmake --preset clang >/dev/null
cmake --build --preset clang -- --quiet
ctest --preset clang --tests-regex fuzz

step "clang-tidy"
git ls-files '*.cpp' | xargs -P "$(nproc)" -n 4 clang-tidy-14 -p build/clang --quiet 2>&1 |
    { grep -v 'warnings generated' || true; }

step "virtual machines: outcome"
if [[ -n $vm_test ]]; then
    vm_status=0
    wait "$vm_test" || vm_status=$?
    vm_test=
    cat "$vm_log"
    ((vm_status == 0))
else
    echo "************ SKIPPED: QEMU cannot be installed here ************"
fi

step "all checks passed"
