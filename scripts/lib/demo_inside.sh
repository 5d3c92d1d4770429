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
MOVED=10000
RAW=10000

# The lines that this machine has logged itself, whatever it has.
own_lines() {
  { dmesg 2>/dev/null || true; } | head -n 2000
  cat /var/log/dpkg.log /var/log/apt/history.log /var/log/alternatives.log 2>/dev/null | tail -n 3000 || true
}

# Ten seconds over TCP; nearly as long over UDP and then, when the receiver has moved, to its new port.
send_everything() {
  local tcp raw
  "$BIN/device-sender" --stream raw --devices 5 --port 7001 --count $RAW --rate 1000 >/tmp/sent.raw &
  raw=$!
  "$BIN/device-sender" --stream tcp --devices 20 --count $PER_STREAM --rate 6000 --reconnect >/tmp/sent.tcp &
  tcp=$!
  own_lines | "$BIN/device-sender" --stream own --file - --host "$(uname -n)" --program machine >/tmp/sent.own
  "$BIN/device-sender" --stream udp --devices 20 --count $PER_STREAM --rate $UDP_RATE --udp >/tmp/sent.udp
  # Datagrams that no one has read are gone with their socket.
  while [ "$(udp_waiting 5514)" != 0 ]; do read -rt 0.1 <> <(:) || true; done
  change_settings >/tmp/changed 2>&1
  "$BIN/device-sender" --stream moved --devices 20 --count $MOVED --counted --port 6514 >/tmp/sent.moved
  wait $tcp $raw
}

show_ports() {
  echo "listening:    $(ss -Hlntu | awk '$5 !~ /^127/ { n = split($5, parts, ":"); print parts[n] "/" $1 }' | sort -u | tr '\n' ' ')"
  echo "declared:     $(awk -F '"' '/^\[/ { name = $1 } /^port=/ { port[name] = $2 } /^protocol=/ { protocol[name] = $2 }
    END { for (one in port) printf "%s %s/%s  ", one, port[one], protocol[one] }' /usr/local/etc/services.d/vesk_syslog.sc)"
  echo "firewall:     $(nft list set inet ombrel open_ports | tr -d '\n\t' | sed -n 's/.*elements = {\([^}]*\)}.*/\1/p')"
}

change_settings() {
  local begin
  begin=$(date +%s%N)
  "$OMBREL" settings set server_ietf_port=6514 server_ietf_trans=tcp
  echo "applied in $((($(date +%s%N) - begin) / 1000000)) ms"
  show_ports
}

road_begin
say "1. Supervisor, log writer; the settings are applied: both receivers are switched on. A receiving rule takes
   the lines of devices that speak neither of their formats, as they are"
"$OMBREL" job start pkg-Ombrel-syslog
"$OMBREL" settings set bsd_enable=1 ietf_enable=1 arch_count=20000
"$OMBREL" settings show | grep -E '^(bsd|ietf|server|arch_(dest|count|fmt))' | paste -sd ' ' | fold -sw 110
"$OMBREL" rule add meters port=7001 format=RAW protocol=tcp | paste -sd ' '
show_ports

say "2. Twenty devices send over TCP and UDP port 5514, and this machine sends its own log lines; whenever the
   working database holds more than 20000 rows it is archived. In the middle of it the IETF receiver moves
   from UDP port 5514 to TCP port 6514"
dropped_before=$(udp_dropped)
send_everything &
sender=$!
while kill -0 $sender 2>/dev/null; do
  "$OMBREL" archive | grep -v '^nothing' || true
  # Looks again when the writer has committed something more, at the latest after a second.
  timeout 1 "$BIN/await-change" "$LOGS" || true
done
wait $sender
echo
cat /tmp/changed

say "   At one glance, and some of the failures that devices told of"
"$OMBREL" status
"$OMBREL" search --severity err --limit 5 || true

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
"$BIN/archive-audit" "$LOGS" own="$(cat /tmp/sent.own)" tcp="$(cat /tmp/sent.tcp)" udp="$sent_udp" moved="$(cat /tmp/sent.moved)" \
  raw="$(cat /tmp/sent.raw)"
dropped=$(($(udp_dropped) - dropped_before))
[ "$dropped" = 0 ] || echo "(the kernel dropped $dropped datagrams before anybody could read them)"

say "8. An archive of the old layout, as an earlier system left it: rows are converted and compared one by one,
   then the new file takes its place"
"$BIN/make-old-database" "$LOGS/2019-05-01_2019-05-31.DB" 200000
"$BIN/ombrel-upgrade" --dry-run "$LOGS/2019-05-01_2019-05-31.DB"
"$BIN/ombrel-upgrade" "$LOGS/2019-05-01_2019-05-31.DB"
(cd /srv && tree -h --noreport logs -P '2019*')
