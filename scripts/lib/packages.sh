# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# Debian packages that the scripts need: named once, installed when missing. To be sourced.

# What builds and runs the product.
PACKAGES_RUN="g++ cmake ninja-build pkg-config libsqlite3-dev libmount-dev libmicrohttpd-dev libssl-dev
  libsystemd-dev libnftables-dev libzip-dev libxxhash-dev libcli11-dev libre2-dev scdoc
  syslog-ng-core syslog-ng-mod-http s6 execline samba-common-bin zip util-linux iproute2"
# What the demo shows things with.
PACKAGES_SHOW="sqlite3 unzip tree"
# What the tests need besides.
PACKAGES_TEST="libgtest-dev libgmock-dev clang-14 libclang-rt-14-dev clang-format-14 clang-tidy-14 binutils sqlite3 unzip
  e2fsprogs procps openssl nftables systemd dbus
  mandoc zsh fish tmux"
# What the measurements need besides.
PACKAGES_BENCH="libbenchmark-dev syslog-ng-mod-sql libdbd-sqlite3 sqlite3 unzip"

is_installed() {
  [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# install_packages NAME...: in a shell of its own, so that what it changes for a moment is undone however it ends.
install_packages() (
  # The daemons among them are only run by our own jobs: keep the packages from starting theirs.
  guard=/usr/sbin/policy-rc.d
  if [ ! -e $guard ]; then
    trap 'rm -f $guard' EXIT
    trap 'exit 130' INT TERM HUP
    printf '#!/bin/sh\nexit 101\n' >$guard
    chmod 755 $guard
  fi
  apt-get update -qq &&
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@"
)

# need_packages NAME...: installs what is missing, or says how to and ends.
need_packages() {
  local missing=() name
  for name in "$@"; do is_installed "$name" || missing+=("$name"); done
  [ ${#missing[@]} -gt 0 ] || return 0
  if [ "$(id -u)" != 0 ]; then
    echo "These Debian packages are missing; as root run: apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 69
  fi
  echo "Installing ${missing[*]}" >&2
  local log result=0
  log=$(mktemp)
  install_packages "${missing[@]}" >"$log" 2>&1 </dev/null || result=$?
  [ $result = 0 ] || { cat "$log" >&2; echo "The packages could not be installed." >&2; }
  rm -f "$log"
  return $result
}

# build PRESET [TARGET...]: configures and builds one preset of CMakePresets.json. What is in CMAKE_OPTIONS is added.
build() {
  local preset=$1
  shift
  cmake --preset "$preset" ${CMAKE_OPTIONS:-} >"$TOP/build/$preset.log" 2>&1 ||
    { cat "$TOP/build/$preset.log" >&2; return 1; }
  cmake --build --preset "$preset" ${1:+--target "$@"} >"$TOP/build/$preset.log" 2>&1 ||
    { tail -n 60 "$TOP/build/$preset.log" >&2; return 1; }
}
