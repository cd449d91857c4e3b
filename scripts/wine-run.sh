#!/usr/bin/env bash
# Runs a Windows program under Wine without a display, in the prefix LISTHAVEN_WINEPREFIX (or build/wine-prefix).
# CMake runs the cross-built tests through this.  SIGINT to it is Ctrl+C in the program; exit codes come back
# modulo 256.
#
# usage: scripts/wine-run.sh PROGRAM.exe [ARGUMENT...]
export WINEPREFIX=${LISTHAVEN_WINEPREFIX:-$(cd "$(dirname "$0")/.." && pwd)/build/wine-prefix}
export WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-"mscoree,mshtml=;winemenubuilder.exe=;winedbg.exe="}
export LISTHAVEN_TEST_PROCESS=$$  # what tests start on the system below ends with it
export LC_ALL=C.UTF-8  # otherwise arguments beyond ASCII are lost
unset DISPLAY WAYLAND_DISPLAY
exec wine "$@"
