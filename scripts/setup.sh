#!/usr/bin/env bash
# Installs what building and testing need on Debian 12.  Does nothing, and needs
# no rights, when everything is there.
#
# usage: scripts/setup.sh [--bench] [--windows]
#   --bench     also what only the benchmarks need
#   --windows   also the cross compiler for Windows, Wine, and access to the sources of packages
set -euo pipefail
bench=no
windows=no
for option in "$@"; do
  case $option in
    --bench) bench=yes ;;
    --windows) windows=yes ;;
    *) echo "usage: scripts/setup.sh [--bench] [--windows]" >&2; exit 2 ;;
  esac
done

packages="build-essential g++-12 clang-14 clang-format-14 cmake ninja-build pkg-config
  libboost1.81-dev libboost-serialization1.81-dev libssl-dev libc-ares-dev liblmdb-dev libxml2-dev libcli11-dev
  libgtest-dev libgmock-dev googletest"
# Mail and name servers that the tests start for themselves, and certificates for them.
packages="$packages openssl postfix dovecot-core dovecot-pop3d dovecot-lmtpd dnsmasq-base"
# One test installs the server as a service in a systemd that it boots in name spaces of its own.
packages="$packages systemd"
[ $bench = yes ] && packages="$packages libbenchmark-dev libgmime-3.0-dev time"
[ $windows = yes ] && packages="$packages g++-mingw-w64-x86-64-posix wine wine64 dpkg-dev xz-utils perl make zip"

missing=""
for package in $packages; do
  [ "$(dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | cut -c1-2)" = ii ] || missing="$missing $package"
done
# What Windows programs are linked with is built from the sources of packages.
sources=no
if [ $windows = yes ] && [ ! -e "$(dirname "$0")/../build/windows-deps/prefix/.stamp" ]; then
  for package in boost1.81 openssl c-ares libxml2 lmdb; do
    [ -n "$(apt-cache showsrc --only-source "$package" 2>/dev/null)" ] || sources=yes
  done
fi
[ -z "$missing" ] && [ $sources = no ] && exit 0

as_root=""
if [ "$(id -u)" != 0 ]; then
  command -v sudo >/dev/null || { echo "setup.sh: run it as root, or install:$missing" >&2; exit 1; }
  as_root="sudo"
fi
[ -z "$missing" ] || echo "setup.sh: installing$missing"
export DEBIAN_FRONTEND=noninteractive
# The tests start servers of their own, on ports of their own: none is to run,
# or to be started with the machine, because it was installed here.
policy=/usr/sbin/policy-rc.d
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' | $as_root tee "$policy" >/dev/null
  $as_root chmod 755 "$policy"
  trap '$as_root rm -f "$policy"' EXIT
fi
case "$missing" in *" postfix"*)
  echo "postfix postfix/main_mailer_type select Local only" | $as_root debconf-set-selections ;;
esac
# The sources of the packages come from where the packages come from.
if [ $sources = yes ] && ! grep -rqsE '^(Types:.*deb-src|deb-src )' /etc/apt/sources.list /etc/apt/sources.list.d; then
  list=/etc/apt/sources.list.d
  if [ -e $list/debian.sources ]; then
    sed -E 's/^Types:.*/Types: deb-src/' $list/debian.sources | $as_root tee $list/listhaven-src.sources >/dev/null
  else
    sed -n 's/^deb /deb-src /p' /etc/apt/sources.list | $as_root tee $list/listhaven-src.list >/dev/null
  fi
fi
$as_root apt-get update -qq
[ -n "$missing" ] || exit 0
# Another mail server that is there stays: apt refuses instead of removing it.
# shellcheck disable=SC2086
$as_root apt-get install -y -qq --no-install-recommends --no-remove $missing >/dev/null
for service in postfix dovecot; do
  case "$missing" in *" $service"*)
    if command -v systemctl >/dev/null; then $as_root systemctl disable --quiet "$service" 2>/dev/null || true; fi ;;
  esac
done
