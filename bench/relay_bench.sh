#!/usr/bin/env bash
# Sending through a relay, beside what two programs of Postfix send into the
# same sink (smtp-sink, on loopback) in the same run:
#
#   source    smtp-source: no files, no queue; a connection for each message
#   source-d  the same, connections kept
#   postfix   Postfix delivering its queue (root only)
#   lhv-0     listhaven send of a queue that a broadcast made; SyncFiles 0
#   lhv-1     the same with SyncFiles 1
#   memory    listhaven send of a tenth of the messages: its memory, to be held against that of lhv-0
#   delay     listhaven send over a line with a round trip of 200 ms: 50 connections beside one
#
# usage: bench/relay_bench.sh [-b BUILD] [-n MESSAGES] [-c CONNECTIONS] [-l BYTES] [-r RUNS] [CASE...]
#
# Prints the median of the runs.  The folder for temporary files (TMPDIR)
# decides which disk is measured.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/bench messages=20000 connections=10 bytes=10240 runs=3
while getopts b:n:c:l:r: option; do
  case $option in
    b) build=$OPTARG ;;
    n) messages=$OPTARG ;;
    c) connections=$OPTARG ;;
    l) bytes=$OPTARG ;;
    r) runs=$OPTARG ;;
    *) exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -gt 0 ] || set -- source source-d postfix lhv-0 lhv-1 memory delay
listhaven=$build/programs/listhaven/listhaven
work=$(mktemp -d "${TMPDIR:-/tmp}/relay-bench.XXXXXX")
chmod 755 "$work"
results=$work/results
: >"$results"
sink_pid="" proxy_pid=""

die() { echo "relay_bench: $*" >&2; exit 1; }
now() { date +%s.%N; }
per_second() { awk -v n="$1" -v a="$2" -v b="$3" 'BEGIN { printf "%.0f\n", n / (b - a) }'; }
answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
is_alive() { [ -n "$1" ] && kill -0 "$1" 2>/dev/null; }
note() { echo "$1 $2 $3" >>"$results"; }  # case, what, figure

