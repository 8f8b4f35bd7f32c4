#!/bin/sh
# SPDX-License-Identifier: MIT
# Inside try.sh's machine: installs the packages, uses the service under its unit's restrictions,
# removes and purges it. Says each step; the first that fails ends it.
set -eu
export PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive HOME=/root
unit=quorcachepinfiled.service
conf=/var/lib/quorcachepinfiled/quorcachepinfile.conf
key=/run/quorcachepinfile-msg-server.key
volume=/mnt/volume

step() {
    printf '  %s\n' "$*"
}

fail() {
    printf 'failed: %s\n' "$*"
    journalctl -q --no-pager -n 40 -u "$unit" || true
    systemctl --no-pager status "$unit" || true
    exit 1
}

# until COMMAND...: tries it for half a minute.
until_true() {
    for _ in $(seq 150); do
        if "$@" >/dev/null 2>&1; then return; fi
        sleep 0.2
    done
    fail "never true: $*"
}

# counter NAME: a number of the cache's stats.json.
counter() {
    sed -n "s/.*\"$1\" *: *\([0-9]*\).*/\1/p" /mnt/cache/stats.json | head -n 1
}

listed() {
    grep -q "\"$1\"" "$conf"
}

queue_empty() {
    grep -q '"requestQueue" : null' "$conf"
}

serves() {
    [ "$(systemctl is-active "$unit")" = active ] && [ -s "$key" ]
}

step "install: the service starts, sandboxed, and has sized its queue"
dpkg -i /mnt/packages/*_"$(dpkg --print-architecture)".deb >/mnt/try/dpkg.log 2>&1 ||
    fail "dpkg -i: $(cat /mnt/try/dpkg.log)"
until_true serves
pid=$(systemctl show -P MainPID "$unit")
state() { sed -n "s/^$1:[[:space:]]*//p" "/proc/$pid/status"; }
[ "$(state NoNewPrivs)" = 1 ] || fail "NoNewPrivs is $(state NoNewPrivs)"
[ "$(state Seccomp)" = 2 ] || fail "Seccomp is $(state Seccomp)"
[ "$(state CapEff)" = 0000000000000002 ] || fail "CapEff is $(state CapEff)"
[ "$(cat /proc/sys/kernel/msgmnb)" -ge 1576960 ] || fail "kernel.msgmnb was not raised"
ipcs -q -i "$(awk 'NR == 2 { print $2 }' /proc/sysvipc/msg)" | grep -q 'qbytes=1576960' ||
    fail "the queue was not sized: $(cat /proc/sysvipc/msg)"

step "a volume mounted after the start: ext4 on a loop device on a cache"
truncate -s 512M /tmp/disk
mkdir -p /mnt/cache "$volume"
quorsoftcache --name try --backing /tmp/disk --ssd /tmp/ssd --ssd-size 64M --mount /mnt/cache \
    >/mnt/try/cache.log 2>&1 &
cache=$!
until_true test -e /run/quorsoftcache/try.json
loop=$(losetup --find --show /mnt/cache/device)
mkfs.ext4 -q -F -J size=4 "$loop"
mount "$loop" "$volume"
mkdir "$volume/photos"
head -c 3000000 /dev/urandom >"$volume/photos/a"
head -c 3000000 /dev/urandom >"$volume/photos/b"
# Another user's file, and a volume of another user's.
chown -R 1000:1000 "$volume"
chmod 700 "$volume/photos"
sync -f "$volume"

step "pin: listed, in the cache, all of it"
quorcachepinctl pin "$volume/photos/a" >/mnt/try/pin.log 2>&1 || fail "pin: $(cat /mnt/try/pin.log)"
until_true listed photos/a
until_true queue_empty
[ "$(counter pinnedUnits)" -ge 46 ] || fail "pinned units: $(counter pinnedUnits)"
[ "$(counter pinnedUnits)" = "$(counter pinnedUnitsResident)" ] ||
    fail "resident: $(counter pinnedUnitsResident) of $(counter pinnedUnits)"
[ -s "$volume/quorcachepinfile.bitmap" ] || fail "no bitmap file"

step "pending: the request waits until the volume is released"
quorcachepinctl pend "$volume" >/dev/null
quorcachepinctl pin "$volume/photos/b" >/dev/null
sleep 2
if listed photos/b || queue_empty; then fail "a pending volume's request was run"; fi
quorcachepinctl release "$volume" >/dev/null
quorcachepinctl reload "$volume" >/dev/null
until_true listed photos/b
until_true queue_empty

step "restart after a kill: taken up again, with the volume mounted before the start"
kill -KILL "$pid"
restarted() { serves && [ "$(systemctl show -P NRestarts "$unit")" = 1 ]; }
until_true restarted
quorcachepinctl unpin "$volume/photos/a" "$volume/photos/b" >/dev/null
gone() { ! listed photos/a && ! listed photos/b && queue_empty; }
until_true gone
[ "$(counter pinnedUnits)" = 0 ] || fail "still pinned: $(counter pinnedUnits)"

