# SPDX-License-Identifier: MIT
# shellcheck shell=sh
# Sourced by the scripts of the 32-bit ARM target: where things are, how they speak.

# shellcheck disable=SC2034  # used by whoever sources this
{
tree=$(cd "$(dirname "$0")" && while [ ! -f CMakePresets.json ]; do cd ..; done && pwd)
suite=bookworm
triplet=arm-linux-gnueabihf
# Everything that can be made again: outside the tree, so that a clean clone finds it.
cache=${QUOR_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/quorcachepinfiled}
# cmake/armhf.cmake derives the same place.
sysroot=$cache/sysroot-armhf
kernel=$cache/kernel-armhf
build=${QUOR_TARGET_BUILD:-$tree/build/armhf}
}

say() {
    printf '%s\n' "$*"
}

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# need_packages PACKAGE...: installs those that are missing, and only asks apt when one is.
need_packages() {
    missing=
    for package in "$@"; do
        state=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) || state=
        [ "$state" = installed ] || missing="$missing $package"
    done
    [ -n "$missing" ] || return 0
    [ "$(id -u)" -eq 0 ] || die "missing packages:$missing (run as root, or install them)"
    say "installing$missing"
    apt-get -q -o DPkg::Lock::Timeout=600 update >/dev/null ||
        say "apt-get update failed; trying with the package lists at hand"
    # shellcheck disable=SC2086  # a list of words
    DEBIAN_FRONTEND=noninteractive apt-get -q -y -o DPkg::Lock::Timeout=600 \
        install --no-install-recommends $missing >/dev/null || die "apt-get could not install$missing"
}

# The archive this machine's own apt uses for the suite's main part.
archive_uri() {
    # shellcheck disable=SC2016  # apt's own variables
    apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT)' 'Created-By: Packages' |
        awk -v suite="$suite" '$2 == suite && $3 == "main" { print $1; exit }'
}
