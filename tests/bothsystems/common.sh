# Sourced by the tests of programs of both systems: this system's, and those for
# Windows under Wine.  Their arguments: the folder programs/ of either build.
# shellcheck shell=bash
#
# Each works in a folder of its own, which is removed at the end.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$here/scripts/wait-for.sh"
linux=$(cd "$1" && pwd)
windows=$(cd "$2" && pwd)
work=$(mktemp -d)
data=$work/data       # what the programs work on
pids=""               # of programs that run beside this

cleanup() {
  local pid
  for pid in $pids; do kill_hard "$pid"; done
  rm -rf "$work"
}
trap cleanup EXIT

fail() { echo "FAILED: $*" >&2; exit 1; }
step() { echo "-- $*"; }

# The data folder as the programs of the system name it.
folder_for() { if [ "$1" = windows ]; then echo "Z:${data//\//\\}"; else echo "$data"; fi; }

# on SYSTEM PROGRAM ARGUMENTS...
on() {
  local system=$1 program=$2
  shift 2
  if [ "$system" = windows ]; then
    LISTHAVEN_DATA_FOLDER=$(folder_for windows) timeout 300 "$here/scripts/wine-run.sh" "$windows/$program/$program.exe" "$@"
  else
    LISTHAVEN_DATA_FOLDER=$data timeout 300 "$linux/$program/$program" "$@"
  fi
}
# start SYSTEM PROGRAM ARGUMENTS...: beside this; $started is its process.
start() {
  local system=$1 program=$2 command
  shift 2
  command=("$linux/$program/$program")
  if [ "$system" = windows ]; then command=("$here/scripts/wine-run.sh" "$windows/$program/$program.exe"); fi
  LISTHAVEN_DATA_FOLDER=$(folder_for "$system") "${command[@]}" "$@" >"$work/$program.out" 2>&1 &
  started=$!
  pids="$pids $started"
}
# As a power failure; nobody is to say "Killed".
kill_hard() { kill -9 "$1" 2>/dev/null && wait "$1" 2>/dev/null || true; }
# Ctrl-C; a program in the background of a shell would not get the one of a terminal.
end_server() {
  local status=0
  kill -INT "$1"
  wait "$1" || status=$?
  [ $status = 0 ] || fail "the server ended with status $status: $(cat "$work/lhvserver.out")"
}
server_runs() { lhv "$1" status --json | grep -q '"server":true'; }
lhv() { local system=$1; shift; on "$system" listhaven "$@"; }


# files FOLDER PATTERN: how many there are, at any depth
files() { [ -d "$1" ] || { echo 0; return; }; find "$1" -type f -name "$2" | wc -l; }
at_least() { [ "$(files "$2" "$3")" -ge "$1" ]; }
