#!/usr/bin/env bash
# A list that runs itself, with real mail servers: the script starts Postfix and
# Dovecot on loopback, makes a list, and then acts the people who write to it.
# They subscribe, confirm, post and leave; an address that does not exist bounces;
# a digest goes out.  What the script sees in their mailboxes it prints, and ends
# with status 1 when it is not what it should be.
#
# usage: scripts/demo-lists.sh [DIR]      default: demo-data/lists; made anew on each run.  To be run by root.
# With demo_system=windows it is the programs for Windows, under Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/wait-for.sh
. scripts/demo-servers.sh
data=${1:-demo-data/lists}

[ "$(id -u)" = 0 ] || { echo "demo-lists.sh: Postfix can be started by root only" >&2; exit 1; }
if [ -e "$data" ]; then
  [ -f "$data/made-by-demo" ] || { echo "demo-lists.sh: $data exists and was not made by this script" >&2; exit 1; }
  rm -rf "$data"
fi
. scripts/demo-programs.sh
mkdir -p "$data"
touch "$data/made-by-demo"
data=$(cd "$data" && pwd)
export LISTHAVEN_DATA_FOLDER
LISTHAVEN_DATA_FOLDER=$(on_system "$data/listhaven")
trap 'stop_server || true; stop_servers; stop_programs' EXIT

step() { printf '\n== %s\n' "$*"; }
fail() { echo "demo-lists.sh: $*" >&2; exit 1; }

# write NAME ADDRESS SUBJECT [TEXT]: a person writes to the list.
write() {
  printf 'From: %s <%s@town.example>\nTo: %s\nSubject: %s\nDate: %s\nMessage-ID: <%s.%s@town.example>\n\n%s\n' \
    "${1^}" "$1" "$2" "$3" "$(date -R)" "$1" "$RANDOM$RANDOM" "${4:-}" >"$servers/message"
  /usr/sbin/smtp-source -F "$servers/message" -f "$1@town.example" -t "$2" "127.0.0.1:$smtp_port"
  echo "$1 writes to $2: $3"
}
# The header of a message, with its folded lines joined.
header() { sed '/^$/q' "$1" | sed ':a;N;$!ba;s/\n[ \t]/ /g'; }
# Which messages of a mailbox have the subject.
mails() {
  local file
  for file in "$servers/mail/$1"/new/*; do
    if [ -f "$file" ] && header "$file" | grep -q "^Subject: .*$2"; then echo "$file"; fi
  done
}
# has NAME SUBJECT: one such message, not two.
has() { [ "$(mails "$1" "$2" | wc -l)" = 1 ]; }
# gets NAME SUBJECT: waits for it and prints what a reader sees of it.
gets() {
  wait_for has "$1" "$2" || fail "$1 has not got exactly one message \"$2\""
  printf '\n-- in the mailbox of %s:\n' "$1"
  sed -n '/^From:/,$p' "$(mails "$1" "$2")" | sed ':a;N;$!ba;s/=\n//g' |  # soft line breaks
    grep -vE '^(X-|MIME-Version|Mime-Version|Content-|Message-ID|References|In-Reply-To|Precedence|Auto-|	;)' |
    sed 's/^/   | /'
}
is_member() { listhaven member ls "$1" | grep -q "^$2 "; }
is_no_member() { ! is_member "$@"; }
request() { header "$(mails "$1" 'Please confirm')" | sed -n 's/^Subject: //p'; }
# The server would look for mail by its period; receive does it now, or when the server is done with it.
now() {
  wait_for all_delivered || fail "mail is not delivered"
  wait_for listhaven receive Harbour || fail "$(listhaven receive Harbour 2>&1)"
}

step "Postfix and Dovecot on loopback, with mailboxes for anna, bob, carla and the list"
make_servers_folder
start_dovecot anna bob carla harbour
start_postfix harbour-request=harbour
echo "SMTP on port $smtp_port, POP3 on port $pop_port"

step "A discussion list with a mailbox"
show list create Harbour --email harbour@town.example --command-email harbour-request@town.example
for setting in "popHost 127.0.0.1" "popLogin harbour@town.example" "popPassword secret" "smtpHost 127.0.0.1"; do
  show list set Harbour ${setting% *} ${setting#* }
done
show settings set Service Pop3Port "$pop_port"
show settings set Service SmtpPort "$smtp_port"
show rule ls Harbour
printf '\n$ lhvserver run\n'
start_server

step "People subscribe, and confirm"
for name in anna bob carla; do write $name harbour-request@town.example subscribe; done
now
gets anna "Please confirm"
for name in bob carla; do wait_for has $name "Please confirm"; done
for name in anna bob carla; do write $name harbour-request@town.example "Re: $(request $name)"; done
now
gets anna "Welcome to Harbour"
write carla harbour-request@town.example "DIGEST ON"
show member add Harbour dora@town.example --name "Dora, who has moved away"
now
show member ls Harbour

step "A member posts, a stranger does too"
write bob harbour@town.example "Who sails on Sunday?" 'Dear $(To-First-Name), the wind will be fair.'
write otto harbour@town.example "Cheap anchors" "Buy!"
now
gets anna 'Who sails on Sunday'
wait_for has bob 'Who sails on Sunday' || fail "bob has no copy of his own post"
[ -z "$(mails anna 'Cheap anchors')" ] || fail "the stranger's message was posted"

step "The copy for dora comes back: the server refuses her address"
bounced() { wait_for all_delivered; listhaven receive Harbour >/dev/null; is_no_member Harbour dora@town.example; }
wait_for bounced || fail "dora is still a member"
show bounce ls Harbour
show member ls Harbour

step "The digest"
show digest show Harbour
show digest send Harbour
gets carla "Harbour digest #1"
[ -z "$(mails carla 'Who sails')" ] || fail "carla has the post and the digest"

step "A member leaves"
write anna harbour-request@town.example unsubscribe
now
gets anna "You have left Harbour"
is_no_member Harbour anna@town.example || fail "anna is still a member"

step "What the list's log says"
show log --level info -n 100 | grep '(Harbour)' | sed -E 's/^.{11}(.{8})[^]]*\] +/\1  /'
stop_server || fail "lhvserver ended with status $?"
printf '\nEverybody got what he should, once. The data folder: %s\n' "$LISTHAVEN_DATA_FOLDER"
