#!/usr/bin/env bash
# Holds the sources against the floors: nobody includes what stands above him,
# only platform/posix and platform/win32 know the operating system, and the
# files stay of a size that one can read.
#
# usage: check_floors.sh SOURCE-FOLDER
set -uo pipefail
cd "$1" || exit 1

faults=0
fault() { echo "$*"; faults=$((faults + 1)); }

# folder: the folders it may include besides itself
floors="
platform:
utility: platform
app: platform utility
mime: platform utility
net: platform utility
senddaemon: platform utility app mime net
engine: platform utility app mime net senddaemon
programs: platform utility app mime net senddaemon engine
"

while IFS=: read -r folder allowed; do
  [ -n "$folder" ] && [ -d "$folder" ] || continue
  allowed_names=" $folder $allowed "
  while IFS=: read -r file line include; do
    target=${include#*\"}
    target=${target%%/*}
    case "$allowed_names" in
      *" $target "*) ;;
      *) fault "$file:$line: $folder/ may not include $target/" ;;
    esac
  done < <(grep -rnE '^#include "' --include='*.h' --include='*.cpp' "$folder")
done <<< "$floors"

system='unistd\.h|fcntl\.h|sys/[a-z]+\.h|windows\.h|dirent\.h|signal\.h|pthread\.h|poll\.h|netdb\.h|arpa/inet\.h|netinet/[a-z]+\.h|winsock2\.h|ws2tcpip\.h|io\.h'
while IFS= read -r hit; do
  fault "$hit: only platform/posix and platform/win32 may include headers of the operating system"
done < <(grep -rnE "^#include <($system)>" --include='*.h' --include='*.cpp' utility app mime net senddaemon engine programs platform/*.h platform/*.cpp)

while IFS= read -r hit; do
  fault "$hit: the operating system is asked for only in platform/"
done < <(grep -rnE '^ *# *(if|ifdef|ifndef|elif).*(_WIN32|__linux__|__unix__|_MSC_VER)' --include='*.h' --include='*.cpp' utility app mime net senddaemon engine programs platform/*.h platform/*.cpp)

while read -r lines file; do
  [ "$lines" -le 600 ] || fault "$file: $lines lines"
done < <(find platform utility app mime net senddaemon engine programs tests bench -name '*.h' -o -name '*.cpp' | xargs wc -l | grep -v ' total$')

while IFS= read -r file; do
  fault "$file: the name says nothing"
done < <(find . -path ./build -prune -o \( -name 'misc.*' -o -name 'util2.*' -o -name 'helpers.*' \) -print)

[ "$faults" = 0 ] || exit 1
echo "floors are clean"
