#!/usr/bin/env bash
# up:   makes the Wine prefix if it is missing, starts a wineserver that stays and boots its services.
# down: ends that wineserver, and with it every program of the prefix.
# The prefix is LISTHAVEN_WINEPREFIX, or build/wine-prefix.
#
# Without the staying server each program boots one of its own, which costs it half a second.  A wineserver
# must never be killed hard: the programs of its prefix would hang for ever.
#
# usage: scripts/wine-prefix.sh up|down
set -uo pipefail
export WINEPREFIX=${LISTHAVEN_WINEPREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build/wine-prefix}
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=;winedbg.exe="
unset DISPLAY WAYLAND_DISPLAY

# wineserver reports by its pipes when it ends: none of the caller's may stay open in it.
quietly() { "$@" </dev/null >/dev/null 2>&1; }

case ${1:-} in
  up)
    mkdir -p "$WINEPREFIX"
    if [ ! -e "$WINEPREFIX/.ready" ]; then
      quietly timeout 300 wineboot -i || { echo "wine-prefix.sh: wineboot failed in $WINEPREFIX" >&2; exit 1; }
      # The default is Windows 7.
      quietly timeout 60 wine reg add 'HKCU\Software\Wine' /v Version /d win10 /f
      # The servers that tests start on the Linux side need short paths: their sockets' names have 108 bytes.
      quietly timeout 60 wine reg add 'HKCU\Environment' /v TMP /d "Z:$(printf %s "${TMPDIR:-/tmp}" | tr / '\\')" /f
      # Ended once, the server writes the registry; going on with it, there would be two services.exe.
      quietly wineserver -k
      quietly timeout 60 wineserver -w
      touch "$WINEPREFIX/.ready"
    fi
    quietly wineserver -p  # fails when it runs already, which is as good
    # The first program starts the services.
    quietly timeout 120 wine cmd /c exit 0 || { echo "wine-prefix.sh: no program runs in $WINEPREFIX" >&2; exit 1; } ;;
  down)
    [ -d "$WINEPREFIX" ] || exit 0
    quietly wineserver -k
    quietly timeout 30 wineserver -w
    exit 0 ;;
  *)
    echo "usage: scripts/wine-prefix.sh up|down" >&2
    exit 2 ;;
esac
