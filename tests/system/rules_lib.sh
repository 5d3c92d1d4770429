# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# Receiving rules on a running machine, and all the places that have to agree on them. To be sourced after
# settings_lib.sh.

RULES=$PACKAGE/service/conf/custrule.conf
RULE_JOB=pkg-Ombrel-custrule
RULE_RUN=$PACKAGE/service/run/custrule
RULE_TEXT="Customized log receiving of Ombrel"
RULE_TOOL=$BIN/rule-tool
SYSTEM_LOG=/tmp/system.log

# The rules that are wanted, in the order of the file; FORMAT|PROTOCOL|PORT|SSL|ENABLE of each. Those in LEFT_OUT are
# not served although they are on.
ORDER=()
declare -A RULE=() LEFT_OUT=()

# Settings, a system log, log writer and the receiver of BSD messages, and a certificate; the rules' job runs without
# any rule.
rules_begin() { # [KEY=VALUE ...]
  settings_begin system_flush_line=200 "$@"
  "$BIN/collect-datagrams" /dev/log >>$SYSTEM_LOG &
  trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
  await "a system log" test -S /dev/log
  make_certificate box
  apply bsd_enable=1 server_ca_key=$TLS/box.key server_ca_file=$TLS/box.pem
  "$OMBREL" job start $RULE_JOB || fail "$RULE_JOB does not start without a rule"
  # The database is there before anything is looked for in it.
  "$BIN/device-sender" --stream first --count 1 >/dev/null
  await_rows 1
}

restart_rules() { "$OMBREL" job restart $RULE_JOB || fail "$RULE_JOB does not restart${1:+: $1}"; }

# A section as the library writes it.
rule_section() { # NAME FORMAT PROTOCOL PORT SSL ENABLE
  printf '[%s]\nformat="%s"\nprotocol="%s"\nport="%s"\nssl="%s"\nenable="%s"\n' "$@"
}
want_rule() { # NAME FORMAT PROTOCOL PORT SSL ENABLE
  local IFS='|'
  RULE[$1]="${*:2}"
}
wanted_file() {
  local name words
  for name in "${ORDER[@]}"; do
    IFS='|' read -ra words <<<"${RULE[$name]}"
    rule_section "$name" "${words[@]}"
  done
}
transport_of() { # PROTOCOL: as it is declared
  [ "$1" = udp ] && echo udp || echo tcp
}
wanted_rule_sections() {
  local name protocol port
  for name in "${ORDER[@]}"; do
    IFS='|' read -r _ protocol port _ <<<"${RULE[$name]}"
    echo "$name $(transport_of "$protocol")/$port $RULE_TEXT"
  done
}
served_rules() {
  local name enable
  for name in "${ORDER[@]}"; do
    IFS='|' read -r _ _ _ _ enable <<<"${RULE[$name]}"
    [ "$enable" != yes ] || [ -n "${LEFT_OUT[$name]:-}" ] || echo "$name"
  done
}
wanted_rule_sockets() {
  local name protocol port
  while read -r name; do
    IFS='|' read -r _ protocol port _ <<<"${RULE[$name]}"
    echo "$(transport_of "$protocol")/$port"
  done < <(served_rules)
}

