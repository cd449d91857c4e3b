#!/usr/bin/env bash
# The main job on a fresh machine: installs and builds what is missing, makes a
# list in a data folder, imports its members, broadcasts a newsletter, and sends
# every copy through the null sender, which files it in a folder.
#
# usage: scripts/demo.sh [DIR]      default: demo-data in the project folder; made anew on each run
set -euo pipefail
cd "$(dirname "$0")/.."
data=${1:-demo-data}

scripts/setup.sh
echo "== build"
cmake --preset release >/dev/null
cmake --build --preset release --target listhaven | tail -n 1

# Only a folder that an earlier run made is emptied.
if [ -e "$data" ]; then
  [ -f "$data/made-by-demo" ] || { echo "demo.sh: $data exists and was not made by this script" >&2; exit 1; }
  rm -rf "$data"
fi
mkdir -p "$data"
touch "$data/made-by-demo"
data=$(cd "$data" && pwd)
copies="$data/delivered"
mkdir -p "$copies"
export LISTHAVEN_DATA_FOLDER="$data/listhaven"
listhaven=build/release/programs/listhaven/listhaven
show() {
  local words="" word
  for word in "$@"; do
    case $word in *[\ \*]*) word="\"$word\"" ;; esac
    words="$words $word"
  done
  printf '\n$ listhaven%s\n' "$words"
  "$listhaven" "$@"
}

show list create "Harbour News" --email news@harbour.example --kind announcement
show field set "Harbour News" 0 Town
show field set "Harbour News" 1 Boat
show blocked add '*@spam.example'
cp examples/members.csv "$data/members.csv"
show member import "Harbour News" "$data/members.csv"
printf '\n$ cat members.csv.rejected.csv\n'
cat "$data/members.csv.rejected.csv"
show account set "Harbour News" SendMethod NullMessageSender
show account set "Harbour News" TargetFolder "$copies"
show broadcast examples/newsletter.eml --list "Harbour News"
show queue ls
show send
show queue ls

count=$(find "$copies" -name '*.eml' | wc -l)
echo
echo "$count copies lie in $copies; one of them begins:"
grep -lrE '^To: .*eva.novakova' "$copies" | head -n 1 | xargs head -n 12
