#!/usr/bin/env bash
# Builds all tests for Windows and runs them under Wine, in a prefix below build/;
# then programs of both systems on one data folder, when no option is given.
#
# usage: scripts/test-windows.sh [CTEST-OPTION...]      such as -R Settling
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --windows
scripts/windows-deps.sh

echo "== windows: build"
cmake --preset windows >/dev/null
cmake --build --preset windows

echo "== windows: tests under Wine"
export LISTHAVEN_WINEPREFIX=${LISTHAVEN_WINEPREFIX:-$(pwd)/build/wine-prefix}
trap 'scripts/wine-prefix.sh down' EXIT
scripts/wine-prefix.sh up
export LISTHAVEN_TEST_SERVICE=1  # the prefix is ours: a service may be put into it
# Not from a terminal: Wine would write cursor movements into what the tests print.
ctest --preset windows "$@" </dev/null | cat

[ $# = 0 ] || exit 0
echo "== programs of both systems on one data folder"
cmake --preset dev >/dev/null
cmake --build --preset dev --target listhaven lhvserver | tail -n 1
for test in carry claim crash; do
  echo "= $test"
  tests/bothsystems/$test.sh build/dev/programs build/windows/programs || [ $? = 77 ]
done
