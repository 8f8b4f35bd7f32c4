#!/bin/sh
# SPDX-License-Identifier: MIT
# shellcheck disable=SC1091,SC2154  # common.sh, and what it sets
# Tests the 32-bit ARM target: builds everything for it, runs the unit tests under user-mode
# emulation, then unit and system tests and the measurements inside a virtual machine with a real ARM
# kernel, and counts instructions. Exit status 0 when all of it passed.
set -eu
. "$(dirname "$0")/common.sh"
here=$tree/tests/target
# A boot takes seconds and the tests minutes; what takes longer hangs.
machine_seconds=${QUOR_TARGET_SECONDS:-1500}

need_packages cmake ninja-build pkg-config g++-arm-linux-gnueabihf qemu-user-static \
    qemu-system-arm e2fsprogs cpio python3
"$here/sysroot.sh"

if command -v ccache >/dev/null; then
    export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR="$tree" CCACHE_NOHASHDIR=1
fi
begin=$(date +%s)
mkdir -p "$build"
build_it() {
    cmake -S "$tree" --preset armhf -B "$build" && cmake --build "$build"
}
build_it >"$build/log" 2>&1 || {
    tail -n 60 "$build/log" >&2
    die "the build failed; all of its output is in $build/log"
}
say "built $build in $(($(date +%s) - begin)) s"

# filter PROGRAM: what of it is not run under user-mode emulation, as GoogleTest wants it.
filter() {
    awk -v program="$1" '
        BEGIN { printf "-" }
        $1 == "emulation" && $2 == program { printf "%s%s", (n++ ? ":" : ""), $3 }
    ' "$here/unit-left-out"
}

# emulated PROGRAM [ARGUMENT...]: in process and IPC namespaces of its own, as tests send signals to
# what the emulator tells them they are. Their regular expressions recurse once a character: hence the
# stack. The shell is process 1 and must outlive its child, so it does not become it.
emulated() {
    # shellcheck disable=SC2016  # for the inner shell
    timeout -k 10 600 unshare -i -p -f --mount-proc --kill-child setsid -w \
        sh -c '"$@"; exit $?' sh qemu-arm-static -s 67108864 -L "$sysroot" "$@"
}

say "unit tests under user-mode emulation"
passed=0
failed=0
for program in "$build"/bin/*_test; do
    name=$(basename "$program")
    if emulated "$program" --gtest_brief=1 --gtest_filter="$(filter "$name")" \
        >"$build/$name.log" 2>&1 </dev/null; then
        passed=$((passed + 1))
        printf 'passed   %-20s %s\n' "$name" \
            "$(sed -n 's/^\[==========\] \(.*\) ran\..*/\1/p' "$build/$name.log")"
    else
        failed=$((failed + 1))
        printf 'FAILED   %s\n' "$name"
        cat "$build/$name.log"
    fi
done
say "$passed passed, $failed failed"
[ "$failed" -eq 0 ] || exit 1

say "unit and system tests, and measurements, in a virtual machine"
begin=$(date +%s)
status=0
"$here/vm.sh" "$machine_seconds" \
    "python3 -B tests/target/guest_tests.py && python3 -B tests/target/measure.py" || status=$?
say "the virtual machine took $(($(date +%s) - begin)) s"
[ "$status" -eq 0 ] || exit "$status"
QUOR_BUILD=$build /usr/bin/python3 -B "$here/instructions.py" "$sysroot"
