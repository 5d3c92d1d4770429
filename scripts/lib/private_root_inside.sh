# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
# shellcheck shell=bash
#
# The inside of scripts/private-root: process 1 of the new PID namespace. Builds a root folder on a tmpfs,
# makes it the root, runs the command and ends with its exit code.
#   private_root_inside.sh STATE WORKING_FOLDER {ro|rw|here PATH}... -- COMMAND...
set -euo pipefail
trap 'echo "private-root: the private root could not be furnished (line $LINENO: $BASH_COMMAND)" >&2; exit 70' ERR

state=$1 folder=$2
shift 2
places=()
while [ "$1" != -- ]; do places+=("$1" "$2"); shift 2; done
shift

# Folders of the machine that give way to folders of STATE, and those that must be opened to make room.
fixed=(/var/packages /usr/local/etc/services.d /usr/vesk /srv /tmp /var/tmp)
hidden=(/run /proc /dev)
opened=(/usr /usr/local /usr/local/etc /var)

holds() { # holds NAME LIST...
  local name=$1 one
  shift
  for one in "$@"; do [ "$one" != "$name" ] || return 0; done
  return 1
}

# Shows the entries of a folder of the machine in the folder of the same name of the new root.
mirror() {
  local dir=$1 entry name
  for entry in "$dir"/* "$dir"/.[!.]*; do
    name=${entry#/}
    entry=/$name
    if holds "$entry" "${fixed[@]}" "${hidden[@]}"; then
      continue
    elif holds "$entry" "${opened[@]}" && [ -d "$entry" ]; then
      mkdir "$root$entry"
      mirror "$entry"
    elif [ -L "$entry" ]; then
      ln -s "$(readlink "$entry")" "$root$entry"
    elif [ -d "$entry" ]; then
      mkdir "$root$entry"
      mount --rbind "$entry" "$root$entry"
    elif [ -e "$entry" ]; then
      : >"$root$entry"
      mount --bind "$entry" "$root$entry"
    fi
  done
}

# Devices are bound from the machine: a user namespace may make none of its own. They stay read-only, so that
# neither mode nor owner of the machine's can be changed; what they do is not concerned by that.
furnish_dev() {
  local entry
  mkdir "$root/dev"
  mount -t tmpfs -o mode=755,nosuid private "$root/dev"
  for entry in /dev/{null,zero,full,random,urandom,tty,kmsg,loop-control,loop[0-9]*}; do
    [ -c "$entry" ] || [ -b "$entry" ] || continue
    : >"$root$entry"
    mount --bind "$entry" "$root$entry"
  done
  ln -s /proc/self/fd "$root/dev/fd"
  ln -s /proc/self/fd/0 "$root/dev/stdin"
  ln -s /proc/self/fd/1 "$root/dev/stdout"
  ln -s /proc/self/fd/2 "$root/dev/stderr"
  mkdir -m 1777 "$root/dev/shm"
  mount -t tmpfs -o mode=1777 private "$root/dev/shm"
  private+=(/dev /dev/shm)
  mkdir "$root/dev/pts"
  if mount -t devpts -o newinstance,mode=620,ptmxmode=666,nosuid,noexec private "$root/dev/pts" 2>/dev/null; then
    private+=(/dev/pts)
  elif [ -d /dev/pts ]; then
    mount --rbind /dev/pts "$root/dev/pts"
    if [ -c /dev/ptmx ]; then
      : >"$root/dev/ptmx"
      mount --bind /dev/ptmx "$root/dev/ptmx"
    fi
  fi
  [ -e "$root/dev/ptmx" ] || ln -s pts/ptmx "$root/dev/ptmx"
}

# Whether a folder of STATE, or /run, /proc or /dev, lies at or below a path: the machine's would hide it.
is_above_private() {
  local one above=${1%/} # "/" becomes empty
  for one in "${fixed[@]}" "${hidden[@]}"; do
    case $one/ in "$above"/*) return 0 ;; esac
  done
  return 1
}

# A place keeps its path in the new root, whatever the path leads through.
keep() {
  local path=$1
  if [ -d "$path" ]; then
    mkdir -p "$root$path"
  else
    mkdir -p "$root${path%/*}"
    [ -e "$root$path" ] || : >"$root$path"
  fi
  mount --rbind "$path" "$root$path"
}

writable=("$state")
private=()
is_writable() { # everything below a writable place or on a file system of our own
  local point=$1 one
  for one in "${private[@]}"; do [ "$point" != "$one" ] || return 0; done
  for one in "${writable[@]}"; do
    case $point/ in "$one"/*) return 0 ;; esac
  done
  return 1
}

# Mount points are written as octal escapes where they hold blanks; the flags that a mount has must be
# given again, or the kernel refuses to drop them in a user namespace.
make_read_only() {
  local point options path flags one
  while read -r _ _ _ _ point options _; do
    path=$(printf '%b' "$point")
    case $path in "$root" | "$root"/*) ;; *) continue ;; esac
    path=${path#"$root"}
    ! is_writable "${path:-/}" || continue
    flags=ro
    for one in nosuid nodev noexec noatime nodiratime relatime; do
      case ,$options, in *,$one,*) flags+=,$one ;; esac
    done
    mount -o "remount,bind,$flags" "$root$path"
  done </proc/self/mountinfo
}

umask 022
root=$state/.root
mkdir -p "$root"
mount -t tmpfs -o mode=755 private-root "$root"
# Folders of the machine that hold STATE are shown without this root, or it would hold itself.
mount --make-unbindable "$root"
mkdir "$root/proc" "$root/.machine"
mirror ""
for path in "${fixed[@]}"; do
  mkdir -p "$state$path" "$root$path"
  mount --bind "$state$path" "$root$path"
  private+=("$path")
done
chmod 1777 "$state/tmp" "$state/var/tmp"
mkdir "$root/run"
mount -t tmpfs -o mode=755 private "$root/run"
private+=(/run)
mkdir "$root/run/lock"
furnish_dev
for ((i = 0; i < ${#places[@]}; i += 2)); do
  kind=${places[i]} path=${places[i + 1]}
  if is_above_private "$path"; then
    [ "$kind" != here ] || continue
    echo "private-root: $path cannot be kept: it holds one of the private folders" >&2
    exit 64
  fi
  keep "$path"
  [ "$kind" != rw ] || writable+=("$path")
done
mount -t proc -o nosuid,nodev,noexec proc "$root/proc"
# The kernel's messages are gone from there once they have been read, so the machine's are not. Whoever writes
# here plays the kernel.
mkfifo -m 600 "$root/dev/.kernel" # the root itself cannot be bound
mount --bind "$root/dev/.kernel" "$root/proc/kmsg"
rm "$root/dev/.kernel"
private+=(/proc /) # the root itself turns read-only at the very end
make_read_only
ip link set lo up

cd "$root"
pivot_root . .machine
cd /
umount -l /.machine
rmdir /.machine
mount -o remount,bind,ro /
mount --make-private /
cd "$folder"
trap - ERR
set +e
export OMBREL_PRIVATE_ROOT=$state
"$@"
exit $?
