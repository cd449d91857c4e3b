#!/usr/bin/env bash
# Kills lhvserver.exe at random moments while it makes a broadcast and sends it
# to a mail server of this system, and compares what that got with what it
# should have: nothing lost, at most one message doubled by each kill (of its
# one connection).
#
# usage: tests/bothsystems/crash.sh LINUX-PROGRAMS WINDOWS-PROGRAMS [KILLS]      with LISTHAVEN_WINEPREFIX set
# shellcheck source=tests/bothsystems/common.sh
. "$(dirname "$0")/common.sh"
kills=${3:-30}
members=$((kills * 20))
sink=/usr/sbin/smtp-sink
[ -x $sink ] || { echo "skipped: smtp-sink is not installed"; exit 77; }

# It runs as nobody when it was started by root.
start_sink() {
  local as=() port
  chmod 755 "$work"
  mkdir -m 777 "$work/taken"
  [ "$(id -u)" = 0 ] && as=(-u nobody)
  for _ in 1 2 3 4 5; do
    port=$((20000 + RANDOM % 10000))
    $sink -4 "${as[@]}" -h relay.example -d "$work/taken/%s." "127.0.0.1:$port" 100 2>"$work/sink.log" &
    pids="$pids $!"
    sink_port=$port
    wait_for bash -c "! kill -0 $! || exec 3<>/dev/tcp/127.0.0.1/$port" || true
    if kill -0 $! 2>/dev/null; then return; fi  # else another had the port
  done
  fail "smtp-sink does not start: $(cat "$work/sink.log")"
}
# The file of a session that was cut off can stay, empty.
taken() { find "$work/taken" -type f -size +0 | wc -l; }
has_taken() { [ "$(taken)" -ge "$1" ]; }
queue_is_empty() { lhv windows queue ls 1 --json | grep -q '"waiting":0,"claimed":0' && lhv windows broadcast ls --json | grep -q '"done"'; }

start_sink
lhv windows list create Crash --email list@lists.example --kind announcement >/dev/null
lhv windows settings set Service SmtpPort "$sink_port"
lhv windows settings set Execution GenerationPause 2
lhv windows list set 1 smtpHost 127.0.0.1
lhv windows list set 1 maxConnections 1
{ echo E-mail; for ((i = 0; i < members; i++)); do echo "m$i@example.net"; done; } >"$work/members.csv"
lhv windows member import 1 "$work/members.csv" >/dev/null
printf 'From: list@lists.example\r\nSubject: To $(To-Email)\r\n\r\nHello\r\nThat was all.\r\n' >"$work/letter.eml"
start windows listhaven broadcast "$work/letter.eml" --list 1
wait_for bash -c "ls '$data'/Broadcasts/*/job.cfg"
kill_hard "$started"

killed=0
while [ $killed -lt "$kills" ] && ! has_taken "$members"; do
  target=$(($(taken) + 1 + RANDOM % 25))
  [ $target -le "$members" ] || target=$members
  start windows lhvserver run
  wait_for has_taken $target || fail "nothing is sent: $(cat "$work/lhvserver.out"; tail -n 5 "$data/log.txt")"
  kill_hard "$started"
  killed=$((killed + 1))
done
lhv windows settings set Execution GenerationPause 0
start windows lhvserver run
wait_for queue_is_empty || fail "the queue does not become empty: $(tail -n 5 "$data/log.txt")"
end_server "$started"

grep -rhi '^X-Rcpt-Args:' "$work/taken" | sed 's/.*<\(.*\)>.*/\1/' | sort | uniq -c >"$work/got"
[ "$(wc -l <"$work/got")" = "$members" ] || fail "$((members - $(wc -l <"$work/got"))) of $members have got nothing"
doubled=$(awk '{ n += $1 - 1 } END { print n + 0 }' "$work/got")
[ "$doubled" -le $killed ] || fail "$doubled messages were doubled by $killed kills"
torn=$(find "$work/taken" -type f -size +0 -exec grep -L "That was all" {} + || true)
[ -z "$torn" ] || fail "a message was not whole: $(cat $torn)"
lhv linux repair | grep -q "^Nothing to repair" || fail "there is something to repair"
echo "$members messages, $killed kills, $doubled doubled, none lost."
