#!/usr/bin/env bash
# Programs of two systems on one data folder at one time: the second is refused
# with a reason, also in a race of many starts; a killed one is in nobody's way.
#
# usage: tests/bothsystems/claim.sh LINUX-PROGRAMS WINDOWS-PROGRAMS      with LISTHAVEN_WINEPREFIX set
# shellcheck source=tests/bothsystems/common.sh
. "$(dirname "$0")/common.sh"

reason="Programs of another operating system"

is_refused() {
  local system=$1 status=0
  lhv "$system" member add News refused@b.example >"$work/refused" 2>&1 || status=$?
  [ $status = 1 ] && grep -q "$reason" "$work/refused" && [ "$(wc -l <"$work/refused")" = 1 ]
}

server_of_one_keeps_the_other_out() {
  local one=$1 other=$2 i
  step "the server of $one keeps $other out, its own programs come and go"
  start "$one" lhvserver run
  local server=$started
  wait_for server_runs "$one" || fail "$(cat "$work/lhvserver.out")"
  is_refused "$other" || fail "$other was not refused: $(cat "$work/refused")"
  # Those that only look must not be in the way of colleagues.
  for i in 1 2 3; do is_refused "$other" & done
  for i in 1 2 3 4 5 6; do lhv "$one" list ls >/dev/null || fail "$one was refused by itself"; done
  for i in 1 2 3; do wait -n || fail "$other was not refused"; done

  step "it is killed, and $other goes on at once"
  kill_hard "$server"
  wait_for lhv "$other" status
  lhv "$other" member add News "after-$one@b.example"

  step "it ends in order, and $other goes on"
  start "$one" lhvserver run
  server=$started
  wait_for server_runs "$one"
  end_server "$server"
  lhv "$other" member remove News "after-$one@b.example"
}

# Each adds its members or is refused; there are as many as were added.
race() {
  local racers=$1 rows=$2 i j system added=0 refused=0 pids_of=()
  step "a race of $racers starts, each to add $rows members"
  for ((i = 0; i < racers; i++)); do
    { echo E-mail; for ((j = 0; j < rows; j++)); do echo "race$i.$j@b.example"; done; } >"$work/race$i.csv"
  done
  for ((i = 0; i < racers; i++)); do
    system=linux
    [ $((i % 2)) = 0 ] || system=windows
    lhv $system member import News "$work/race$i.csv" >"$work/race$i" 2>&1 &
    pids_of+=($!)
  done
  for ((i = 0; i < racers; i++)); do
    if wait "${pids_of[i]}"; then
      added=$((added + 1))
    else
      grep -q "$reason" "$work/race$i" || fail "neither added nor refused: $(cat "$work/race$i")"
      refused=$((refused + 1))
    fi
  done
  for system in linux windows; do
    [ "$(lhv $system member ls News | grep -c '^race')" = $((added * rows)) ] || fail "$added were added, $system finds others"
    lhv $system repair | grep -q "^Nothing to repair" || fail "$system has something to repair"
  done
  echo "   $added added theirs, $refused were refused"
}

lhv linux list create News --email news@lists.example --kind announcement >/dev/null
server_of_one_keeps_the_other_out linux windows
server_of_one_keeps_the_other_out windows linux
race 40 1
lhv windows list delete News --yes >/dev/null
lhv windows list create News --email news@lists.example --kind announcement >/dev/null
race 12 1000
echo "Two systems keep off each other's data folder."
