#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# What scripts/private-root and scripts/start-supervisor promise. Exit code 77: this machine refuses namespaces.
set -u
project=$(realpath "$(dirname "$0")/../..")
run=$project/scripts/private-root
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 70
"$run" first true || exit $?
failures=0

expect() { # expect NAME EXPECTED ACTUAL
  if [ "$2" = "$3" ]; then
    echo "ok      $1"
  else
    printf 'FAILED  %s\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
  fi
}
code() { # the exit code of a command that may say what it likes
  "$@" >/dev/null 2>&1
  echo $?
}

expect "the exit code is handed on" 42 "$(code "$run" s sh -c 'exit 42')"
expect "so is the end by a signal" 137 "$(code "$run" s sh -c 'kill -KILL $$')"
expect "a missing command is 127" 127 "$(code "$run" s nonexistent-command)"
expect "no command is wrong usage" 64 "$(code "$run" s)"
expect "output and input are handed on" "in" "$(echo in | "$run" s cat)"

for path in /var/packages /usr/local/etc/services.d /usr/vesk /srv /tmp /var/tmp; do
  "$run" s sh -c "echo kept >$path/private-file"
  expect "$path is a folder of the state" kept "$(cat "s$path/private-file" 2>/dev/null)"
  expect "$path of the machine is not touched" missing "$([ -e "$path/private-file" ] || echo missing)"
done
for path in /etc /usr /var /home "$project" "$work"; do
  expect "$path is read-only" 1 "$(code "$run" s touch "$path/private-file")"
done
expect "the state is writable at its own path" yes "$("$run" s sh -c 'echo yes >s/here; cat s/here')"
expect "a writable place is" yes "$(mkdir -p w; "$run" --writable w s sh -c 'echo yes >w/here'; cat w/here)"
expect "a kept place is readable only" "text 1" \
  "$(mkdir -p k; echo text >k/a; cd /; "$run" --keep "$work/k" "$work/s" \
    sh -c "cat '$work/k/a'; touch '$work/k/b' 2>/dev/null || echo 1" | tr '\n' ' ' | sed 's/ $//')"
expect "a place that holds a private folder is refused" 64 "$(code "$run" --keep /usr s true)"
expect "but may be the current folder" "private-file" "$(cd /srv && "$run" "$work/s" ls)"
expect "a missing place is refused" 64 "$(code "$run" --keep nowhere s true)"
expect "names may hold blanks" ok "$(mkdir -p 'a b/c d'; cd 'a b/c d' && "$run" 'st ate' sh -c 'touch "st ate/x" && pwd >/dev/null && echo ok')"
expect "one root holds another" inner "$("$run" --writable . s "$run" inner-state echo inner)"

# What is made in /dev stays in there, and the devices are the machine's without a way to change them.
devices() { find /dev -maxdepth 1 -printf '%f %y %m %U %G\n' | sort; }
machine_devices=$(devices)
# shellcheck disable=SC2016
expect "/dev can be written to" "made 1777" \
  "$("$run" s sh -c ': >/dev/log && mkdir /dev/folder && echo made $(stat -c %a /dev/shm) && touch /dev/shm/private-file' | tail -n 1)"
for device in null zero full random urandom tty; do
  expect "/dev/$device is a device" yes "$("$run" s sh -c "[ -c /dev/$device ] && echo yes")"
done
expect "devices can be read and written" "4 1" \
  "$("$run" s sh -c 'echo text >/dev/null && head -c 4 /dev/zero | wc -c; echo x >/dev/full 2>/dev/null || echo 1' | tr '\n' ' ' | sed 's/ $//')"
expect "a device can neither be removed nor changed" "2" \
  "$("$run" s sh -c 'rm -f /dev/null 2>/dev/zero || echo 1; chmod 600 /dev/null 2>/dev/zero || echo 1' | wc -l)"
