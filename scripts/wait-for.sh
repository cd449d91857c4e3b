# Sourced by scripts that start programs.
# shellcheck shell=bash

# until COMMAND... succeeds; in vain after two minutes and 300 times
wait_for() {
  local tries=300 end=$((SECONDS + 120))
  until "$@" >/dev/null 2>&1; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || [ $SECONDS -lt $end ] || { echo "waited in vain for: $*" >&2; return 1; }
    sleep 0.1
  done
}
