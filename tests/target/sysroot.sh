#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# Makes the armhf sysroot: what the cross compiler links against, what the unit tests load under
# user-mode emulation, and what the virtual machine has as its root. No program of it is run here,
# so it is unpacked and never configured. Beside it, the Debian kernel for the virtual machine.
set -eu
. "$(dirname "$0")/common.sh"

# Headers and libraries to build with, then what the system tests use inside the virtual machine.
packages=libc6-dev,libjsoncpp-dev,libmount-dev,libblkid-dev,zlib1g-dev,libfuse3-dev,libsystemd-dev
packages=$packages,libcli11-dev
packages=$packages,libgtest-dev,libgmock-dev
packages=$packages,python3,python3-pytest,e2fsprogs,xfsprogs,btrfs-progs,fuse3,mount,kmod,procps
packages=$packages,strace,busybox-static,linux-image-armmp
modules="virtio_mmio virtio_blk ext4 crc32c_generic fuse loop xfs btrfs overlay"

stamp=$cache/sysroot-armhf.stamp
recipe=$(cat "$0" "$(dirname "$0")/common.sh" | sha256sum | cut -d ' ' -f 1)
if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$recipe" ]; then
    exit 0
fi

need_packages debootstrap debian-archive-keyring kmod cpio
uri=$(archive_uri)
[ -n "$uri" ] || die "apt knows no archive of $suite main; run apt-get update, or add one"
proxy=$(apt-config shell proxy Acquire::http::Proxy)
eval "$proxy"
[ -z "${proxy:-}" ] || export http_proxy="$proxy"

mkdir -p "$cache"
work=$(mktemp -d "$cache/sysroot-new.XXXXXX")
trap 'rm -rf "$work"' EXIT
chmod 755 "$work"
new=$work/sysroot
archives=$new/var/cache/apt/archives

say "sysroot: fetching the armhf packages"
debootstrap --arch=armhf --variant=minbase --foreign --include="$packages" \
    "$suite" "$new" "$uri" >"$work/log" 2>&1 || {
    tail -n 20 "$work/log" >&2
    die "debootstrap failed"
}

# fetched NAME: the one package file of that name.
fetched() {
    for file in "$archives/$1"_*.deb; do
        [ -f "$file" ] && printf '%s\n' "$file" && return
    done
    die "no package $1 among those fetched"
}

unpack() {
    dpkg-deb --fsys-tarfile "$1" | tar -C "$new" -xf - --keep-directory-symlink \
        --exclude='./usr/share/doc/*' --exclude='./usr/share/man/*' \
        --exclude='./usr/share/locale/*' --exclude='./usr/share/info/*'
}

# One entry in a package database of the sysroot's own, so that dpkg-shlibdeps can tell which
# package a library is of. Its file names carry the sysroot's path, as it is asked for them.
record() {
    name=$(dpkg-deb -f "$1" Package)
    dpkg-deb -e "$1" "$work/control"
    for kind in symbols shlibs; do
        [ ! -f "$work/control/$kind" ] || cp "$work/control/$kind" "$db/info/$name:armhf.$kind"
    done
    rm -rf "$work/control"
    dpkg-deb --fsys-tarfile "$1" | tar -tf - | sed -n "s|^\./\(.*[^/]\)\$|$sysroot/\1|p" \
        >"$db/info/$name:armhf.list"
    {
        dpkg-deb -f "$1" Package Version Architecture Multi-Arch Maintainer Description |
            sed '/^ /d'
        printf 'Status: install ok installed\n\n'
    } >>"$db/status"
}

say "sysroot: unpacking"
db=$work/shlibdb
mkdir -p "$db/info" "$db/updates"
printf '1\n' >"$db/info/format"
: >"$db/status"
for file in "$archives"/*.deb; do
    case $file in
    */linux-image-* | */linux-base_* | */initramfs-tools* | */klibc-utils_*) continue ;;
    esac
    unpack "$file"
    case $file in
    */lib*_armhf.deb) record "$file" ;;
    esac
done

# Links to absolute paths would lead out of the sysroot.
find "$new/usr" "$new/etc" -type l -lname '/*' | while read -r link; do
    ln -sfnr "$new$(readlink "$link")" "$link"
done
cp "$new/usr/share/base-passwd/passwd.master" "$new/etc/passwd"
cp "$new/usr/share/base-passwd/group.master" "$new/etc/group"
ln -sfn mawk "$new/usr/bin/awk"
rm -rf "$new/usr/share/icu" "$new"/usr/lib/*/libicu* "$new/usr/share/zoneinfo"
# The same Python as this machine's writes the same compiled files; emulated, it takes minutes.
if [ -x /usr/bin/python3.11 ]; then
    /usr/bin/python3.11 -m compileall -q -s "$new" "$new/usr/lib/python3.11" \
        "$new/usr/lib/python3/dist-packages" >/dev/null 2>&1 || true
fi

say "sysroot: the kernel's image and the modules of the virtual machine"
image=
for file in "$archives"/linux-image-[0-9]*-armmp_*.deb; do
    image=$file
done
[ -f "$image" ] || die "no kernel package among those fetched"
mkdir -p "$work/linux" "$work/kernel/modules"
dpkg-deb -x "$image" "$work/linux"
release=$(ls "$work/linux/lib/modules")
depmod -b "$work/linux" "$release"
# In the order to load them in, less the one for instructions that the processor does not have.
for module in $modules; do
    modprobe -d "$work/linux" -S "$release" --show-depends "$module" | sed -n 's/^insmod //p'
done | awk '!/crc32-arm-ce/ && !seen[$1]++ { print $1 }' >"$work/modules.paths"
while read -r path; do
    cp "$path" "$work/kernel/modules/"
    basename "$path"
done <"$work/modules.paths" >"$work/kernel/modules.order"
cp "$work/linux/boot/vmlinuz-$release" "$work/kernel/vmlinuz"
printf '%s\n' "$release" >"$work/kernel/release"
cp "$new/bin/busybox" "$work/kernel/busybox"

rm -rf "$archives" "$new/debootstrap" "${new:?}/proc" "${new:?}/sys" "${new:?}/dev" \
    "$new/var/lib/apt" "${new:?}/boot"
rm -rf "$sysroot" "$kernel" "$cache/shlibdb-armhf" "$cache"/root-armhf*
mv "$new" "$sysroot"
mv "$work/kernel" "$kernel"
mv "$db" "$cache/shlibdb-armhf"
printf '%s\n' "$recipe" >"$stamp"
say "sysroot: $sysroot ($(du -sh "$sysroot" | cut -f 1)), kernel $release"
