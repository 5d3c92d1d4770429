# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
# shellcheck shell=bash
#
# Process 1 of the namespaces of scripts/systemd-root: enters a cgroup of its own and becomes systemd.
#   systemd_root_boot.sh CGROUP
set -euo pipefail

# An empty one, in which systemd may give each part of the machine its place: none but it is in there.
if [ "${2:-}" != entered ]; then
  mkdir -p "$1/machine"
  echo 0 >"$1/machine/cgroup.procs"
  exec unshare --cgroup bash "$0" "$1" entered
fi

mount -t proc -o nosuid,nodev,noexec proc /proc
mount --bind /proc/sys /proc/sys
mount -o remount,bind,ro /proc/sys
mount -t sysfs -o ro,nosuid,nodev,noexec sysfs /sys
mount -t cgroup2 -o nosuid,nodev,noexec cgroup2 /sys/fs/cgroup
mount -t tmpfs -o mode=755,nosuid,nodev private /run
# The kernel's log is the real machine's.
[ ! -e /dev/kmsg ] || mount --bind /dev/null /dev/kmsg
# What no namespace keeps from the real machine.
exec env -i container=ombrel LC_ALL=C PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
  setpriv --bounding-set=-sys_time,-sys_module,-sys_rawio,-mknod \
  /lib/systemd/systemd --system --unit=ombrel-boot.target --show-status=no