sockets_agree() { [ "$({ wanted_sockets; wanted_rule_sockets; } | sort -u)" = "$(listening)" ]; }
expect_rule_sockets() {
  expect_equal "sockets" "$({ wanted_sockets; wanted_rule_sockets; } | sort -u)" "$(listening)"
}
# The rules' sockets, file, declared ports and open ports are as wanted, and the job runs.
rules_agree() {
  "$OMBREL" job status $RULE_JOB >/dev/null || fail "$RULE_JOB does not run"
  expect_rule_sockets
  wanted_file >/tmp/wanted.conf
  [ ${#ORDER[@]} = 0 ] || cmp /tmp/wanted.conf "$RULES" >&2 || fail "the file of the rules differs: $(diff /tmp/wanted.conf "$RULES")"
  expect_equal "declared ports" "$({ wanted_sections; wanted_rule_sections; } | sort)" "$(sections)"
  expect_equal "ports that the firewall opens" \
    "$({ wanted_sections; wanted_rule_sections; } | grep -oE '(tcp|udp)/[0-9]+' | sort -u)" "$(opened)"
}

# What is done to the rules, and to what is wanted.
rule_tool() {
  "$RULE_TOOL" "$@" >/tmp/out 2>/tmp/err || fail "rule-tool $*: $(cat /tmp/out /tmp/err)"
}
add_rule() { # NAME FORMAT PROTOCOL PORT SSL ENABLE
  rule_tool add "$@"
  ORDER+=("$1")
  want_rule "$@"
}
set_rule() { # OLDNAME NAME FORMAT PROTOCOL PORT SSL ENABLE
  local i
  rule_tool set "$@"
  unset 'RULE[$1]'
  for i in "${!ORDER[@]}"; do [ "${ORDER[i]}" != "$1" ] || ORDER[i]=$2; done
  want_rule "${@:2}"
}
del_rule() { # NAME
  local i
  rule_tool del "$1"
  unset 'RULE[$1]'
  for i in "${!ORDER[@]}"; do [ "${ORDER[i]}" != "$1" ] || unset "ORDER[i]"; done
  ORDER=("${ORDER[@]}")
}
switch_rule() { # NAME yes|no
  rule_tool control "$1" "$([ "$2" = yes ] && echo 0 || echo 1)"
  RULE[$1]="${RULE[$1]%|*}|$2"
}
# Rules that are written by hand, which may be what no command line would take; nobody has declared their ports.
place_rule() { # NAME FORMAT PROTOCOL PORT SSL ENABLE
  ORDER+=("$1")
  want_rule "$@"
}
leave_out() { # the same; it is not served although it is on
  place_rule "$@"
  LEFT_OUT[$1]=yes
}
write_rules() { # reads sections
  cat >"$RULES.new"
  mv "$RULES.new" "$RULES"
}
apply_placed() {
  wanted_file | write_rules
  restart_rules
  expect_rule_sockets
}

frame() { printf '%s %s' "$(printf %s "$1" | wc -c)" "$1"; }
# As one who speaks this format over this transport.
send_to_rule() { # FORMAT PROTOCOL PORT SSL MESSAGE
  local format=${1,,} message=$5
  if [ "$2" = udp ]; then
    printf %s "$message" >/dev/udp/127.0.0.1/"$3" || fail "no datagram to port $3"
    return
  fi
  { [ "$format" = ietf ] && frame "$message" || printf '%s\n' "$message"; } >/tmp/message
  if [ "$4" = yes ]; then
    openssl s_client -connect "127.0.0.1:$3" -CAfile $TLS/box.pem -verify_return_error -quiet -nocommands \
      -no_ign_eof </tmp/message >/tmp/openssl.out 2>&1 || fail "TLS connection to port $3: $(cat /tmp/openssl.out)"
  else
    cat /tmp/message >"/dev/tcp/127.0.0.1/$3" || fail "no connection to port $3"
  fi
}

# Sends one message to each of these rules, or to each that is served, and looks at the rows. Each message has another
# host, program, facility and severity, and is an hour old, so that what is taken apart cannot pass for what is kept whole.
MARKS=0
FACILITIES=(kern user mail daemon auth syslog lpr news uucp cron authpriv ftp ntp security console solaris-cron
  local0 local1 local2 local3 local4 local5 local6 local7)
rules_arrive() { # [NAME...]
  local name names last before format protocol port ssl mark pri sent host program message
  names=("$@")
  [ $# -gt 0 ] || mapfile -t names < <(served_rules)
  last=$(ask 'SELECT coalesce(max(id), 0) FROM logs')
  before=$(date +%s)
  : >/tmp/expected
  for name in "${names[@]}"; do
    IFS='|' read -r format protocol port ssl _ <<<"${RULE[$name]}"
    mark=mark-$((++MARKS))
    pri=$((MARKS * 37 % 192)) sent=$((before - 3600 - MARKS)) host=box-$MARKS program=prog$MARKS
    if [ "${format,,}" = ietf ]; then
      message="<$pri>1 $(date -u -d @$sent +%FT%TZ) $host $program $MARKS - - text of $mark."
    else
      message="<$pri>$(date -d @$sent '+%b %e %T') $host ${program}[$MARKS]: text of $mark."
    fi
    send_to_rule "$format" "$protocol" "$port" "$ssl" "$message"
    if [ "${format,,}" = raw ]; then
      echo "127.0.0.1||user|5||received|$message" >>/tmp/expected
    else
      echo "$host|$program|${FACILITIES[pri / 8]}|$((pri % 8))|$MARKS|$sent|text of $mark." >>/tmp/expected
    fi
  done
  await "${#names[@]} rows of the rules" rows_behind "$last" ${#names[@]}
  ask "SELECT h.name, p.name, f.name, severity, coalesce(pid, ''),
      CASE WHEN utcsec = rutcsec AND utcsec >= $before THEN 'received' ELSE utcsec END, msg
    FROM logs JOIN hosts h ON h.id = host JOIN programs p ON p.id = program JOIN facilities f ON f.id = facility
    WHERE logs.id > $last AND msg LIKE '%text of mark-%'" >/tmp/rows
  expect_equal "rows" "$(sort /tmp/expected)" "$(sort /tmp/rows)"
}
rows_behind() { # ID N: so many rows of the rules, or more
  [ "$(ask "SELECT count(*) FROM logs WHERE id > $1 AND msg LIKE '%text of mark-%'")" -ge "$2" ]
}

# A rule that is not served is told in one line with all of these words, in the system log and in the job's own.
told() { # WORDS...
  await "a line in the system log with: $*" line_with $SYSTEM_LOG "$@"
  await "a line in the log of the job with: $*" line_with $PACKAGE/service/log/$RULE_JOB/current "$@"
}
line_with() { # FILE WORDS...
  local lines words
  lines=$(cat "$1" 2>/dev/null) || return 1
  shift
  for words in "$@"; do lines=$(grep -aF -- "$words" <<<"$lines") || return 1; done
}

# A flow of lines to the receiver of BSD messages, which the rules are no business of.
FLOW_COUNT=6000
flow_begin() {
  rm -f /tmp/flow.end
  (
    rounds=0
    until [ -e /tmp/flow.end ]; do
      "$BIN/device-sender" --stream flow$rounds --count $FLOW_COUNT --rate 3000 >/dev/null || exit 1
      rounds=$((rounds + 1))
    done
    echo $rounds >/tmp/flow.rounds
  ) &
  FLOW=$!
  bsd_process=$(cat $PACKAGE/service/run/bsd/pid)
}
# Nothing of it was lost or doubled, and its receiver is the one that it was. Ends all jobs.
flow_end() {
  local streams=() round
  touch /tmp/flow.end
  wait $FLOW || fail "the flow to the receiver of BSD messages was cut off"
  expect_equal "process of the receiver of BSD messages" "$bsd_process" "$(cat $PACKAGE/service/run/bsd/pid)"
  for ((round = 0; round < $(cat /tmp/flow.rounds); round++)); do streams+=("flow$round=$FLOW_COUNT"); done
  "$OMBREL" job stop $RULE_JOB || fail "$RULE_JOB does not stop"
  stop_jobs
  "$BIN/archive-audit" "$LOGS" "${streams[@]}" >/tmp/audit || { cat /tmp/audit; fail "messages are missing, doubled or damaged"; }
  echo "$((round * FLOW_COUNT)) lines went by meanwhile"
}
