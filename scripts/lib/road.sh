# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: the Ombrel authors
#
# The archiving road inside a private root: settings, supervisor, jobs, archiving. To be sourced there, with
# TOP naming the project and BUILD the build folder.

PACKAGE=/var/packages/Ombrel/target
CONF=$PACKAGE/service/conf/server.conf
LOGS=/srv/logs
BIN=$BUILD/bin
OMBREL=$PACKAGE/tool/ombrel
# The one takes TCP, the other datagrams, on the same port; both take both formats.
RECEIVERS="bsd ietf"

say() { printf '\n\033[1m%s\033[0m\n' "$*"; }
die() { echo "$*" >&2; exit 1; }

# write_settings [KEY=VALUE ...]: the settings file, with what differs from the usual.
write_settings() {
  local -A settings=(
    [server_port]=5514 [server_trans]=tcp [server_ssl]=0
    [server_ietf_port]=5514 [server_ietf_trans]=udp [server_ietf_ssl]=0
    [server_db_loc]=logs [server_db_path]=/srv/logs [server_ca_key]= [server_ca_file]=
    [arch_dest]=$LOGS [arch_time]=86400 [arch_time_enable]=0 [arch_size]=0
    [arch_count]=20000 [arch_count_enable]=1 [arch_fmt]=txt [arch_compress]=1
    [arch_by_device]=0 [arch_last_time]=0 [system_flush_line]=2000 [system_flush_timeout]=1)
  local pair key
  for pair in "$@"; do settings[${pair%%=*}]=${pair#*=}; done
  for key in "${!settings[@]}"; do printf '%s="%s"\n' "$key" "${settings[$key]}"; done | sort >"$CONF.new"
  mv "$CONF.new" "$CONF"
}

# road_begin [KEY=VALUE ...]: puts everything in place and goes on, from the top of the same script, under the
# supervisor; no job is started yet.
road_begin() {
  [ -z "${ROAD_SUPERVISED:-}" ] || return 0
  "$TOP/scripts/install-layout" "$BUILD"
  mkdir -p "$LOGS"
  write_settings "$@"
  export ROAD_SUPERVISED=1
  exec "$TOP/scripts/start-supervisor" "$0" "$BUILD"
}

start_jobs() {
  local job
  for job in pkg-Ombrel-syslog pkg-Ombrel-bsd pkg-Ombrel-ietf; do "$OMBREL" job start $job || die "$job does not start"; done
}

# Datagrams that the kernel had no room for since this machine (network namespace) began.
udp_dropped() {
  awk '/^Udp: [0-9]/ { print $6 + 0 }' /proc/net/snmp
}

# Bytes of datagrams to PORT that wait in the kernel.
udp_waiting() {
  local port local_address queues sum=0
  port=$(printf ':%04X' "$1")
  while read -r _ local_address _ _ queues _; do
    [ "${local_address: -5}" != "$port" ] || sum=$((sum + 16#${queues#*:}))
  done < <(cat /proc/net/udp /proc/net/udp6)
  echo $sum
}

# Lines that the receivers hold for the log writer; one that does not run holds none.
receiver_queued() {
  local name
  for name in $RECEIVERS custrule; do
    syslog-ng-ctl stats --control=$PACKAGE/service/run/$name/control 2>/dev/null || true
  done |
    awk -F ';' '$1 ~ /^dst/ && $5 == "queued" { sum += $6 } END { print sum + 0 }'
}

# Waits, 60 s at most, until all that was sent has been read and handed to the log writer. There is no event
# to wait for: both are numbers that somebody has to ask for.
await_handed_over() {
  local tries=600
  while [ "$(udp_waiting 5514)" != 0 ] || [ "$(receiver_queued)" != 0 ]; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || die "the receivers still hold $(receiver_queued) lines"
    read -rt 0.1 <> <(:) || true
  done
}

# Ends the receivers first, which wait for the answers to their last batches, then the log writer.
stop_jobs() {
  local job
  await_handed_over
  ! "$OMBREL" job status pkg-Ombrel-custrule >/dev/null || "$OMBREL" job stop pkg-Ombrel-custrule ||
    die "pkg-Ombrel-custrule does not stop"
  for job in pkg-Ombrel-bsd pkg-Ombrel-ietf pkg-Ombrel-syslog; do "$OMBREL" job stop $job || die "$job does not stop"; done
}