step "the debug file in /tmp is seen, the log arrives, SIGTERM ends it in order"
echo print_level=verbose >/tmp/quorcachepinfiletool.debug
systemctl restart "$unit"
until_true serves
detected() { journalctl -q --no-pager -u "$unit" | grep -q 'update print level to 2'; }
until_true detected
rm /tmp/quorcachepinfiletool.debug
systemctl stop "$unit"
[ "$(systemctl show -P Result "$unit")" = success ] || fail "stop: $(systemctl show -P Result "$unit")"
if journalctl -q --no-pager -u "$unit" | grep -E 'Ioctl [Ee]rror|Operation not permitted'; then
    fail "the sandbox was in the way"
fi

# A reload of the volume, as a client sends it.
send_reload() {
    perl -e 'open(KEY, $ARGV[0]); $queue = msgget(<KEY>, 0);
        msgsnd($queue, pack("l! l Z512 Z1024", 1, 6, $ARGV[1], ""), 0) or die "$!"' "$key" "$volume" ||
        fail "a message was not sent"
}

step "an unreadable store: put aside before the start, and a good copy takes its place"
cp "$conf" "$conf.good"
echo '{' >"$conf"
systemctl start "$unit"
until_true serves
[ "$(cat "$conf.unreadable-1")" = '{' ] || fail "the unreadable store was not put aside"
send_reload
until_true queue_empty
systemctl stop "$unit"
mv "$conf.good" "$conf"

step "the same without the copies: started again after its end with 0, then left to an operator"
mkdir -p "/run/systemd/system/$unit.d"
printf '[Service]\nExecStartPre=\n' >"/run/systemd/system/$unit.d/no-copies.conf"
systemctl daemon-reload
systemctl reset-failed "$unit" 2>/dev/null || true # forgotten already, its starts as well
[ "$(systemctl show -P TimeoutStopUSec "$unit")" = 5s ] || fail "a stop is waited for too long"
mv "$conf" "$conf.good"
echo '{' >"$conf"
systemctl start "$unit"
until_true serves
# Each start takes one of them, and it is lost.
for _ in 1 2 3 4 5 6 7; do
    send_reload
done
given_up() { [ "$(systemctl show -P Result "$unit")" = start-limit-hit ]; }
until_true given_up
[ "$(systemctl show -P NRestarts "$unit")" -ge 4 ] || fail "started again too seldom"
[ "$(systemctl show -P ExecMainStatus "$unit")" = 0 ] || fail "it did not end with 0"
waiting() { awk 'NR == 2 { print $5 }' /proc/sysvipc/msg; }
[ "$(waiting)" = 2 ] || fail "messages that wait: $(waiting)"
mv "$conf.good" "$conf"
rm -r "/run/systemd/system/$unit.d"
systemctl daemon-reload
systemctl reset-failed "$unit"
systemctl start "$unit"
until_true queue_empty
taken() { [ "$(waiting)" = 0 ] && queue_empty; }
until_true taken
systemctl stop "$unit"

step "remove: the stored requests and the queue stay; purge: nothing stays"
systemctl start "$unit"
until_true serves
dpkg -L quorcachepinfiled quorcachepinctl libquor-platform-linux quorsoftcache |
    grep -E 'quor(cachepin|softcache|core|storagecore|flashcache|dataverifier)' >/mnt/try/files
dpkg -r quorcachepinfiled quorcachepinctl >/mnt/try/dpkg.log 2>&1 || fail "$(cat /mnt/try/dpkg.log)"
! systemctl -q is-active "$unit" || fail "removed and still running"
for file in "$conf" "$key"; do
    [ -s "$file" ] || fail "remove took $file"
done
umount "$volume"
losetup -d "$loop"
kill -TERM "$cache" 2>/dev/null || fail "the cache was gone: $(cat /mnt/try/cache.log)"
wait "$cache" || fail "the cache ended with $?: $(cat /mnt/try/cache.log)"
dpkg -P quorcachepinfiled quorcachepinctl quorsoftcache libquor-platform-linux \
    >/mnt/try/dpkg.log 2>&1 || fail "$(cat /mnt/try/dpkg.log)"
for file in /var/lib/quorcachepinfiled "$key"; do
    [ ! -e "$file" ] || fail "purge left $file"
done
[ "$(wc -l </proc/sysvipc/msg)" = 1 ] || fail "purge left the queue: $(cat /proc/sysvipc/msg)"
while read -r path; do
    [ ! -e "$path" ] || fail "purge left $path"
done </mnt/try/files
echo "packages: installed, used under the sandbox, removed and purged"
