#!/usr/bin/env bash
# The main job on a fresh machine: installs and builds what is missing, makes a
# list in a data folder, imports its members, broadcasts a newsletter, and sends
# every copy through the null sender, which files it in a folder.  Then, as root,
# a list that runs itself, between Postfix and Dovecot: see demo-lists.sh.
#
# usage: scripts/demo.sh [--windows] [--relay | --lists] [DIR]      default: demo-data in the project folder; made anew on each run
#
# --windows shows the programs for Windows, under Wine.
# --relay sends through a mail server instead: smtp-sink, which the script starts
# on loopback, takes every message and passes none on.  --lists shows the list
# that runs itself alone.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=all
demo_system=native
case ${1:-} in --windows) demo_system=windows; shift ;; esac
case ${1:-} in --relay | --lists) mode=${1#--}; shift ;; esac
case ${1:-} in -*) echo "usage: scripts/demo.sh [--windows] [--relay | --lists] [DIR]" >&2; exit 2 ;; esac
relay=no
[ $mode = relay ] && relay=yes
data=${1:-demo-data}

export demo_system
[ $mode = lists ] && exec scripts/demo-lists.sh "$data"
. scripts/demo-programs.sh

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
export LISTHAVEN_DATA_FOLDER
LISTHAVEN_DATA_FOLDER=$(on_system "$data/listhaven")

# The server runs as nobody when it was started by root, and a folder of its own lets nobody in.
start_relay() {
  local as=() port
  mail=$(mktemp -d)
  chmod 755 "$mail"
  mkdir -m 777 "$mail/taken"
  [ "$(id -u)" = 0 ] && as=(-u nobody)
  for _ in 1 2 3 4 5; do
    port=$((20000 + RANDOM % 10000))
    /usr/sbin/smtp-sink -4 "${as[@]}" -h relay.example -d "$mail/taken/%s." "127.0.0.1:$port" 100 2>"$mail/log" &
    relay_pid=$!
    while kill -0 $relay_pid 2>/dev/null; do
      if (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; then relay_port=$port; return; fi
      sleep 0.05
    done
  done
  echo "demo.sh: smtp-sink does not start: $(cat "$mail/log")" >&2
  exit 1
}
stop_relay() {
  [ -z "$relay_pid" ] || kill $relay_pid 2>/dev/null || true
  [ -z "$mail" ] || rm -rf "$mail"
}
relay_pid="" mail=""
trap 'stop_relay; stop_programs' EXIT
if [ $relay = yes ]; then start_relay; fi

show list create "Harbour News" --email news@harbour.example --kind announcement
show field set "Harbour News" 0 Town
show field set "Harbour News" 1 Boat
show blocked add '*@spam.example'
cp examples/members.csv "$data/members.csv"
show member import "Harbour News" "$data/members.csv"
printf '\n$ cat members.csv.rejected.csv\n'
cat "$data/members.csv.rejected.csv"
if [ $relay = yes ]; then
  show settings set Service SmtpPort "$relay_port"
  show list set "Harbour News" smtpHost 127.0.0.1
  show account set "Harbour News" SendMethod SmtpMessageSender2
else
  show account set "Harbour News" SendMethod NullMessageSender
  show account set "Harbour News" TargetFolder "$(on_system "$copies")"
fi
show broadcast examples/newsletter.eml --list "Harbour News"
show queue ls
show send
show queue ls
if [ $relay = yes ]; then
  show delivery summary "Harbour News"
  show delivery "Harbour News"
  for message in "$mail"/taken/*; do cp "$message" "$copies/$(basename "$message").eml"; done
fi

count=$(find "$copies" -name '*.eml' | wc -l)
echo
if [ $relay = yes ]; then
  echo "The relay took $count messages (they lie in $copies); one of them begins:"
else
  echo "$count copies lie in $copies; one of them begins:"
fi
lines=12
[ $relay = yes ] && lines=16  # the first are the server's own
grep -lrE '^To: .*eva.novakova' "$copies" | head -n 1 | xargs head -n $lines

if [ $mode = all ]; then
  echo
  if [ "$(id -u)" = 0 ]; then
    scripts/demo-lists.sh "$data/lists"
  else
    echo "A list that runs itself, with real mail servers: sudo scripts/demo.sh --lists   (Postfix wants root)"
  fi
fi
