#!/usr/bin/env bash
# Sets the machine up, builds, and runs all tests: as usual (dev) and with the
# address and undefined-behaviour sanitizers (asan).
#
# usage: scripts/test.sh [PRESET...]      default: dev asan
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(dev asan)

echo "== format"
# shellcheck disable=SC2046
clang-format-14 --dry-run --Werror $(git ls-files '*.h' '*.cpp')

for preset in "${presets[@]}"; do
  echo "== $preset: build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset"
  if [ "$preset" = dev ]; then
    echo "== $preset: every header compiles alone"
    cmake --build --preset "$preset" --target all_verify_interface_header_sets
  fi
  echo "== $preset: tests"
  ctest --preset "$preset"
done
