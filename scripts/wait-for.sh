# Sourced by scripts that start programs.
# shellcheck shell=bash

# until COMMAND... succeeds, at most half a minute
wait_for() {
  local tries=300
  until "$@" >/dev/null 2>&1; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || { echo "waited in vain for: $*" >&2; return 1; }
    sleep 0.1
  done
}
