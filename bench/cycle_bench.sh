#!/usr/bin/env bash
# A mail-processing cycle over a full mailbox of Dovecot (on loopback), beside a
# plain loop of Python's poplib that fetches the same messages and does nothing:
#
#   poplib     LIST, UIDL, RETR of every message
#   cycle      listhaven receive: subscribe requests, posts and bounces, a third each;
#              copies of the posts are made for one member, the others read the digest
#   subscribe, post, bounce   listhaven receive: messages of that kind only
#   members    requests and confirmations on a list of a million members beside one of ten
#   memory     lhvserver after 1,000 messages and after 100 times as many
#
# usage: bench/cycle_bench.sh [-b BUILD] [-n MESSAGES] [-l BYTES] [-r RUNS] [-m MEMBERS] [-M MESSAGES] [CASE...]
#
# Every second run goes backwards.  Prints the median of the runs.  TMPDIR
# decides which disk is measured.  Nothing is deleted before the end, and each run
# has another part of the disk where the file system can do that (chattr +T): ext4
# without a journal looks at every file deleted in the last minutes, up to five,
# before it makes a new one.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/bench messages=10000 bytes=5120 runs=3 members=1000000 processed=1000
while getopts b:n:l:r:m:M: option; do
  case $option in
    b) build=$OPTARG ;;
    n) messages=$OPTARG ;;
    l) bytes=$OPTARG ;;
    r) runs=$OPTARG ;;
    m) members=$OPTARG ;;
    M) processed=$OPTARG ;;
    *) exit 2 ;;
  esac
done
shift $((OPTIND - 1))
[ $# -gt 0 ] || set -- poplib cycle subscribe post bounce members memory
listhaven=$build/programs/listhaven/listhaven
lhvserver=$build/programs/lhvserver/lhvserver
work=$(mktemp -d "${TMPDIR:-/tmp}/cycle-bench.XXXXXX")
chmod 755 "$work"
chattr +T "$work" 2>/dev/null || true
results=$work/results
: >"$results"
dovecot_pid="" server_pid=""

die() { echo "cycle_bench: $*" >&2; exit 1; }
now() { date +%s.%N; }
since() { awk -v a="$1" -v b="$(now)" 'BEGIN { printf "%.3f\n", b - a }'; }
answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
note() { echo "$1 $2" >>"$results"; }  # case, figure
mail() { python3 bench/cycle_mail.py "$@"; }
lhv() { LISTHAVEN_DATA_FOLDER="$work/data" "$listhaven" "$@"; }

end_process() {  # its id: asked first
  [ -n "$1" ] && kill "$1" 2>/dev/null || return 0
  wait "$1" 2>/dev/null || true
}
cleanup() {
  set +e
  end_process "$server_pid"
  end_process "$dovecot_pid"
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

# Mail belongs to nobody when root runs this: Dovecot does not let root own any.
start_dovecot() {
  local user=()
  if [ "$(id -u)" = 0 ]; then
    user=("mail_uid = 65534" "mail_gid = 65534")
  else
    user=("default_internal_user = $(id -un)" "default_internal_group = $(id -gn)" "default_login_user = $(id -un)"
      "mail_uid = $(id -un)" "mail_gid = $(id -gn)" "service anvil { chroot = }" "service stats { chroot = }")
  fi
  port=$(find_port)
  mkdir -p "$work/dovecot/state"
  echo "crew:{PLAIN}pw" >"$work/dovecot/users"
  cat >"$work/dovecot/conf" <<EOF
base_dir = $work/dovecot/run
state_dir = $work/dovecot/state
instance_name = cycle-bench
log_path = $work/dovecot/log
protocols = pop3
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
auth_mechanisms = plain
mail_location = maildir:$work/mail/%u
first_valid_uid = 1
first_valid_gid = 1
passdb {
  driver = passwd-file
  args = scheme=PLAIN username_format=%u $work/dovecot/users
}
userdb {
  driver = static
  args = home=$work/mail/%u
}
service pop3-login {
  chroot =
  inet_listener pop3 {
    port = $port
  }
}
$(printf '%s\n' "${user[@]}" | sed 's/{ chroot = }/{\n  chroot =\n}/')
EOF
  dovecot -F -c "$work/dovecot/conf" >"$work/dovecot/out" 2>&1 </dev/null &
  dovecot_pid=$!
  until answers "$port"; do
    kill -0 $dovecot_pid 2>/dev/null || die "dovecot does not start: $(cat "$work/dovecot/out" "$work/dovecot/log")"
    sleep 0.05
  done
}

# An empty folder of that name; what had the name stays until the end.
part=0
fresh() {
  part=$((part + 1))
  mkdir -p "$work/part.$part/$1"
  ln -sfn "part.$part/$1" "$work/$1"
}

# An empty mailbox; new messages are added with "deliver".
make_mailbox() {
  fresh mail
  mkdir -p "$work/mail/crew/"{cur,new,tmp}
  chmod -R a+rwx "$work/mail"
}
deliver() {  # arguments of cycle_mail.py
  mail "$@"
  chmod -R a+r "$work/mail/crew/new"
}
is_mailbox_empty() { [ -z "$(find "$work/mail/crew/new" "$work/mail/crew/cur" -type f -print -quit)" ]; }

make_list() {  # members
  fresh data
  lhv list create Crew --email crew@lists.example --command-email crew+cmd@lists.example >/dev/null
  lhv list set Crew popHost 127.0.0.1 >/dev/null
  lhv list set Crew popLogin crew >/dev/null
  lhv list set Crew popPassword pw >/dev/null
  lhv settings set Service Pop3Port "$port" >/dev/null
  lhv settings set Execution GenerationPause 0 >/dev/null
  lhv account set Crew SendMethod NullMessageSender >/dev/null
  lhv account set Crew NullSenderWait 0 >/dev/null
  mkdir -p "$work/sent"
  lhv account set Crew TargetFolder "$work/sent" >/dev/null
  seq 0 $(($1 - 1)) | awk 'BEGIN { print "E-mail,Mode" } { print "member" $1 "@there.example," ($1 ? "digest" : "regular") }' \
    >"$work/members.csv"
  lhv member import Crew "$work/members.csv" >/dev/null
}

receive() {  # case
  local start
  sync
  start=$(now)
  lhv receive Crew --json >"$work/received" || die "$1: $(cat "$work/received")"
  note "$1" "$(since "$start")"
  is_mailbox_empty || die "$1: messages are left in the mailbox"
}

run_poplib() {
  local start
  make_mailbox
  deliver fill "$work/mail/crew/new" "$messages" "$bytes" mixed
  sync
  start=$(now)
  mail fetch "$port" crew pw >"$work/fetched"
  note poplib "$(since "$start")"
  grep -q "^$messages " "$work/fetched" || die "poplib fetched $(cat "$work/fetched")"
}

run_cycle() {  # case, kind
  make_list 10
  make_mailbox
  deliver fill "$work/mail/crew/new" "$messages" "$bytes" "$2"
  receive "$1"
  grep -q "\"fetched\":$messages,\"processed\":$messages," "$work/received" || die "$1: $(cat "$work/received")"
}

# A tenth of the messages: requests, then the confirmations of all of them.
run_members() {
  local count
  for count in 10 "$members"; do
    make_list "$count"
    make_mailbox
    deliver fill "$work/mail/crew/new" $((messages / 10)) "$bytes" subscribe
    receive "requests-$count"
    make_mailbox
    [ "$(deliver replies "$work/data/SendDaemon/1" "$work/mail/crew/new" "$bytes")" = $((messages / 10)) ] ||
      die "not everybody was asked"
    receive "confirmations-$count"
    lhv list ls --json | grep -q "\"members\":$((count + messages / 10))" || die "not everybody was added"
  done
}

memory_of() { awk -v what="$2:" '$1 == what { printf "%.2f\n", $2 / 1024 }' "/proc/$1/status"; }

# Of the server with its send daemon at rest: mailbox, inbox and queues are empty,
# all broadcasts are done, and nothing has happened for a while.
run_memory() {
  local next=0 total
  make_list 10
  make_mailbox
  lhv settings set Service Period 1 >/dev/null
  LISTHAVEN_DATA_FOLDER="$work/data" "$lhvserver" run >"$work/server" 2>&1 &
  server_pid=$!
  for total in "$processed" $((processed * 100)); do
    deliver fill "$work/mail/crew/new" $((total - next)) "$bytes" mixed "$next"
    next=$total
    until is_mailbox_empty && [ -z "$(find "$work/data/Inbox" -name '*.eml' -print -quit)" ] &&
      lhv queue ls --json | grep -q '"waiting":0,"claimed":0' &&
      ! lhv broadcast ls --json | grep -qE '"state":"(running|interrupted)"'; do
      kill -0 $server_pid 2>/dev/null || die "the server has ended: $(cat "$work/server")"
      sleep 1
    done
    sleep 25
    note "memory-$total" "$(memory_of $server_pid VmRSS)"
    note "own-memory-$total" "$(memory_of $server_pid RssAnon)"
  done
  end_process $server_pid
  server_pid=""
}

run_case() {
  case $1 in
    poplib) run_poplib ;;
    cycle) run_cycle cycle mixed ;;
    subscribe | post | bounce) run_cycle "$1" "$1" ;;
    members) run_members ;;
    memory) run_memory ;;
    *) die "there is no case $1" ;;
  esac
}

