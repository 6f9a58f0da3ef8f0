# Debian packages that the project's scripts use, and their installation. Sourced, not run.

# To build the agent, the simulator and the tools.
build_packages=(cmake g++ ninja-build libpcap0.8-dev linux-libc-dev nlohmann-json3-dev)
# To run the agent against the simulated BMC in a network namespace of its own.
demo_packages=(iproute2 util-linux)
# To build tests, benchmarks and fuzz targets, too.
test_packages=(clang libclang-rt-dev libgtest-dev libgmock-dev libbenchmark-dev)
# To check everything.
check_packages=("${test_packages[@]}" clang-format clang-tidy binutils strace mandoc prometheus
    prometheus-node-exporter tshark)
# To run it in virtual machines.
vm_packages=(qemu-system-x86 ovmf busybox-static cpio dpkg xz-utils util-linux)
# To boot a Debian with the packages there.
service_packages=(mmdebstrap e2fsprogs kmod coreutils iproute2 libpcap0.8)
# To measure it there beside other programs.
vm_bench_packages=(ipmitool freeipmi-bmc-watchdog strace time)

# To make packages of it (scripts/package.sh).
package_packages=(debhelper dpkg-dev fakeroot lintian pkg-config systemd udev rpm devscripts binutils
    busybox-static)

# To run its unit tests on other processors (tests/cross/run.sh) and in another Debian
# (tests/cross/debian13.sh), where what is needed comes from the lists above.
cross_packages=(g++-aarch64-linux-gnu g++-powerpc64le-linux-gnu g++-riscv64-linux-gnu googletest
    qemu-user-static dpkg-dev flex bison iproute2 util-linux)
debian13_packages=(mmdebstrap util-linux)

# To put faults into the sources and see whether the tests notice (tests/mutants.py).
mutant_packages=(python3)

# Installs those of the named packages that are missing.
install_packages() {
    local missing=()
    local package
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$package")
        fi
    done
    if ((${#missing[@]})); then
        echo "Installing: ${missing[*]}"
        apt-get update -qq
        DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
            "${missing[@]}" >/dev/null
    fi
}
