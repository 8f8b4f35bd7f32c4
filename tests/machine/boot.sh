#!/bin/sh
# SPDX-License-Identifier: MIT
# Boots a machine in namespaces of its own: systemd as the first process on an overlay of a root
# directory, with a /dev that holds what machine.py put there. It ends when the machine is off.
# usage: boot.sh ROOT STATE    STATE: what the machine changes, its console, its devices
set -eu
root=$1 state=$2
top=$state/root
mount --make-rprivate /
mkdir -p "$state/upper" "$state/scratch" "$top"
mount -t overlay -o "lowerdir=$root,upperdir=$state/upper,workdir=$state/scratch" overlay "$top"
mount -t proc proc "$top/proc"
# Without it systemd takes the machine for a container, knows no devices and starts no udev.
cat /proc/sys/kernel/random/uuid >"$state/boot_id"
mount --bind "$state/boot_id" "$top/proc/sys/kernel/random/boot_id"
mount -t sysfs ${MACHINE_SYS:+-o "$MACHINE_SYS"} sys "$top/sys"
mount -t cgroup2 cgroup "$top/sys/fs/cgroup"
mount -t tmpfs -o mode=755 run "$top/run"
# On another /dev than the kernel's own, systemd listens to udev only where this is there already.
mkdir "$top/run/udev"
: >"$top/run/udev/control"
mount -t tmpfs -o mode=755 dev "$top/dev"
cp -a "$state/dev/." "$top/dev/"
mkdir "$top/dev/pts" "$top/dev/shm"
mount -t devpts -o newinstance,ptmxmode=666 devpts "$top/dev/pts"
ln -s pts/ptmx "$top/dev/ptmx"
touch "$top/dev/console" "$state/console"
mount --bind "$state/console" "$top/dev/console"
if [ -d "$state/packages" ]; then
    mkdir -p "$top/packages"
    mount --bind "$state/packages" "$top/packages"
fi
cd "$top"
mkdir -p mnt/old
pivot_root . mnt/old
umount -l /mnt/old
rmdir /mnt/old
mount --make-rshared /
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=machine LANG=C.UTF-8 \
    /lib/systemd/systemd --log-level=info --log-target=journal --show-status=no \
    >>/dev/console 2>&1 </dev/null