median() {  # case
  awk -v c="$1" '$1 == c { print $2 }' "$results" | sort -n | awk '{ v[NR] = $1 } END { if (NR) print v[int((NR + 1) / 2)] }'
}

# A may be so many times B.
compare() {  # A, B, times
  local a b
  a=$(median "$1") b=$(median "$2")
  [ -n "$a" ] && [ -n "$b" ] || return 0
  awk -v a="$a" -v b="$b" -v t="$3" -v n="$1 / $2" \
    'BEGIN { q = a / b; printf "%-40s %.2f, at most %s: %s\n", n, q, t, (q <= t) ? "yes" : "NO" }'
}

[ -x "$listhaven" ] && [ -x "$lhvserver" ] || die "$build is not built: cmake --preset bench && cmake --build --preset bench"
start_dovecot
order=("$@")
for ((run = 1; run <= runs; ++run)); do
  for name in "${order[@]}"; do
    # These say the same each time, or take long.
    if [ "$run" -gt 1 ] && [[ $name = memory ]]; then continue; fi
    echo "run $run: $name" >&2
    run_case "$name"
  done
  mapfile -t order < <(printf '%s\n' "${order[@]}" | tac)
done
echo "$messages messages of $bytes bytes, seconds (memory: MiB), median of $runs"
for name in $(cut -d ' ' -f 1 "$results" | sort -u); do
  printf '%-28s %10s   (%s)\n' "$name" "$(median "$name")" "$(awk -v c="$name" '$1 == c { print $2 }' "$results" | xargs)"
done
compare cycle poplib 2
compare "requests-$members" requests-10 1.1
compare "confirmations-$members" confirmations-10 1.1
compare "own-memory-$((processed * 100))" "own-memory-$processed" 1.1
