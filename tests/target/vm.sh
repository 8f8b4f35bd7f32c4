#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# usage: vm.sh SECONDS COMMAND
# Runs a shell command in a virtual machine with a real 32-bit ARM kernel, in a copy of the tree with
# what build/armhf holds. The console is standard output; the exit status is the command's, or 124
# when the machine was not done within SECONDS, or 125 when it ended without telling one.
set -eu
. "$(dirname "$0")/common.sh"
[ $# -eq 2 ] || die "usage: vm.sh SECONDS COMMAND"
limit=$1
command=$2

need_packages qemu-system-arm e2fsprogs cpio
[ -f "$kernel/vmlinuz" ] || die "no kernel; run ./run sysroot"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The root of the machine: the sysroot without what only a compiler reads. Made once.
root=$cache/root-armhf.ext4
if [ ! -f "$root" ]; then
    mkdir "$work/root"
    cp -a "$sysroot/." "$work/root/"
    rm -rf "$work/root/usr/include" "$work/root/usr/lib/gcc" "$work/root/var/cache"
    find "$work/root/usr/lib" -name '*.a' -delete
    mkdir -p "$work/root/proc" "$work/root/sys" "$work/root/dev" "$work/root/run" \
        "$work/root/tmp" "$work/root/mnt" "$work/root/srv"
    mkfs.ext4 -q -F -E nodiscard,lazy_itable_init=1 -d "$work/root" "$work/root.ext4" 512M >/dev/null
    mv "$work/root.ext4" "$root"
    rm -rf "$work/root"
fi

mkdir -p "$work/initramfs/bin" "$work/tree/build/armhf"
cp "$kernel/busybox" "$work/initramfs/bin/busybox"
cp -a "$kernel/modules" "$kernel/modules.order" "$work/initramfs/"
cp "$tree/tests/target/vm-init" "$work/initramfs/init"
chmod 755 "$work/initramfs/init"
(cd "$work/initramfs" && find . | cpio -o -H newc --quiet) | gzip -1 >"$work/initramfs.gz"

mkdir "$work/tree/client" "$work/tree/softcache"
for part in lab tests docs packaging client/completion softcache/completion; do
    cp -a "$tree/$part" "$work/tree/$part"
done
for part in bin lib; do
    mkdir "$work/tree/build/armhf/$part"
    for file in "$build/$part"/*; do
        case $file in
        *.a) ;;
        */lib/quorcachepinfiled) cp -a "$file" "$work/tree/build/armhf/$part/" ;; # a link
        *) arm-linux-gnueabihf-strip -o "$work/tree/build/armhf/$part/$(basename "$file")" "$file" ;;
        esac
    done
done
printf '%s\n' "$command" >"$work/tree/target-command"
printf '%s\n' "$tree" >"$work/tree/built-at"
chmod 755 "$work/tree/tests/target/vm-guest"
mkfs.ext4 -q -F -E nodiscard,lazy_itable_init=1 -d "$work/tree" "$work/tree.ext4" 256M >/dev/null

# highmem=off: a kernel without LPAE sees nothing above 4 GiB, where the devices would be.
# Two processors, each emulated by a thread. The disks' changes go to unlinked temporary files.
run_machine() {
    timeout --foreground -k 10 "$limit" qemu-system-arm \
        -M virt,highmem=off -cpu cortex-a15 -smp 2 -m 3072 -accel tcg,thread=multi \
        -nodefaults -no-user-config -nographic -no-reboot -serial stdio -monitor none -net none \
        -kernel "$kernel/vmlinuz" -initrd "$work/initramfs.gz" \
        -append "console=ttyAMA0 quiet loglevel=3 panic=-1 rdinit=/init" \
        -drive "file=$root,if=none,id=root,format=raw,snapshot=on" \
        -device virtio-blk-device,drive=root,serial=root \
        -drive "file=$work/tree.ext4,if=none,id=tree,format=raw,snapshot=on" \
        -device virtio-blk-device,drive=tree,serial=tree \
        </dev/null
}

mkfifo "$work/console"
sed -u -e 's/\r$//' -e "/^target-status /{w $work/status" -e 'd}' -e '/reboot: Power down$/d' <"$work/console" &
console=$!
ended=0
run_machine >"$work/console" || ended=$?
wait "$console"
if [ "$ended" -eq 124 ] || [ "$ended" -eq 137 ]; then
    say "vm.sh: not done within $limit seconds"
    exit 124
fi
status=$(sed -n 's/^target-status //p' "$work/status")
[ -n "$status" ] || {
    say "vm.sh: the virtual machine ended without an exit status"
    exit 125
}
exit "$status"
