# A virtual machine with an IPMI interface, behind which tav_bmcd is the BMC. Sourced, not run.
# What it starts dies with this shell, even if that is killed.

vm_patience=180 # seconds until the machine must have done what it was told

# Debian's kernel, kept under build/vm, and a root file system around the named programs.
vm_prepare() { # FOLDER-OF-TAV_BMCD PROGRAM...
    vm_bmcd=$1/tav_bmcd
    shift
    vm_make_folder
    vm_fetch_kernel
    vm_make_root "$@"
}

# For all that belongs to the machine, which goes when this shell ends.
vm_make_folder() {
    vm_folder=$(mktemp -d /tmp/tav_vm.XXXXXX)
    trap vm_clean_up EXIT
    trap 'exit 1' TERM # so that the trap for the end runs
}

# The package is unpacked, not installed.
vm_fetch_kernel() {
    local cache=$PWD/build/vm package unpacked
    package=$(vm_kernel_package) || package=
    vm_kernel=$cache/${package:-none}
    if [[ -d $vm_kernel ]]; then
        return
    fi
    apt-get update -qq
    package=$(vm_kernel_package)
    vm_kernel=$cache/$package
    # As root apt warns that it cannot become the user _apt here.
    (cd "$vm_folder" && apt-get download -qq "$package" 2>&1 | { grep -v '^W: ' || true; })
    mkdir -p "$cache"
    unpacked=$(mktemp -d "$cache/.new.XXXXXX")
    dpkg-deb --extract "$vm_folder/$package"_*.deb "$unpacked"
    rm "$vm_folder/$package"_*.deb
    mv -T "$unpacked" "$vm_kernel" # whole or not at all
}

vm_kernel_package() {
    apt-cache depends linux-image-amd64 | sed -n 's/^ *Depends: //p' | head -n 1
}

