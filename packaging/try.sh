#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# Tries out the packages of build/package on a machine of their own: namespaces with this machine's
# files under an overlay, and systemd as the first process. try-inside.sh is what happens there.
# Nothing of it reaches this machine's files, queues or services.
# TRY_DROPIN, lines for the unit's [Service] section, are tried on top of what the unit says.
set -eu
. "$(dirname "$0")/../tests/target/common.sh"

if [ "${1:-}" != inside ]; then
    [ "$(id -u)" -eq 0 ] || die "needs root"
    need_packages systemd util-linux e2fsprogs kmod
    work=$(mktemp -d)
    status=0
    timeout -k 10 300 unshare -m -i -p -u -C --fork --kill-child "$0" inside "$work" || status=$?
    # The overlay's scratch directory is all that is left.
    cat "$work/out" 2>/dev/null || true
    rm -rf "$work"
    [ "$status" -ne 124 ] || say "try.sh: not done in time"
    exit "$status"
fi

work=$2
mount --make-rprivate /
mkdir "$work/overlay"
mount -t tmpfs overlay "$work/overlay"
mkdir "$work/overlay/upper" "$work/overlay/scratch" "$work/overlay/root"
root=$work/overlay/root
mount -t overlay -o "lowerdir=/,upperdir=$work/overlay/upper,workdir=$work/overlay/scratch" \
    overlay "$root"
mount -t proc proc "$root/proc"
mount -t sysfs -o ro sys "$root/sys"
mount -t cgroup2 cgroup "$root/sys/fs/cgroup"
mount -t tmpfs -o mode=755 run "$root/run"
mount -t tmpfs -o mode=1777 tmp "$root/tmp"
mount -t tmpfs mnt "$root/mnt"
mount --rbind /dev "$root/dev"
mkdir -p "$root/mnt/try" "$root/mnt/packages"
mount --bind "$work" "$root/mnt/try"
mount --bind "${TRY_PACKAGES:-$tree/build/package}" "$root/mnt/packages"
cp "$tree/packaging/try-inside.sh" "$root/mnt/try-inside.sh"

# Of this machine's services, none but the journal; and packages may start theirs.
rm -rf "$root"/etc/systemd/system/*.wants "$root"/lib/systemd/system/*.wants \
    "$root/usr/sbin/policy-rc.d"
mkdir "$root/lib/systemd/system/sysinit.target.wants"
ln -s ../systemd-journald.service "$root/lib/systemd/system/sysinit.target.wants/"
if [ -n "${TRY_DROPIN:-}" ]; then
    mkdir -p "$root/etc/systemd/system/quorcachepinfiled.service.d"
    printf '[Service]\n%s\n' "$TRY_DROPIN" \
        >"$root/etc/systemd/system/quorcachepinfiled.service.d/try.conf"
fi
cat >"$root/etc/systemd/system/try.service" <<'UNIT'
[Unit]
Requires=basic.target
After=basic.target
[Service]
Type=oneshot
StandardOutput=append:/mnt/try/out
StandardError=inherit
ExecStart=/bin/sh -c '/mnt/try-inside.sh; systemctl exit $?'
UNIT
sed -i 's/\$?/$$?/' "$root/etc/systemd/system/try.service"
cd "$root"
mkdir -p mnt/old
pivot_root . mnt/old
umount -l /mnt/old
# What is mounted later is seen by the services, as on a machine that systemd has booted.
mount --make-rshared /
exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin container=try LANG=C.UTF-8 \
    /lib/systemd/systemd --unit=try.service --log-level=err --log-target=console