expect "standard streams have their links" "in /proc/self/fd" \
  "$(echo in | "$run" s sh -c 'cat /dev/stdin >/dev/stdout; readlink /dev/fd' | tr '\n' ' ' | sed 's/ $//')"
expect "a terminal can be opened" terminal \
  "$("$run" s script -qec 'test -t 0 && echo terminal' /dev/null </dev/null 2>&1 | tr -d '\r')"
expect "the machine's disks are not shown" "" "$("$run" s sh -c 'ls -d /dev/sd* /dev/vd* /dev/nvme* /dev/mapper 2>/dev/null')"
expect "/dev of the machine is not touched" "$machine_devices" "$(devices)"

# shellcheck disable=SC2016
expect "the kernel's messages are those that are played" "a word" \
  "$("$run" s bash -c 'exec 9<>/proc/kmsg && echo "a word" >&9 && read -rt 10 line <&9 && echo "$line"')"
expect "but those of the machine can be looked at" "yes" "$("$run" s sh -c '[ ! -e /dev/kmsg ] || [ -c /dev/kmsg ] && echo yes')"

expect "there are no other processes" 1 "$("$run" s sh -c 'ps -e -o pid= | head -n 1 | tr -d " "')"
expect "the network is a loopback interface" "lo" "$("$run" s sh -c 'ls /sys/class/net >/dev/null; ip -o link | cut -d: -f2 | tr -d " "')"
expect "which answers" 0 "$(code "$run" s sh -c 'ip -o addr show dev lo up | grep -q 127.0.0.1')"
expect "the machine's mounts stay as they are" "0" "$(grep -c -e private-root -e "$work" /proc/self/mountinfo)"
# shellcheck disable=SC2016
expect "the state is named in there" "$work/s" "$("$run" s sh -c 'echo "$OMBREL_PRIVATE_ROOT"')"

# The end of the script is the end of everything in there, whichever way it ends.
for signal in TERM KILL HUP; do
  mkfifo alive
  "$run" --writable . s sh -c 'setsid sh -c "exec sleep 1000" >alive & echo up >alive; exec sleep 1000 >alive' &
  pid=$!
  exec 5<alive
  read -r _ <&5
  kill -$signal $pid
  # The fifo ends when its last writer is gone.
  expect "nothing survives the signal $signal" gone "$(timeout 10 cat <&5 >/dev/null && echo gone)"
  exec 5<&-
  wait $pid 2>/dev/null
  rm alive
done

expect "the layout is not installed on the machine" 69 "$(code "$project/scripts/install-layout" "$work")"
if command -v s6-svscan >/dev/null; then
  supervise=$project/scripts/start-supervisor
  mkdir -p scan/one
  printf '#!/bin/sh\nexec sleep 1000\n' >scan/one/run
  chmod +x scan/one/run
  touch scan/one/down
  expect "the command finds its jobs supervised" "down 3" \
    "$("$supervise" --scan scan sh -c 's6-svstat -o up scan/one | sed s/false/down/; exit 3' | tr '\n' ' '; echo "${PIPESTATUS[0]}")"
  expect "jobs end with the command" "0 1" "$(code "$supervise" --scan scan s6-svc -wu -u scan/one | tr '\n' ' '; code s6-svok scan/one)"
  expect "without a scan folder there is nothing to supervise" 72 "$(code "$supervise" --scan nowhere true)"
  expect "a scan folder has one supervisor" 70 "$("$supervise" --scan scan sh -c "'$supervise' --scan scan true 2>/dev/null; echo \$?")"
  mkdir -p empty
  expect "without jobs the command runs too, however soon it ends" "5 5 5 5 5 5 5 5 " \
    "$(for _ in 1 2 3 4 5 6 7 8; do code timeout 20 "$supervise" --scan empty sh -c 'exit 5' | tr '\n' ' '; done)"
fi

[ $failures = 0 ] || { echo "$failures failed"; exit 1; }
