# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
# shellcheck shell=bash
#
# The inside of scripts/systemd-root: in the private root, beside the namespaces that systemd is in.
#   systemd_root_inside.sh CGROUP COMMAND...
set -euo pipefail
trap 'echo "systemd-root: the machine could not be furnished (line $LINENO: $BASH_COMMAND)" >&2; exit 70' ERR

here=$(dirname "$0")
cgroup=$1
shift
units=/etc/systemd/system
up=$OMBREL_PRIVATE_ROOT/.up
AGAIN=85

# Root of a container that may not mount is root of a user namespace by now, to which systemd is no use.
read -r _ _ users </proc/self/uid_map
[ "$users" = 4294967295 ] || {
  echo "systemd-root: this machine lets its root mount nothing (a container needs CAP_SYS_ADMIN)" >&2
  exit 77
}

# An /etc of this machine's own, over the real one.
furnish_etc() {
  local entry
  mkdir /run/etc
  mount -t tmpfs -o mode=755 private /run/etc
  mkdir /run/etc/{changed,work}
  mount -t overlay -o lowerdir=/etc,upperdir=/run/etc/changed,workdir=/run/etc/work private /etc 2>/dev/null || {
    echo "systemd-root: this machine has no overlay file system for /etc" >&2
    exit 77
  }
  rm -rf $units /etc/systemd/system-generators /etc/fstab
  mkdir -p $units /etc/systemd/system-generators /etc/systemd/journald.conf.d
  tr -d - </proc/sys/kernel/random/uuid >/etc/machine-id
  printf '[Journal]\nStorage=volatile\nReadKMsg=no\nAudit=no\n' >/etc/systemd/journald.conf.d/private.conf
  for entry in /lib/systemd/system-generators/*; do
    ln -s /dev/null "/etc/systemd/system-generators/${entry##*/}"
  done
  # Of what every boot starts, the journal and the bus are enough; the rest is about hardware and mounts.
  for entry in /lib/systemd/system/{sysinit,sockets,multi-user,local-fs,timers}.target.wants/*; do
    entry=${entry##*/}
    case $entry in \* | systemd-journald* | dbus.*) continue ;; esac
    ln -sf /dev/null "$units/$entry"
  done
  # Says that everything that is to be started at boot has been.
  printf '%s\n' '[Unit]' 'DefaultDependencies=no' 'After=multi-user.target' '[Service]' 'Type=oneshot' \
    "ExecStart=/bin/sh -c 'echo >$up'" >$units/ombrel-booted.service
  printf '%s\n' '[Unit]' 'Wants=multi-user.target ombrel-booted.service dbus.socket' 'AllowIsolate=yes' \
    >$units/ombrel-boot.target
}

# Starts systemd as process 1 of namespaces of its own, and waits until the boot is over.
boot() {
  unshare --mount --uts --ipc --pid --fork --kill-child --propagation private \
    bash "$here/systemd_root_boot.sh" "$cgroup" </dev/null >"$OMBREL_PRIVATE_ROOT/boot.log" 2>&1 &
  outer=$!
  if ! read -rt 60 _ <>"$up"; then
    echo "systemd-root: systemd does not come up; $OMBREL_PRIVATE_ROOT/boot.log may say why" >&2
    cat "$OMBREL_PRIVATE_ROOT/boot.log" >&2
    exit 70
  fi
  read -r manager <"/proc/$outer/task/$outer/children" || [ -n "$manager" ] # no line break ends it
}

# Has systemd stop everything in order and end.
shut_down() {
  kill -s RTMIN+4 "$manager"
  timeout 60 tail --pid="$manager" -f /dev/null || kill -KILL "$manager"
  wait "$outer" || true
}

run_inside() {
  nsenter --target "$manager" --mount --uts --ipc --pid --cgroup -- env -C "$PWD" OMBREL_BOOT="$boot" "$@"
}

furnish_etc
mkfifo "$up" 2>/dev/null || [ -p "$up" ]
trap - ERR
for ((boot = 1; ; ++boot)); do
  boot
  result=0
  run_inside "$@" || result=$?
  shut_down
  [ $result = $AGAIN ] || exit $result
done
