#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# Makes the Debian that the machine boots, once, in the cache directory; prints where it is.
set -eu
. "$(dirname "$0")/../target/common.sh"

packages=systemd,systemd-sysv,udev,dbus,kmod,mount,e2fsprogs,xfsprogs,procps,fuse3
packages=$packages,libjsoncpp25,libfuse3-3,libmount1,libblkid1,libsystemd0
root=$cache/machine-$(dpkg --print-architecture)
recipe=$(sha256sum <"$0" | cut -d ' ' -f 1)
if [ "$(cat "$root.stamp" 2>/dev/null)" != "$recipe" ]; then
    need_packages debootstrap debian-archive-keyring >&2
    uri=$(archive_uri)
    [ -n "$uri" ] || die "apt knows no archive of $suite main; run apt-get update, or add one"
    proxy=$(apt-config shell proxy Acquire::http::Proxy)
    eval "$proxy"
    [ -z "${proxy:-}" ] || export http_proxy="$proxy"
    mkdir -p "$cache"
    rm -rf "$root.new"
    say "machine: making its Debian" >&2
    tries=3
    until debootstrap --variant=minbase --include="$packages" "$suite" "$root.new" "$uri" \
        >"$root.log" 2>&1; do
        tries=$((tries - 1))
        [ "$tries" -gt 0 ] || {
            tail -n 20 "$root.log" >&2
            die "debootstrap failed"
        }
        rm -rf "$root.new"
        sleep 5
    done
    rm -rf "$root.new/var/cache/apt/archives" "$root.new/var/lib/apt/lists"
    mkdir -p "$root.new/var/cache/apt/archives/partial" "$root.new/var/lib/apt/lists/partial" \
        "$root.new/var/log/journal"
    # Nobody logs in, and nothing comes from a network.
    for unit in console-getty.service getty@tty1.service systemd-networkd-wait-online.service \
        apt-daily.timer apt-daily-upgrade.timer e2scrub_all.timer fstrim.timer; do
        ln -sf /dev/null "$root.new/etc/systemd/system/$unit"
    done
    printf 'machine\n' >"$root.new/etc/hostname"
    rm -rf "$root"
    mv "$root.new" "$root"
    printf '%s\n' "$recipe" >"$root.stamp"
fi
printf '%s\n' "$root"
