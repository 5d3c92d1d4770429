# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# What the system tests share. To be sourced, with BUILD as the first argument of the test.
set -euo pipefail
TOP=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
BUILD=$1
. "$TOP/scripts/lib/road.sh"

fail() {
  echo "FAILED: $*" >&2
  tail -n 40 "$PACKAGE"/service/log/*/current >&2 2>/dev/null || true
  exit 1
}

expect_equal() { # WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] || fail "$1: expected \"$2\", is \"$3\""
}

# complains EXIT WORDS COMMAND...: the last line on standard error has these words; mv and zip may have said
# something of their own before.
complains() {
  local expected=$1 words=$2 result=0
  shift 2
  "$@" >/tmp/out 2>/tmp/err || result=$?
  expect_equal "exit code of $*" "$expected" "$result"
  tail -n 1 /tmp/err | grep -qF -- "$words" || fail "$* says: $(cat /tmp/err)"
}

# Sends standard input exactly as it is: as one datagram, or over one connection.
send_udp() {
  cat >/tmp/datagram # whole, since each write becomes a datagram
  dd if=/tmp/datagram bs=128k status=none >/dev/udp/127.0.0.1/5514
}
send_tcp() { cat >/dev/tcp/127.0.0.1/5514; }

# await WHAT COMMAND...: there is no event for what other programs have written or bound; 20 s at most.
await() {
  local what=$1 tries=200
  shift
  until "$@"; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || fail "$what: not within 20 s"
    read -rt 0.1 <> <(:) || true
  done
}
# Whether the log of a receiver has these words.
logged() { # WORDS [NAME...]: of any of them
  local name words=$1
  shift
  for name in ${*:-$RECEIVERS}; do
    ! grep -qsF -- "$words" $PACKAGE/service/log/pkg-Ombrel-$name/current || return 0
  done
  return 1
}

WORKING=$LOGS/VESKSYSLOGDB__ARCH.DB

await_rows() { # N [DATABASE]
  timeout 90 "$BIN/await-growth" --rows "$1" "${2:-$WORKING}" || fail "no $1 rows came; $(rows_of "${2:-$WORKING}") are there"
}

rows_of() { sqlite3 -cmd '.timeout 10000' "$1" 'SELECT row_count FROM loginfo' 2>/dev/null || echo none; }
ask() { sqlite3 -cmd '.timeout 10000' "${2:-$WORKING}" "$1"; }