vm_make_root() { # PROGRAM...
    local root=$vm_folder/root program library module modules
    mkdir -p "$root"/{bin,dev,proc,sys,run,tmp,var/log,lib/modules,etc}
    ln -s ../run "$root/var/run"
    install sim/vm/init "$root/init"
    install sim/vm/commands "$root/commands"
    cp /bin/busybox "$root/bin/busybox"
    for program in "$@"; do
        cp "$program" "$root/bin/"
        for library in $(ldd "$program" | grep -o '/[^ ]*' || true); do
            install -D --mode=755 "$library" "$root$library"
        done
    done
    modules=$(echo "$vm_kernel"/lib/modules/*/kernel/drivers)
    for module in char/ipmi/ipmi_msghandler char/ipmi/ipmi_devintf char/ipmi/ipmi_si net/dummy; do
        cp "$modules/$module".ko* "$root/lib/modules/"
    done
    find "$root/lib/modules" -name '*.xz' -exec xz --decompress {} +
    vm_pack_initramfs "$root"
}

vm_pack_initramfs() { # ROOT
    (cd "$1" && find . | cpio --quiet --create --format=newc) >"$vm_folder/initramfs"
}

# A simulated BMC of its own; what it prints goes to $bmc_log.
bmc_start() { # tav_bmcd's options
    bmc_log=$(mktemp "$vm_folder/bmc.XXXXXX.log")
    setpriv --pdeathsig KILL "$vm_bmcd" --socket "$vm_folder/bmc" "$@" >"$bmc_log" 2>&1 &
    bmc=$!
    until [[ -S $vm_folder/bmc ]]; do
        kill -0 "$bmc" 2>/dev/null || vm_fail "The BMC does not start."
        sleep 0.05
    done
}

# The BMC as it is now. Prints nothing and fails when it does not answer.
bmc_view() {
    local before deadline=$((SECONDS + vm_patience))
    before=$(bmc_view_count)
    kill -USR1 "$bmc" || return
    until (($(bmc_view_count) > before)); do
        ((SECONDS < deadline)) || return
        sleep 0.05
    done
    # The last one, without what was asked since.
    sed -n '/^Configuration space/h; //!H; ${x; p}' "$bmc_log" | sed '/ s  #/d'
}

bmc_view_count() { grep -c '^Configuration space' "$bmc_log" || true; }

bmc_stop() {
    kill "$bmc"
    vm_await_end "$bmc"
    bmc=
}

# Boots and waits until the machine takes commands. With $vm_speed its clock goes that many times
# faster: the kernel is told that the processor's time stamp counter, which has $vm_tsc_khz, is that
# much slower. The timers that its drivers wait with keep the real pace.
vm_boot() { # QEMU's options
    local command_line="console=ttyS0 quiet panic=-1 ${vm_kernel_options-}"
    if [[ -n ${vm_speed-} ]]; then
        command_line+=" tsc=reliable clocksource=tsc highres=off nohz=off"
        command_line+=" tsc_early_khz=$((vm_tsc_khz / vm_speed))"
    fi
    rm -f "$vm_folder"/control.*
    mkfifo "$vm_folder/control.in" "$vm_folder/control.out"
    # Open at both ends, so that nothing here blocks or breaks when QEMU has ended.
    exec {to_guest}<>"$vm_folder/control.in" {from_guest}<>"$vm_folder/control.out"
    setpriv --pdeathsig KILL qemu-system-x86_64 -accel tcg -cpu max -m 512 -display none -no-reboot \
        -nodefaults -serial "file:$vm_folder/console.log" \
        -chardev "pipe,id=control,path=$vm_folder/control" -serial chardev:control \
        -chardev "socket,id=bmc,path=$vm_folder/bmc,reconnect=1" \
        -device ipmi-bmc-extern,id=bmc0,chardev=bmc -device isa-ipmi-kcs,bmc=bmc0,irq=5 \
        -kernel "$vm_kernel"/boot/vmlinuz-* -initrd "$vm_folder/initramfs" \
        -append "$command_line" "$@" >"$vm_folder/qemu.log" 2>&1 &
    vm=$!
    local line=
    until [[ $line == *"#READY" ]]; do # behind what the firmware wrote there
        vm_read_line "The machine does not start."
    done
}

# Sets $line.
vm_read_line() { # COMPLAINT
    local part deadline=$((SECONDS + vm_patience))
    line=
    until IFS= read -r -t 1 part <&"$from_guest"; do
        line+=$part
        kill -0 "$vm" 2>/dev/null || vm_fail "$1 QEMU has ended."
        ((SECONDS < deadline)) || vm_fail "$1"
    done
    line+=$part
}

# Runs a command line in the machine: its output, its exit status.
guest() {
    local line number=$EPOCHREALTIME command=$*
    printf '%s %s %s\n' "$number" "${#command}" "$command" >&"$to_guest"
    while true; do
        vm_read_line "The machine does not answer to: $command"
        if [[ $line == '#AGAIN' ]]; then
            printf '%s %s %s\n' "$number" "${#command}" "$command" >&"$to_guest"
            continue
        fi
        if [[ $line == *"#END $number "* ]]; then
            printf '%s' "${line%\#END *}" # output whose last line had no end
            return "${line##* }"
        fi
        printf '%s\n' "$line"
    done
}

vm_off() {
    printf '0 11 poweroff -f\n' >&"$to_guest"
    vm_await_off
}

vm_await_off() {
    vm_await_end "$vm"
    vm=
    exec {to_guest}>&- {from_guest}<&-
}

vm_await_end() { # PROCESS
    local deadline=$((SECONDS + vm_patience))
    while kill -0 "$1" 2>/dev/null; do
        ((SECONDS < deadline)) || vm_fail "Process $1 does not end."
        sleep 0.1
    done
    wait "$1" || vm_fail "Process $1 ends with status $?."
}

# Ends everything, from within subshells, too.
vm_fail() {
    echo "$*"
    tail -n 20 "$vm_folder"/*.log
    kill -TERM $$
    exit 1
} >&2

vm_clean_up() {
    local status=$? process
    for process in ${vm-} ${bmc-}; do
        kill -KILL "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    rm -rf "$vm_folder"
    exit "$status"
}
