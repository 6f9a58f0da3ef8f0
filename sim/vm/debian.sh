# A virtual machine with a Debian on its disk, whose process 1 is systemd. Sourced behind machine.sh,
# not run.

vm_suite=bookworm
# All that is in it: what minimal systems have, and the libraries of the packages.
vm_system=(systemd-sysv udev kmod iproute2 init-system-helpers libstdc++6 libpcap0.8)
# Of no use in it; some would fail.
vm_masked=(getty.target systemd-logind.service systemd-timesyncd.service e2scrub_reap.service
    e2scrub_all.timer apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer fstrim.timer
    systemd-random-seed.service systemd-update-utmp.service)

# Behind vm_make_folder and vm_fetch_kernel: a disk on which the named files lie in /root.
vm_prepare_debian() { # FILE...
    vm_version=$(basename "$vm_kernel"/lib/modules/*)
    if [[ ! -e $vm_kernel/lib/modules/$vm_version/modules.dep ]]; then
        depmod --basedir "$vm_kernel" "$vm_version"
    fi
    vm_fetch_system
    vm_make_disk "$@"
    vm_make_disk_initramfs
}

# The system as an archive, kept under build/vm.
vm_fetch_system() {
    local made
    vm_system_archive=build/vm/$vm_suite-$(md5sum <<<"${vm_system[*]}" | cut -c 1-8).tar
    if [[ -e $vm_system_archive ]]; then
        return
    fi
    made=$(mktemp "$PWD/build/vm/.new.XXXXXX")
    mmdebstrap --quiet --variant=essential --format=tar --include="${vm_system[*]}" "$vm_suite" - >"$made" ||
        { rm "$made"; return 1; }
    mv "$made" "$vm_system_archive" # whole or not at all
}

# Copies the named modules, and those that they need, to a folder that has the layout of /. Prints
# their paths below that, in the order in which they can be loaded.
vm_copy_modules() { # FOLDER MODULE...
    local folder=$1 file
    shift
    modprobe --dirname "$vm_kernel" --set-version "$vm_version" --show-depends --all "$@" |
        sed -n "s|^insmod $vm_kernel/\([^ ]*\).*|\1|p" | awk '!seen[$0]++' |
        while read -r file; do
            install -D --mode=644 "$vm_kernel/$file" "$folder/$file"
            case $file in *.xz) xz --decompress "$folder/$file" ;; esac
            echo "${file%.xz}"
        done
}

vm_make_disk() { # FILE...
    local root=$vm_folder/disk_root unit
    mkdir "$root"
    tar -xf "$vm_system_archive" -C "$root"
    vm_copy_modules "$root" ipmi_si ipmi_devintf ipmi_watchdog >/dev/null
    cp "$vm_kernel/lib/modules/$vm_version"/modules.{order,builtin,builtin.modinfo} \
        "$root/lib/modules/$vm_version/"
    depmod --basedir "$root" "$vm_version"
    cp "$@" "$root/root/"
    install sim/vm/commands "$root/usr/local/sbin/"
    # Not stopped at shutdown, so that every command gets its answer.
    cat >"$root/etc/systemd/system/commands.service" <<'UNIT'
[Unit]
DefaultDependencies=no
After=sysinit.target
[Service]
ExecStart=/usr/local/sbin/commands
UNIT
    mkdir -p "$root/etc/systemd/system/multi-user.target.wants"
    ln -s ../commands.service "$root/etc/systemd/system/multi-user.target.wants/"
    for unit in "${vm_masked[@]}"; do
        ln -sf /dev/null "$root/etc/systemd/system/$unit"
    done
    echo host >"$root/etc/hostname"
    vm_disk=$vm_folder/disk
    truncate --size=1G "$vm_disk"
    mke2fs -q -t ext4 -O ^has_journal -d "$root" "$vm_disk"
    rm -rf "$root"
}

vm_make_disk_initramfs() {
    local root=$vm_folder/root
    mkdir -p "$root"/{bin,dev,root}
    install sim/vm/disk-init "$root/init"
    cp /bin/busybox "$root/bin/busybox"
    vm_copy_modules "$root" virtio_pci virtio_blk crc32c_generic ext4 dummy >"$root/modules"
    vm_pack_initramfs "$root"
}