cleanup() {
  set +e
  stop_postfix
  for pid in $sink_pid $proxy_pid; do kill "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Ports below those that the system gives to outgoing connections.
find_port() {
  local port
  while port=$((20000 + RANDOM % 10000)); do
    answers "$port" || { echo "$port"; return; }
  done
}

start_sink() {
  local as=()
  [ "$(id -u)" = 0 ] && as=(-u nobody)
  for _ in 1 2 3 4 5; do
    sink=$(find_port)
    smtp-sink -4 -h sink.example "${as[@]}" "127.0.0.1:$sink" 1000 >"$work/sink.log" 2>&1 </dev/null &
    sink_pid=$!
    while is_alive $sink_pid; do
      if answers "$sink"; then return; fi
      sleep 0.05
    done
  done
  die "smtp-sink does not start: $(cat "$work/sink.log")"
}

run_source() {  # case, options
  local name=$1 start
  shift
  start=$(now)
  smtp-source -4 "$@" -s "$connections" -m "$messages" -l "$bytes" -f list@lists.example -t member@there.example \
    "127.0.0.1:$sink"
  note "$name" rate "$(per_second "$messages" "$start" "$(now)")"
}

# --- Postfix: a private instance that relays everything to the sink -----------

# The queue manager is left out while the queue is filled.
write_postfix() {  # yes or no: with the queue manager
  local conf=$work/postfix/conf
  mkdir -p "$conf" "$work/postfix/queue" "$work/postfix/data" "$work/postfix/log"
  chown postfix "$work/postfix/data"
  cat >"$conf/main.cf" <<EOF
compatibility_level = 3.6
queue_directory = $work/postfix/queue
data_directory = $work/postfix/data
maillog_file = $work/postfix/log/mail
maillog_file_prefixes = $work
mail_owner = postfix
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = relay.example
mydestination =
mynetworks = 127.0.0.0/8
smtpd_relay_restrictions = permit_mynetworks, reject
alias_maps =
alias_database =
local_recipient_maps =
relayhost = [127.0.0.1]:$sink
smtp_dns_support_level = disabled
smtp_tls_security_level = none
smtp_tls_session_cache_database =
smtpd_tls_session_cache_database =
in_flow_delay = 0
default_process_limit = 200
initial_destination_concurrency = $connections
default_destination_concurrency_limit = $connections
smtp_destination_concurrency_limit = $connections
qmgr_message_active_limit = $((messages + 1000))
qmgr_message_recipient_limit = $((messages + 1000))
EOF
  cat >"$conf/master.cf" <<EOF
127.0.0.1:$postfix_port inet n - n - - smtpd
cleanup unix n - n - 0 cleanup
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
flush unix n - n 1000? 0 flush
proxymap unix - - n - - proxymap
smtp unix - - n - - smtp
anvil unix - - n - 1 anvil
scache unix - - n - 1 scache
postlog unix-dgram n - n - 1 postlogd
EOF
  [ "$1" = no ] || echo "qmgr unix n - n 300 1 qmgr" >>"$conf/master.cf"
}

postfix_master() { tr -dc 0-9 <"$work/postfix/queue/pid/master.pid"; }

stop_postfix() {
  [ -e "$work/postfix/queue/pid/master.pid" ] || return 0
  local pid
  pid=$(postfix_master)
  kill "$pid" 2>/dev/null || return 0
  while [ -d "/proc/$pid" ] && ! grep -q '^State:.Z' "/proc/$pid/status" 2>/dev/null; do sleep 0.05; done
  rm -f "$work/postfix/queue/pid/master.pid"
}

is_queue_empty() {
  local folder
  for folder in incoming active deferred; do
    [ -z "$(find "$work/postfix/queue/$folder" -type f -print -quit 2>/dev/null)" ] || return 1
  done
}

run_postfix() {
  [ "$(id -u)" = 0 ] || { echo "postfix: left out, it needs root"; return; }
  rm -rf "$work/postfix"
  postfix_port=$(find_port)
  write_postfix no
  postfix -c "$work/postfix/conf" start >"$work/postfix.start" 2>&1 </dev/null || die "$(cat "$work/postfix.start")"
  until answers "$postfix_port"; do sleep 0.05; done
  smtp-source -4 -d -N -s 20 -m "$messages" -l "$bytes" -f list@lists.example -t member@there.example \
    "127.0.0.1:$postfix_port"
  sync
  write_postfix yes
  local start
  start=$(now)
  kill -HUP "$(postfix_master)"
  until is_queue_empty; do sleep 0.05; done
  note postfix rate "$(per_second "$messages" "$start" "$(now)")"
  stop_postfix
  local sent
  sent=$(grep -c 'status=sent' "$work/postfix/log/mail" || true)
  [ "$sent" = "$messages" ] || die "Postfix sent $sent of $messages"
  note postfix connections "$(grep -o 'conn_use=[0-9]*' "$work/postfix/log/mail" | wc -l)"
}

# --- listhaven ----------------------------------------------------------------

lhv() { LISTHAVEN_DATA_FOLDER="$work/data" "$listhaven" "$@"; }

make_list() {  # messages, connections, port
  rm -rf "$work/data"
  lhv list create Relay --email list@lists.example --kind announcement >/dev/null
  lhv settings set Execution GenerationPause 0 >/dev/null
  lhv settings set Execution SyncFiles 0 >/dev/null
  lhv settings set Service SmtpPort "$3" >/dev/null
  lhv list set Relay smtpHost 127.0.0.1 >/dev/null
  lhv list set Relay maxConnections "$2" >/dev/null
  lhv account set Relay SendMethod SmtpMessageSender2 >/dev/null
  lhv account set Relay TlsMode None >/dev/null
  seq -f 'member%.0f@there.example' "$1" | (echo E-mail; cat) >"$work/members.csv"
  lhv member import Relay "$work/members.csv" >/dev/null
}

make_queue() {  # messages, connections, port
  make_list "$@"
  {
    printf 'From: list@lists.example\nTo: list@lists.example\nSubject: News for $(To)\n'
    printf 'MIME-Version: 1.0\nContent-Type: text/plain; charset=us-ascii\n\n'
    # 80 bytes a line on the way, as smtp-source has.
    awk -v n=$(((bytes - 400) / 80)) 'BEGIN { while (n-- > 0) printf "%078d\n", n }'
  } >"$work/message.eml"
  lhv broadcast "$work/message.eml" --list Relay | grep "done: $1 copies" >/dev/null || die "the queue was not made"
  sync
}

send_queue() {  # case, messages: rate, CPU seconds for 1,000 messages, memory in MiB
  local took
  LISTHAVEN_DATA_FOLDER="$work/data" command time -o "$work/time" -f '%e %U %S %M' "$listhaven" send >"$work/sent" ||
    die "$1: $(cat "$work/sent")"
  grep -q "^$2 sent, 0 failed" "$work/sent" || die "$1: $(cat "$work/sent")"
  took=$(cat "$work/time")
  note "$1" rate "$(awk -v n="$2" '{ printf "%.1f\n", n / $1 }' <<<"$took")"
  note "$1" cpu "$(awk -v n="$2" '{ printf "%.3f\n", ($2 + $3) * 1000 / n }' <<<"$took")"
  note "$1" memory "$(awk '{ printf "%.1f\n", $4 / 1024 }' <<<"$took")"
}

run_listhaven() {  # case, SyncFiles, messages
  make_queue "$3" "$connections" "$sink"
  lhv settings set Execution SyncFiles "$2" >/dev/null
  send_queue "$1" "$3"
}

run_delay() {
  local each=40 many=50
  rm -f "$work/proxy"
  "$build/bench/delay_proxy" "$sink" 100 >"$work/proxy" &
  proxy_pid=$!
  until [ -s "$work/proxy" ]; do is_alive $proxy_pid || die "delay_proxy does not start"; sleep 0.05; done
  make_queue $each 1 "$(cat "$work/proxy")"
  send_queue delay-1 $each
  make_queue $((each * many)) $many "$(cat "$work/proxy")"
  send_queue delay-$many $((each * many))
  kill $proxy_pid
  wait $proxy_pid 2>/dev/null || true
  proxy_pid=""
}

run_case() {
  case $1 in
    source) run_source source ;;
    source-d) run_source source-d -d ;;
    postfix) run_postfix ;;
    lhv-0) run_listhaven lhv-0 0 "$messages" ;;
    lhv-1) run_listhaven lhv-1 1 "$messages" ;;
    memory) run_listhaven memory 0 $((messages / 10)) ;;
    delay) run_delay ;;
    *) die "there is no case $1" ;;
  esac
}

