#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# Boots machines with the packages of build/package installed, and reboots, breaks and upgrades them.
# usage: test-machine.sh [ARGUMENT...]    of pytest, such as -k upgrade
set -eu
. "$(dirname "$0")/../target/common.sh"

[ "$(id -u)" -eq 0 ] || die "needs root"
need_packages python3 python3-pytest systemd e2fsprogs util-linux
machine_root=$("$tree/tests/machine/root.sh")
packages=${MACHINE_PACKAGES:-}
if [ -z "$packages" ]; then
    packages=$tree/build/machine-packages
    architecture=$(dpkg --print-architecture)
    made=$(find "$tree/build/package" -name "quorsoftcache_*_$architecture.deb" 2>/dev/null | head -n 1)
    # shellcheck disable=SC2086  # none or one
    if [ -z "$made" ] || [ -n "$(find "$tree/client" "$tree/daemon" "$tree/util" "$tree/platform" \
        "$tree/softcache" "$tree/packaging" "$tree/docs/man" -newer "$made" -type f | head -n 1)" ]; then
        "$tree/packaging/package.sh" build "$architecture"
    fi
    rm -rf "$packages"
    mkdir -p "$packages"
    cp "$tree"/build/package/*_"$architecture".deb "$packages"
fi
cd "$tree"
MACHINE_ROOT=$machine_root MACHINE_PACKAGES=$packages exec timeout -k 30 900 \
    /usr/bin/python3 -B -m pytest -q -p no:cacheprovider -o python_files='story_*.py' \
    --rootdir "$tree/tests/machine" "$tree/tests/machine" "$@"
