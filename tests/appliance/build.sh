#!/bin/sh
# SPDX-License-Identifier: MIT
# Builds the service against an appliance's libraries found in a sysroot, here libraries that hold
# nothing but the symbols: it must configure, build no stand-in, name the four libraries and start.
set -eu
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() {
    echo "appliance: $*" >&2
    exit 1
}

mkdir -p "$work/sysroot/usr/lib"
for name in core storagecore flashcache dataverifier; do
    c++ -std=c++17 -shared -fPIC -I"$source" -DLIB_"$(echo $name | tr '[:lower:]' '[:upper:]')" \
        -Wl,-soname,libquor$name.so -o "$work/sysroot/usr/lib/libquor$name.so" \
        "$source/tests/appliance/symbols.cpp"
done

cmake -S "$source" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUOR_PLATFORM=appliance \
    -DCMAKE_COMPILE_WARNING_AS_ERROR=ON -DCMAKE_PREFIX_PATH="$work/sysroot/usr" \
    >"$work/log" 2>&1 || { cat "$work/log"; fail "does not configure"; }
cmake --build "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; fail "does not build"; }

program=$work/build/bin/quorcachepinfiled
for name in core storagecore flashcache dataverifier; do
    readelf -d "$program" | grep -q "NEEDED.*\[libquor$name.so\]" || fail "libquor$name.so is not named"
    [ -z "$(find "$work/build" -name "libquor$name.so*")" ] || fail "libquor$name.so was built"
done
[ -z "$(find "$work/build/bin" -type f ! -name quorcachepinfiled)" ] || fail "builds more than the service"
LD_LIBRARY_PATH=$work/sysroot/usr/lib "$program" --help | grep -q '^Usage:' || fail "does not start"

cmake -S "$source" -B "$work/without" -G Ninja -DQUOR_PLATFORM=appliance \
    -DCMAKE_PREFIX_PATH="$work/nowhere" >"$work/log" 2>&1 && fail "configures without the libraries"
grep -q 'QUOR_LIB_core' "$work/log" || { cat "$work/log"; fail "does not say which library is missing"; }
echo "appliance: builds against a sysroot's libraries"
