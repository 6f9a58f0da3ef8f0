# A virtual machine with an IPMI interface, behind which tav_bmcd is the BMC. Sourced, not run.
# What it starts dies with this shell, even if that is killed.

# Debian's kernel, kept under build/vm, and a root file system around the named programs.
vm_prepare() { # PROGRAM...
    vm_folder=$(mktemp -d /tmp/tav_vm.XXXXXX)
    trap vm_clean_up EXIT
    vm_fetch_kernel
    vm_make_root "$@"
}

# The package is unpacked, not installed.
vm_fetch_kernel() {
    local cache=$PWD/build/vm package
    package=$(vm_kernel_package)
    if [[ -z $package ]]; then
        apt-get update -qq
        package=$(vm_kernel_package)
    fi
    vm_kernel=$cache/$package
    if [[ ! -d $vm_kernel ]]; then
        rm -rf "$cache"
        mkdir -p "$cache"
        # As root it warns that it cannot become the user _apt here.
        (cd "$cache" && apt-get download -qq "$package" 2>&1 | { grep -v '^W: ' || true; })
        dpkg-deb --extract "$cache/$package"_*.deb "$vm_kernel.part"
        rm "$cache"/*.deb
        mv "$vm_kernel.part" "$vm_kernel"
    fi
}

vm_kernel_package() {
    apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: //p' | head -n 1
}

vm_make_root() { # PROGRAM...
    local root=$vm_folder/root program library module modules
    mkdir -p "$root"/{bin,dev,proc,sys,run,tmp,var/log,lib/modules,etc}
    ln -s ../run "$root/var/run"
    install sim/vm/init "$root/init"
    cp /bin/busybox "$root/bin/busybox"
    for program in "$@"; do
        cp "$program" "$root/bin/"
        for library in $(ldd "$program" | grep -o '/[^ ]*'); do
            install -D --mode=755 "$library" "$root$library"
        done
    done
    modules=$(echo "$vm_kernel"/lib/modules/*/kernel/drivers)
    for module in char/ipmi/ipmi_msghandler char/ipmi/ipmi_devintf char/ipmi/ipmi_si net/dummy; do
        cp "$modules/$module".ko* "$root/lib/modules/"
    done
    find "$root/lib/modules" -name '*.xz' -exec xz --decompress {} +
    (cd "$root" && find . | cpio --quiet --create --format=newc) >"$vm_folder/initramfs"
}

# Simulated BMC: what it prints goes to $vm_folder/bmc.log.
bmc_start() { # tav_bmcd's options
    setpriv --pdeathsig KILL build/release/sim/tav_bmcd --socket "$vm_folder/bmc" "$@" \
        >>"$vm_folder/bmc.log" 2>&1 &
    bmc=$!
    until [[ -S $vm_folder/bmc ]]; do
        kill -0 "$bmc"
        sleep 0.05
    done
}

bmc_stop() {
    kill "$bmc"
    wait "$bmc"
    bmc=
}

# Starts the machine and waits until it takes commands. $vm_speed times faster than real time, if
# that is set, its clock goes: its kernel is told that the processor's time stamp counter is slower
# than it is. The timers that its drivers wait with go at the real pace.
vm_boot() { # QEMU's options
    local command_line="console=ttyS0 quiet panic=-1 ipmi_si.type=kcs"
    if [[ -n ${vm_speed-} ]]; then
        command_line+=" tsc=reliable clocksource=tsc highres=off nohz=off"
        command_line+=" tsc_early_khz=$((vm_tsc_khz / vm_speed))"
    fi
    rm -f "$vm_folder"/control.*
    mkfifo "$vm_folder/control.in" "$vm_folder/control.out"
    setpriv --pdeathsig KILL qemu-system-x86_64 -accel tcg -cpu max -m 512 -display none -no-reboot \
        -nodefaults -serial "file:$vm_folder/console.log" \
        -chardev "pipe,id=control,path=$vm_folder/control" -serial chardev:control \
        -chardev "socket,id=bmc,path=$vm_folder/bmc,reconnect=1" \
        -device ipmi-bmc-extern,id=bmc0,chardev=bmc -device isa-ipmi-kcs,bmc=bmc0,irq=5 \
        -kernel "$vm_kernel"/boot/vmlinuz-* -initrd "$vm_folder/initramfs" \
        -append "$command_line" "$@" >"$vm_folder/qemu.log" 2>&1 &
    vm=$!
    exec {to_guest}>"$vm_folder/control.in" {from_guest}<"$vm_folder/control.out"
    local line
    until [[ ${line-} == *"#READY" ]]; do # behind what the firmware wrote there
        IFS= read -r -t 60 line <&"$from_guest" || vm_fail "The machine does not start."
    done
}

# Runs a command line in the machine: its output, its exit status.
guest() {
    local line
    printf '%s\n' "$*" >&"$to_guest"
    while IFS= read -r -t 60 line <&"$from_guest"; do
        if [[ $line == *"#END "* ]]; then
            printf '%s' "${line%\#END *}" # output whose last line had no end
            return "${line##*\#END }"
        fi
        printf '%s\n' "$line"
    done
    vm_fail "The machine does not answer to: $*"
}

vm_off() {
    printf 'poweroff -f\n' >&"$to_guest"
    wait "$vm"
    vm=
    exec {to_guest}>&- {from_guest}<&-
}

vm_fail() {
    echo "$*"
    tail -n 20 "$vm_folder"/{qemu,console,bmc}.log
    exit 1
} >&2

vm_clean_up() {
    local process
    for process in ${vm-} ${bmc-}; do
        kill -KILL "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    rm -rf "$vm_folder"
}