median() {  # case, what
  awk -v c="$1" -v w="$2" '$1 == c && $2 == w { print $3 }' "$results" | sort -n |
    awk '{ v[NR] = $1 } END { if (NR) print v[int((NR + 1) / 2)] }'
}

print_table() {
  local name
  echo "$messages messages of $bytes bytes, $connections connections, median of $runs"
  printf '%-10s %12s %16s %10s %s\n' case messages/s "CPU s/1,000" MiB "(all rates)"
  for name in $(cut -d ' ' -f 1 "$results" | sort -u); do
    printf '%-10s %12s %16s %10s %s\n' "$name" "$(median "$name" rate)" "$(median "$name" cpu)" \
      "$(median "$name" memory)" "($(awk -v c="$name" '$1 == c && $2 == "rate" { print $3 }' "$results" | xargs))"
  done
}

# A is to reach a share of B.
compare() {  # A, B, factor of B, to reach
  local a b
  a=$(median "$1" rate) b=$(median "$2" rate)
  [ -n "$a" ] && [ -n "$b" ] || return 0
  awk -v a="$a" -v b="$b" -v f="$3" -v t="$4" -v n="$1 / ($3 x $2)" \
    'BEGIN { q = a / (b * f); printf "%-24s %.2f, to reach %s: %s\n", n, q, t, (q >= t) ? "yes" : "NO" }'
}

[ -x "$listhaven" ] || die "$listhaven is not built: cmake --preset bench && cmake --build --preset bench"
start_sink
# Every second run goes backwards, so that no case is always the first.
order=("$@")
for ((run = 1; run <= runs; ++run)); do
  for name in "${order[@]}"; do
    echo "run $run: $name" >&2
    run_case "$name"
  done
  mapfile -t order < <(printf '%s\n' "${order[@]}" | tac)
done
print_table
compare lhv-0 source 1 0.5
compare lhv-0 postfix 1 1
compare lhv-1 postfix 1 1
compare delay-50 delay-1 50 0.9
