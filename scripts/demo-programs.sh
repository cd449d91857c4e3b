# Sourced by demo.sh and demo-lists.sh: builds the programs that they show, this
# system's or, with demo_system=windows, those for Windows, which run under Wine.
# With $LISTHAVEN_PROGRAMS they are those below that folder, and nothing is built.
# shellcheck shell=bash
programs=${LISTHAVEN_PROGRAMS:-}

case ${demo_system:-} in
  windows)
    [ -n "$programs" ] || scripts/build-windows.sh
    programs=${programs:-build/windows/programs}
    # A prefix that the caller names is his to end.
    stop_programs() { :; }
    [ -n "${LISTHAVEN_WINEPREFIX:-}" ] || stop_programs() { scripts/wine-prefix.sh down; }
    scripts/wine-prefix.sh up
    stop_signal=INT  # Ctrl-C; the request to end would end it at once under Wine
    listhaven() { scripts/wine-run.sh "$programs"/listhaven/listhaven.exe "$@"; }
    start_server() { scripts/wine-run.sh "$programs"/lhvserver/lhvserver.exe run & lhvserver_pid=$!; }
    # As Windows names it.
    on_system() { echo "Z:${1//\//\\}"; }
    ;;
  *)
    if [ -z "$programs" ]; then
      scripts/setup.sh
      echo "== build"
      cmake --preset release >/dev/null
      cmake --build --preset release --target listhaven lhvserver | tail -n 1
      programs=build/release/programs
    fi
    listhaven() { "$programs"/listhaven/listhaven "$@"; }
    start_server() { "$programs"/lhvserver/lhvserver run & lhvserver_pid=$!; }
    stop_programs() { :; }
    stop_signal=TERM
    on_system() { echo "$1"; }
    ;;
esac

lhvserver_pid=""
stop_server() {
  local pid=$lhvserver_pid
  lhvserver_pid=""
  [ -z "$pid" ] || { kill -s $stop_signal "$pid" 2>/dev/null && wait "$pid"; }
}

show() {
  local words="" word
  for word in "$@"; do
    case $word in *[\ \*]*) word="\"$word\"" ;; esac
    words="$words $word"
  done
  printf '\n$ listhaven%s\n' "$words"
  listhaven "$@"
}
