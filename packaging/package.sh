#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# Makes the Debian packages for amd64 and armhf into build/package, asks lintian and mandoc about
# them, and tries the amd64 ones out: installed, started under the unit's restrictions, removed.
# usage: package.sh [build|try] [ARCHITECTURE...]    both, and for amd64 and armhf, unless named
set -eu
. "$(dirname "$0")/../tests/target/common.sh"
out=$tree/build/package
jobs=$(nproc)

make_packages() {
    need_packages debhelper dpkg-dev lintian mandoc scdoc g++ cmake ninja-build pkg-config \
        libjsoncpp-dev libfuse3-dev libmount-dev libblkid-dev libsystemd-dev libcli11-dev
    case " $architectures " in
    *' armhf '*)
        need_packages g++-arm-linux-gnueabihf
        "$tree/tests/target/sysroot.sh"
        ;;
    esac
    if command -v ccache >/dev/null; then
        export CMAKE_CXX_COMPILER_LAUNCHER=ccache
    fi
    rm -rf "$out"
    mkdir -p "$out"
    # One date for everything in the packages, so that the same tree gives the same packages.
    SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l "$tree/packaging/debian/changelog" -S Timestamp)
    export SOURCE_DATE_EPOCH
    for architecture in $architectures; do
        make_for "$architecture" || {
            tail -n 60 "$out/$architecture.log" >&2
            die "no packages for $architecture; all of the output is in $out/$architecture.log"
        }
        say "made the packages for $architecture"
    done
    check_packages
}

# make_for ARCHITECTURE: builds in a copy of the tree, as the packaging has its own directory there;
# always in the same place, so that ccache knows it again.
make_for() {
    work=$out/work
    source=$work/quorcachepinfiled
    mkdir -p "$source"
    (cd "$tree" && tar -cf - --exclude=./build --exclude=./.git .) | tar -C "$source" -xf -
    cp -a "$source/packaging/debian" "$source/debian"
    made=0
    (
        cd "$source"
        export QUOR_CACHE="$cache" DEB_BUILD_OPTIONS="nocheck noautodbgsym parallel=$jobs"
        # The cross build's dependencies are those of the sysroot, which -d takes on trust.
        dpkg-buildpackage -b -us -uc -d -a "$1"
    ) >"$out/$1.log" 2>&1 || made=1
    [ "$made" -ne 0 ] || cp "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo "$out/"
    rm -rf "$work"
    return "$made"
}

check_packages() {
    for page in "$tree"/docs/man/*.scd; do
        made=$out/$(basename "${page%.scd}")
        "$tree/packaging/man.sh" "$page" "$made"
        mandoc -T lint "$made" || die "mandoc has something to say about $page"
        rm "$made"
    done
    say "mandoc: nothing to say"
    # Run as root for want of another user; warnings fail as errors do.
    lintian --allow-root --fail-on error,warning --suppress-tags bad-distribution-in-changes-file \
        "$out"/*.changes || die "lintian has something to say"
    say "lintian: no error, no warning"
    for package in "$out"/*.deb; do
        printf '%8d KiB  %s\n' $(($(stat -c %s "$package") / 1024)) "$(basename "$package")"
    done
}

work=all
case ${1:-} in
build | try)
    work=$1
    shift
    ;;
esac
architectures=${*:-${ARCHITECTURES:-"$(dpkg --print-architecture) armhf"}}
for architecture in $architectures; do
    case $architecture in
    "$(dpkg --print-architecture)" | armhf) ;;
    *) die "usage: package.sh [build|try] [ARCHITECTURE...]" ;;
    esac
done
case $work in
build) make_packages ;;
try) "$tree/packaging/try.sh" ;;
all)
    make_packages
    case " $architectures " in
    *" $(dpkg --print-architecture) "*) "$tree/packaging/try.sh" ;;
    esac
    ;;
esac
