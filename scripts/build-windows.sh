#!/usr/bin/env bash
# Builds the programs for Windows x86-64 and packs them: dist/listhaven-VERSION-windows-x64.zip.
#
# usage: scripts/build-windows.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh --windows
scripts/windows-deps.sh

echo "== windows: build of the programs"
cmake --preset windows >/dev/null
cmake --build --preset windows --target listhaven lhvserver

version=$(sed -n 's/^project(listhaven VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
name=listhaven-$version-windows-x64
rm -rf "dist/$name" "dist/$name.zip"
mkdir -p "dist/$name/licences" "dist/$name/docs"
for program in listhaven lhvserver; do
  x86_64-w64-mingw32-strip -o "dist/$name/$program.exe" "build/windows/programs/$program/$program.exe"
done
# Text for Windows' own editor, which wants its line ends.
as_text() { sed 's/\r*$/\r/' "$1" >"$2"; }
sed "s/@VERSION@/$version/" cmake/windows/README.txt | sed 's/$/\r/' >"dist/$name/README.txt"
as_text CHANGELOG.md "dist/$name/docs/CHANGELOG.md"
for page in operator-guide settings formats; do as_text "docs/$page.md" "dist/$name/docs/$page.md"; done
# Everything that is linked in, and the package that says under which terms.
while read -r what package; do
  as_text "/usr/share/doc/$package/copyright" "dist/$name/licences/$what.txt"
done <<'LICENCES'
boost libboost1.81-dev
c-ares libc-ares-dev
cli11 libcli11-dev
gcc-runtime gcc-mingw-w64-x86-64-posix-runtime
libxml2 libxml2-dev
lmdb liblmdb-dev
mingw-w64-runtime mingw-w64-x86-64-dev
openssl libssl-dev
LICENCES
# The texts that these refer to, which only a Debian has.
mkdir "dist/$name/licences/common-licenses"
grep -oh '/usr/share/common-licenses/[A-Za-z0-9.-]*[A-Za-z0-9]' "dist/$name/licences/"*.txt | LC_ALL=C sort -u |
  while read -r text; do as_text "$text" "dist/$name/licences/common-licenses/${text##*/}.txt"; done

# Fixed times, order and owners.
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || stat -c %Y CMakeLists.txt)}
find "dist/$name" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
(cd dist && find "$name" -type f | LC_ALL=C sort | TZ=UTC zip -q -X -9 "$name.zip" -@)
rm -rf "dist/$name"
echo "dist/$name.zip: $(stat -c %s "dist/$name.zip") bytes"
