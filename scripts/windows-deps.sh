#!/usr/bin/env bash
# Builds what the Windows programs are linked with, by the cross compiler and from the sources of Debian's own
# packages, so that both systems have the same versions.  Everything is static.
#
# usage: scripts/windows-deps.sh [FOLDER]
#   FOLDER   default build/windows-deps; the libraries are in FOLDER/prefix.  What is there and made by the same
#            instructions is not built again; FOLDER/sources keeps the downloads, FOLDER/*.log what was done.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
folder=${1:-build/windows-deps}
mkdir -p "$folder/sources"
folder=$(cd "$folder" && pwd)
prefix=$folder/prefix
triple=x86_64-w64-mingw32
jobs=$(nproc)

openssl_version=$(dpkg-query -W -f='${Version}' libssl-dev)
stamp=$(cat scripts/windows-deps.sh cmake/windows-deps/CMakeLists.txt cmake/toolchain-mingw-w64-posix.cmake - <<<"$openssl_version" | sha256sum | cut -c1-16)
if [ "$(cat "$prefix/.stamp" 2>/dev/null)" = "$stamp" ]; then exit 0; fi

# One at a time; the second finds what the first has built.
exec 9>"$folder/.lock"
flock 9
if [ "$(cat "$prefix/.stamp" 2>/dev/null)" = "$stamp" ]; then exit 0; fi

started=$SECONDS
export SOURCE_DATE_EPOCH=0  # OpenSSL keeps the time of its build
rm -rf "$prefix" "$folder/unpacked"
mkdir -p "$prefix/include" "$prefix/lib" "$folder/unpacked"

# The upstream sources of a package; apt compares them with its signed index, and takes what is there.  An
# archive may keep only these of an update, without Debian's part of the package.
fetch() {
  cd "$folder/sources"
  apt-get source -qq --download-only "$1" 2>/dev/null || apt-get source -qq --download-only --tar-only "$1" ||
    ls "$1"_*.orig.tar.*
}

unpack() {  # PACKAGE FOLDER [WHAT...]
  local package=$1 target=$folder/unpacked/$2
  shift 2
  mkdir -p "$target"
  tar xf "$(ls "$folder/sources/$package"_*.orig.tar.[gx]z | sort -V | tail -1)" -C "$target" --strip-components=1 "$@"
}

build_openssl() {
  fetch openssl
  unpack openssl openssl
  cd "$folder/unpacked/openssl"
  # The programs must not read a configuration or certificates from a folder that any user can make: no
  # configuration at all, and a path on which only administrators can.
  # What is left out is neither used nor asked for by mail servers.
  ./Configure mingw64 --cross-compile-prefix=$triple- CC=gcc-posix CXX=g++-posix RC=windres CFLAGS=-O2 CPPDEFINES=_WIN32_WINNT=0x0A00 \
    --prefix=/Windows/openssl --libdir=lib --openssldir=/Windows/openssl \
    no-shared no-tests no-engine no-module no-dso no-legacy no-autoload-config no-uplink no-async \
    no-aria no-bf no-blake2 no-camellia no-cast no-cmp no-cms no-comp no-ct no-dsa no-dtls no-ec2m no-gost no-idea no-md4 \
    no-mdc2 no-rc2 no-rc4 no-rmd160 no-scrypt no-seed no-sm2 no-sm3 no-sm4 no-srp no-srtp no-ts no-whirlpool
  make -j"$jobs" build_libs
  make install_dev DESTDIR="$folder/unpacked/stage"
  cp -r "$folder/unpacked/stage/Windows/openssl/include" "$folder/unpacked/stage/Windows/openssl/lib" "$prefix/"
}

build_others() {
  local package
  for package in boost1.81 c-ares libxml2 lmdb; do fetch "$package"; done
  unpack boost1.81 boost boost/libs/serialization/src
  for package in c-ares libxml2 lmdb; do unpack $package $package; done
  ln -s /usr/src/googletest "$folder/unpacked/googletest"
  # Headers that are the same for every system; never all of /usr/include.
  ln -s /usr/include/boost /usr/include/CLI "$prefix/include/"
  cmake -S "$root/cmake/windows-deps" -B "$folder/unpacked/build" -G Ninja -DSOURCES="$folder/unpacked" -DMINGW_PREFIX="$prefix" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-mingw-w64-posix.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib
  cmake --build "$folder/unpacked/build" -j"$jobs"
  cmake --install "$folder/unpacked/build"
}

# One of the two waits for the network, for configure or for perl while the other compiles.  Both in the
# background: "set -e" would not hold in a command whose failure is looked at.
(set -e; build_openssl) >"$folder/openssl.log" 2>&1 &
openssl=$!
(set -e; build_others) >"$folder/others.log" 2>&1 &
others=$!
status=0
wait "$openssl" || { status=1; tail -30 "$folder/openssl.log" >&2; }
wait "$others" || { status=1; tail -30 "$folder/others.log" >&2; }
[ "$status" = 0 ] || { echo "windows-deps.sh: failed; the logs are in $folder" >&2; exit 1; }
rm -rf "$folder/unpacked"
echo "$stamp" >"$prefix/.stamp"
echo "windows-deps.sh: built in $((SECONDS - started)) s"
