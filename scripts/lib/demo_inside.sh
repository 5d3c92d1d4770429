#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# The demo, inside its private root.
#   demo_inside.sh BUILD
set -euo pipefail
TOP=$(cd "$(dirname "$0")/../.." && pwd)
BUILD=$1
. "$TOP/scripts/lib/road.sh"

PER_STREAM=60000
UDP_RATE=8000

# The lines that this machine has logged itself, whatever it has.
own_lines() {
  { dmesg 2>/dev/null || true; } | head -n 2000
  cat /var/log/dpkg.log /var/log/apt/history.log /var/log/alternatives.log 2>/dev/null | tail -n 3000 || true
}

send_everything() {
  local tcp udp
  "$BIN/device-sender" --stream tcp --devices 20 --count $PER_STREAM --rate 12000 >/tmp/sent.tcp &
  tcp=$!
  "$BIN/device-sender" --stream udp --devices 20 --count $PER_STREAM --rate $UDP_RATE --udp >/tmp/sent.udp &
  udp=$!
  own_lines | "$BIN/device-sender" --stream own --file - --host "$(uname -n)" --program machine >/tmp/sent.own
  wait $tcp
  wait $udp
}

road_begin
say "1. Settings, supervisor, jobs"
start_jobs
grep -E '^(arch_|server_port)' "$CONF"
"$OMBREL" job status pkg-Ombrel-syslog
"$OMBREL" job status pkg-Ombrel-bsd
"$OMBREL" job status pkg-Ombrel-ietf

say "2. Twenty devices send through TCP and UDP port 5514, and this machine sends its own log lines;
   whenever the working database holds more than 20000 rows it is archived"
dropped_before=$(udp_dropped)
send_everything &
sender=$!
while kill -0 $sender 2>/dev/null; do
  "$OMBREL" archive | grep -v '^nothing' || true
  # Looks again when the writer has committed something more, at the latest after a second.
  timeout 1 "$BIN/await-change" "$LOGS" || true
done
wait $sender

say "3. The senders have ended; what the receivers still hold is stored, and the post-processing awaited"
stop_jobs
"$BIN/await-archives" "$LOGS" 60

say "4. The archive folder"
(cd /srv && tree -h --noreport logs)

archive=$(find "$LOGS" -name '*.ZIP' | sort | head -n 1)
[ -n "$archive" ] || die "no archive was made"
say "5. The contents of $(basename "$archive")"
unzip -l "$archive"
say "6. The first lines of its text export"
# Control characters that strangers sent are shown, not obeyed.
{ unzip -p "$archive" '*.TXT' || true; } | head -n 8 | tr -d '\r' | cut -c -150 | cat -v

say "7. Sent and stored, over all archives and the working database"
sent_udp=$(cat /tmp/sent.udp)
"$BIN/archive-audit" "$LOGS" own="$(cat /tmp/sent.own)" tcp="$(cat /tmp/sent.tcp)" udp="$sent_udp"
dropped=$(($(udp_dropped) - dropped_before))
[ "$dropped" = 0 ] || echo "(the kernel dropped $dropped datagrams before anybody could read them)"
