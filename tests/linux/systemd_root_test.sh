#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# scripts/systemd-root: what its machine is, and that nothing is left of it, however it ends. Exit code 77 where such a
# machine cannot be had.
set -euo pipefail
TOP=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }
machine() { "$TOP/scripts/systemd-root" "$work/state" "$@"; }
cgroups() { find /sys/fs/cgroup -type d -name "ombrel-systemd-$1" 2>/dev/null; }

# Of the machines that are ended from without: the command says when it is reached, and stays.
started() {
  mkfifo "$work/$1"
  # shellcheck disable=SC2016
  "$TOP/scripts/systemd-root" --writable "$work/$1" "$work/state" \
    sh -c 'echo >"$1"; exec sleep 1000' sh "$work/$1" 2>"$work/err" &
  outer=$!
  read -rt 60 _ <>"$work/$1" || { wait "$outer"; fail "no machine came up: $(cat "$work/err")"; }
}
is_empty() { ! grep -qs 'populated 1' "$1/cgroup.events"; }
await_empty() { # a process leaves its cgroup a moment after its end, and nothing tells of it
  local tries=100
  until is_empty "$1"; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || fail "processes are left in $1"
    read -rt 0.1 <> <(:) || true
  done
}

result=0
"$TOP/scripts/systemd-root" "$work/state" 2>/dev/null || result=$?
[ $result = 64 ] || fail "no command, but exit code $result"
result=0
setpriv --reuid 65534 --clear-groups "$TOP/scripts/systemd-root" "$work/state" true 2>/dev/null || result=$?
case $result in 77 | 126 | 127) ;; *) fail "a plain user gets exit code $result" ;; esac
result=0
machine true || result=$?
[ $result != 77 ] || exit 77
[ $result = 0 ] || fail "exit code $result"

started killed
left=$(cgroups $outer)
[ -n "$left" ] || fail "no cgroup of its own"
kill -KILL $outer
wait $outer 2>/dev/null || true
await_empty "$left"

started ended
kill -TERM $outer
result=0
wait $outer || result=$?
[ $result = 143 ] || fail "asked to end: exit code $result"
[ -z "$(cgroups $outer)" ] || fail "a cgroup is left of the one that was asked to end"
[ ! -d "$left" ] || fail "the next run does not remove what a killed one left"

# What is changed in there stays for its next boot, and never reaches the real machine.
cat >"$work/inside" <<'EOF'
[ "$(cat /proc/1/comm)" = systemd ] && systemctl is-system-running --quiet || exit 10
[ "$(ls /sys/fs/cgroup/machine 2>/dev/null)" = "" ] || exit 11
if [ "$OMBREL_BOOT" = 1 ]; then
  touch /etc/ombrel-changed /run/ombrel-changed
  exit 85
fi
[ "$OMBREL_BOOT" = 2 ] && [ -e /etc/ombrel-changed ] && [ ! -e /run/ombrel-changed ] || exit 12
! touch /usr/ombrel-changed 2>/dev/null || exit 13
exit 3
EOF
"$TOP/scripts/systemd-root" --keep "$work/inside" "$work/state" sh "$work/inside" &
outer=$!
result=0
wait $outer || result=$?
[ $result = 3 ] || fail "after two boots: exit code $result"
[ -z "$(cgroups $outer)" ] || fail "a cgroup is left"
[ ! -e /etc/ombrel-changed ] || fail "the real /etc was changed"
echo "all as expected"
