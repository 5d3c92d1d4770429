# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# Settings applied to a running machine, and all the places that have to agree on them afterwards. To be sourced
# after lib.sh.

SERVICES=$PACKAGE/service/conf/enable_services
DECLARED=/usr/local/etc/services.d/vesk_syslog.sc
EVENTS=$PACKAGE/service/log/events.jsonl
TLS=/srv/tls

# What the receivers are wanted to be.
declare -A WANTED=(
  [bsd_enable]=0 [server_port]=5514 [server_trans]=tcp [server_ssl]=0
  [ietf_enable]=0 [server_ietf_port]=5515 [server_ietf_trans]=udp [server_ietf_ssl]=0
  [server_ca_key]= [server_ca_file]=)

# Puts the product in place with these settings, under whichever service manager there is, and starts the log
# writer alone. Every setting is in the file, so that a missing one is none of what is tested.
settings_begin() { # [KEY=VALUE ...]
  local pairs=(arch_count_enable=0 arch_fmt=db arch_compress=0) key
  for key in "${!WANTED[@]}"; do
    case $key in *_enable) ;; *) pairs+=("$key=${WANTED[$key]}") ;; esac
  done
  if [ -n "${OMBREL_BOOT:-}" ]; then
    "$TOP/scripts/install-layout" "$BUILD"
    mkdir -p "$LOGS"
    write_settings "${pairs[@]}" "$@"
  else
    road_begin "${pairs[@]}" "$@"
  fi
  mkdir -p $TLS
  "$OMBREL" job start pkg-Ombrel-syslog || fail "the log writer does not start"
}

make_certificate() { # NAME [DAYS]
  openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days "${2:-2}" -subj "/CN=$1" \
    -keyout "$TLS/$1.key" -out "$TLS/$1.pem" 2>/tmp/openssl.err || fail "no certificate: $(cat /tmp/openssl.err)"
}

want() { # KEY=VALUE ...
  local pair
  for pair in "$@"; do WANTED[${pair%%=*}]=${pair#*=}; done
}

# Applies and holds everything against what is wanted now.
apply() { # KEY=VALUE ...
  "$OMBREL" settings set "$@" || fail "cannot be applied: $*"
  want "$@"
  agree
}

# PROTOCOL/PORT of a receiver, whether it is on or off.
declared_of() { # server|server_ietf
  [ "${WANTED[$1_trans]}" = udp ] && echo "udp/${WANTED[$1_port]}" || echo "tcp/${WANTED[$1_port]}"
}

# What takes connections or datagrams from other machines.
listening() {
  ss -Hlntu | awk '$5 !~ /^(127\.|\[::1\])/ { n = split($5, parts, ":"); print $1 "/" parts[n] }' | sort -u
}
wanted_sockets() {
  [ "${WANTED[bsd_enable]}" = 0 ] || declared_of server
  [ "${WANTED[ietf_enable]}" = 0 ] || declared_of server_ietf
}

sections() {
  awk -F '"' '/^\[/ { name = substr($0, 2, length($0) - 2) } /^(protocol|port|description)=/ { split($1, k, "="); v[k[1]] = $2 }
    /^port=|^protocol=|^description=/ { if (++n == 3) { print name " " v["protocol"] "/" v["port"] " " v["description"]; n = 0 } }' \
    "$DECLARED" | sort
}
wanted_sections() {
  if [ "$(declared_of server)" = "$(declared_of server_ietf)" ]; then
    echo "syslog_server $(declared_of server) BSD/IETF log receiving of Ombrel"
  else
    echo "syslog_server $(declared_of server) BSD log receiving of Ombrel"
    echo "syslog_server_ietf $(declared_of server_ietf) IETF log receiving of Ombrel"
  fi
}

# The ports that the firewall lets pass, but for the one that it always does. Neighbours are one range there.
opened() {
  nft list set inet ombrel open_ports | tr -d '\n\t' | sed -n 's/.*elements = {\([^}]*\)}.*/\1/p' | tr ',' '\n' |
    awk '{ last = split($3, ends, "-"); for (port = ends[1]; port <= ends[last]; port++) print $1 "/" port }' |
    grep -vx tcp/22 | sort -u
}

expect_services() { # JOB: of the file that says which jobs were switched on or off last
  local wanted=$1 line
  line=$(grep "^$wanted=" "$SERVICES" 2>/dev/null) || line="$wanted=\"no\"" # never switched
  case $wanted in *bsd) wanted=bsd_enable ;; *ietf) wanted=ietf_enable ;; esac
  expect_equal "$1 in enable_services" "$([ "${WANTED[$wanted]}" = 1 ] && echo yes || echo no)" \
    "$(printf %s "$line" | cut -d '"' -f 2)"
}

agree() {
  local key
  expect_equal "sockets" "$(wanted_sockets | sort -u)" "$(listening)"
  for key in "${!WANTED[@]}"; do
    case $key in
      *_enable) ;;
      *) expect_equal "$key in server.conf" "$key=\"${WANTED[$key]}\"" "$(grep "^$key=" "$CONF")" ;;
    esac
  done
  expect_equal "declared ports" "$(wanted_sections | sort)" "$(sections)"
  expect_equal "ports that the firewall opens" \
    "$({ declared_of server; declared_of server_ietf; } | sort -u)" "$(opened)"
  expect_services pkg-Ombrel-bsd
  expect_services pkg-Ombrel-ietf
  "$OMBREL" job status syslog-notify >/dev/null || fail "syslog-notify is not running"
}

events_of() { # KIND DESCRIPTION: how often it was entered
  { grep "\"$1\"" "$EVENTS" 2>/dev/null || true; } | grep -cF -- "$2" || true
}

# A message by logger, which knows no TLS, and five by loggen, to a receiver that is on; each has to become a row.
SENT=0
send_to() { # server|server_ietf
  local port=${WANTED[$1_port]} format=--rfc3164 words=() tag=mark-$((++SENT)) before
  before=$(rows_of "$WORKING")
  [ "$before" != none ] || before=0
  if [ "$1" = server_ietf ]; then format=--rfc5424 words=(--syslog-proto); fi
  if [ "${WANTED[$1_ssl]}" = 1 ]; then
    loggen --quiet --use-ssl "${words[@]}" --number 5 --rate 1000 127.0.0.1 "$port" >/tmp/loggen 2>&1 ||
      fail "loggen over TLS: $(cat /tmp/loggen)"
    await_rows $((before + 5))
    return
  fi
  local octets=()
  [ "$1" = server ] || octets=(--octet-count)
  if [ "${WANTED[$1_trans]}" = udp ]; then
    logger $format --udp --server 127.0.0.1 --port "$port" --tag "$tag" "text of $tag" || fail "logger"
    loggen --quiet --inet --dgram "${words[@]}" --number 5 --rate 1000 127.0.0.1 "$port" >/tmp/loggen 2>&1 || fail "loggen"
  else
    logger $format --tcp "${octets[@]}" --server 127.0.0.1 --port "$port" --tag "$tag" "text of $tag" || fail "logger"
    loggen --quiet --inet --stream "${words[@]}" --number 5 --rate 1000 127.0.0.1 "$port" >/tmp/loggen 2>&1 || fail "loggen"
  fi
  await_rows $((before + 6))
  expect_equal "rows of $tag" "$tag" \
    "$(ask "SELECT p.name FROM logs l JOIN programs p ON p.id = l.program WHERE l.msg LIKE '%text of $tag'")"
}
send_to_all() {
  [ "${WANTED[bsd_enable]}" = 0 ] || send_to server
  [ "${WANTED[ietf_enable]}" = 0 ] || send_to server_ietf
}
