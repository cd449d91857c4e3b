#!/usr/bin/env bash
# A data folder made by the programs of one system is copied, used and changed by
# those of the other, and comes back; then the other way round.  What the
# programs say of it must be the same on both.
#
# usage: tests/bothsystems/carry.sh LINUX-PROGRAMS WINDOWS-PROGRAMS      with LISTHAVEN_WINEPREFIX set
# shellcheck source=tests/bothsystems/common.sh
. "$(dirname "$0")/common.sh"

members=60
requests=150

letter() {  # NAME ADDRESS TO SUBJECT TEXT
  printf 'From: %s <%s>\r\nTo: %s\r\nSubject: %s\r\nMessage-ID: <%s@b.example>\r\nDate: Sat, 21 Nov 2026 10:00:00 +0000\r\n' \
    "$1" "$2" "$3" "$4" "$(date +%s%N)"
  printf 'MIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Transfer-Encoding: 8bit\r\n\r\n%s\r\n' "$5"
}
bounce() {  # ADDRESS
  printf 'From: MAILER-DAEMON@mx.example\r\nTo: list@lists.example\r\nSubject: Undelivered mail\r\nMIME-Version: 1.0\r\n'
  printf 'Message-ID: <%s@mx.example>\r\nContent-Type: multipart/report; report-type=delivery-status; boundary=x\r\n\r\n' "$(date +%s%N)"
  printf -- '--x\r\n\r\nUnknown.\r\n--x\r\nContent-Type: message/delivery-status\r\n\r\nReporting-MTA: dns; mx.example\r\n\r\n'
  printf 'Final-Recipient: rfc822; %s\r\nAction: failed\r\nStatus: 5.1.1\r\nDiagnostic-Code: smtp; 550 5.1.1 Unknown\r\n--x--\r\n' "$1"
}
# arrive LIST: standard input lies in the inbox as if it had been fetched.
arrive() {
  local batch="$data/Inbox/$1/4711"
  mkdir -p "$batch"
  { printf 'X-Lhv-Received: 1795255200\r\n'; cat; } >"$batch/$(date +%s%N).eml"
}

csv() {
  local i
  printf 'E-mail,Name,Straße,Boat\n'
  printf 'jörg@b.example,"Jörg Müßig",Große Gasse 1,Nußschale\n'
  printf 'eva.novakova@b.example,"Nováková, Eva",ulice 日本,"""Lodička"""\n'
  for ((i = 1; i <= members; i++)); do printf 'm%d@b.example,Member %d,Straße %d,Boat %d\n' $i $i $i $i; done
}

# Lists, members, rules, settings: everything that is kept.
make() {
  local on=$1
  lhv "$on" list create "Hafen Münster" --email list@lists.example --command-email cmd@lists.example >/dev/null
  lhv "$on" list create News --email news@lists.example --kind announcement --authorized-email ed@b.example >/dev/null
  lhv "$on" settings set Execution GenerationPause 0
  lhv "$on" settings set Service Schedule "10;11:30;23"
  for list in 1 2; do
    lhv "$on" account set $list SendMethod NullMessageSender
    lhv "$on" account set $list TargetFolder delivered
    lhv "$on" account set $list NullSenderWait 0
    lhv "$on" field set $list 0 "Straße"
    lhv "$on" field set $list 1 Boat
  done
  lhv "$on" list set 1 usage "$(printf 'Grüße,\n  zwei Zeilen \\ mit "Zeichen"')"
  lhv "$on" list set 1 limitFrom 08:30
  csv >"$work/members.csv"
  lhv "$on" member import 1 "$work/members.csv" >/dev/null
  lhv "$on" member import 2 "$work/members.csv" >/dev/null
  lhv "$on" member add 1 digest@b.example --mode digest --name "Dora Digest"
  letter List list@lists.example '$(To-Name)' 'Fußnote' 'Grüße aus $(List-Name), to leave: $(Command-Email)' >"$work/footer.eml"
  lhv "$on" rule set 1 8 footer "@$work/footer.eml"
  lhv "$on" rule set 1 8 addFooter yes
  lhv "$on" rule set 1 1 subjectWords "eins,zwölf,日本"
  lhv "$on" rule set 1 3 parseFields '[{"target":"Last-Name","pattern":"a\\b(é+)"}]'
  lhv "$on" access add 1 deny '*@spam.example'
  lhv "$on" blocked add '*@blocked.example'
  lhv "$on" limit add relay.example 100 24
}

# Mail that came: a post that waits for the moderator, one that is posted and in
# the digest, a command, a bounce.
receive_mail() {
  local on=$1
  lhv "$on" list set 1 moderated 1
  letter Jörg m1@b.example list@lists.example 'Wartet' 'Zurückgehalten' | arrive 1
  lhv "$on" receive >/dev/null
  lhv "$on" list set 1 moderated 0
  letter Eva m2@b.example list@lists.example 'Ölstand' 'Es fehlt Öl, $(To-Name).' | arrive 1
  letter Neu new@b.example cmd@lists.example subscribe x | arrive 1
  bounce m3@b.example | arrive 1
  lhv "$on" receive >/dev/null
}

# A broadcast that is killed when it has made some of its copies.
interrupt_broadcast() {
  local on=$1
  letter News news@lists.example '$(To-Name)' 'News $(To-Name)' 'Für $(To-Name): $(Straße)' >"$work/news.eml"
  lhv "$on" settings set Execution GenerationPause 100
  start "$on" listhaven broadcast "$work/news.eml" --list 2
  wait_for at_least 20 "$data/SendDaemon/2" '*.eml'   # a group of them
  kill_hard "$started"
  lhv "$on" settings set Execution GenerationPause 0
  [ "$(files "$data/SendDaemon/2" '*.eml')" -lt $((members + 2)) ] || fail "the broadcast was not interrupted"
}

# A mail cycle that is killed when some of its answers are in the queue.
interrupt_cycle() {
  local on=$1 i
  for ((i = 1; i <= requests; i++)); do letter "" "s$i@b.example" cmd@lists.example subscribe x | arrive 1; done
  [ "$(files "$data/Inbox/1/4711" '*.eml')" = $requests ] || fail "not every message has a name of its own"
  start "$on" listhaven receive
  wait_for at_least 80 "$data/SendDaemon/1" '*.eml'   # some are of earlier mail
  kill_hard "$started"
  [ "$(find "$data"/Inbox/1/4711 -name '*.eml' | wc -l)" -gt 0 ] || echo "   (the cycle had ended before it was killed)"
}

# What the programs say of everything, in files of a folder.
describe() {
  local on=$1 to=$2 list
  mkdir -p "$to"
  lhv "$on" list ls --json >"$to/lists"
  lhv "$on" blocked ls >"$to/blocked"
  lhv "$on" limit ls --json >"$to/limits"
  lhv "$on" settings get Service Schedule >"$to/setting"
  lhv "$on" broadcast ls --json >"$to/broadcasts"
  lhv "$on" moderation ls --json >"$to/moderation"
  for list in 1 2; do
    lhv "$on" list show $list --json >"$to/list-$list"
    lhv "$on" field ls $list >"$to/fields-$list"
    lhv "$on" member ls $list --json >"$to/members-$list"
    lhv "$on" member show $list jörg@b.example >"$to/member-$list"
    lhv "$on" rule ls $list --json >"$to/rules-$list"
    lhv "$on" access ls $list >"$to/access-$list"
    lhv "$on" account show $list >"$to/account-$list"
    lhv "$on" queue ls $list --json >"$to/queue-$list"
    lhv "$on" delivery $list --all --json >"$to/deliveries-$list"
    lhv "$on" bounce ls $list --json >"$to/bounces-$list"
    lhv "$on" digest show $list --json >"$to/digest-$list"
  done
  # Paths as this system writes them.
  sed -i -E ':a; s|("path":"[^"]*)\\\\|\1/|; ta; s|"path":"Z:|"path":"|g' "$to"/*
}
# carry FROM TO: a copy of the data folder, on which both say the same.
carry() {
  rm -rf "$work/from" "$work/to"
  describe "$1" "$work/from"
  cp -a "$data" "$work/copy"
  rm -rf "$data"
  mv "$work/copy" "$data"
  rm -rf "$data/.locks" "$data/.mailslots"
  describe "$2" "$work/to"
  diff -r "$work/from" "$work/to" || fail "$2 says something else than $1 of the same data folder"
  grep -q 日本 "$work/to/rules-1" && grep -q Nováková "$work/to/members-1" || fail "nothing is described"
}
sends() {  # SYSTEM: everything that waits
  lhv "$1" send >/dev/null
}
# Each member has one copy of the broadcast, none has two.
check_copies() {
  local subjects
  subjects=$(grep -rhi "^Subject:" "$data/delivered" | grep -c "News Member [0-9]" || true)
  [ "$subjects" = $members ] || fail "$subjects of $members copies of the broadcast"
  subjects=$(grep -rhi "^Subject: News Member [0-9]" "$data/delivered" | sort | uniq -d)
  [ -z "$subjects" ] || fail "doubled: $subjects"
}
# Each that asked has one answer.
check_answers() {
  local i answers
  for ((i = 1; i <= requests; i++)); do
    answers=$({ grep -rl "^To:.*[< ]s$i@b.example" "$data/delivered" || true; } | wc -l)
    [ "$answers" = 1 ] && continue
    grep -r "s$i@b.example" "$data" --include='*.eml' --include='*.log' --include=log.txt -l >&2 || true
    grep "s$i@b.example" "$data/log.txt" >&2 || true
    fail "s$i@b.example has $answers answers"
  done
}
# What a crash may leave is mended, and after that nothing is wrong.
is_sound() {
  lhv "$1" repair >"$work/repaired"
  lhv "$1" repair | grep -q "^Nothing to repair" || fail "$1: $(cat "$work/repaired")"
}

travel() {
  local first=$1 second=$2
  step "made by $first"
  rm -rf "$data"
  make "$first"
  receive_mail "$first"
  interrupt_broadcast "$first"
  interrupt_cycle "$first"

  step "carried to $second, and changed there"
  carry "$first" "$second"
  grep -q Wartet "$work/to/moderation" || fail "no message waits for the moderator"
  grep -q '"entries":\[{' "$work/to/digest-1" || fail "nothing is collected for the digest"
  grep -q m3@b.example "$work/to/bounces-1" || fail "there is no bounce"
  grep -q '"interrupted"' "$work/to/broadcasts" || fail "no broadcast is interrupted"
  lhv "$second" broadcast --resume >/dev/null
  lhv "$second" moderation accept 1 "$(lhv "$second" moderation ls 1 --json | grep -o '"id":"[0-9]*"' | grep -o '[0-9]*')" >/dev/null
  lhv "$second" receive >/dev/null
  lhv "$second" member set 1 jörg@b.example --name "Jörg Öztürk" --field "Boat=Größer"
  lhv "$second" member remove 1 m9@b.example
  lhv "$second" member add 2 anneliese@b.example --name "Änne Liese" --field "Straße=Weg 7"
  lhv "$second" rule set 1 8 subjectTag "[Höfe]"
  lhv "$second" rule move 1 2 3
  lhv "$second" access remove 1 '*@spam.example'
  lhv "$second" blocked add 'x@y.example'
  lhv "$second" limit add other.example 5 1
  lhv "$second" list set 2 name "Nachrichten für alle"
  sends "$second"
  check_copies
  check_answers

  step "carried back to $first"
  carry "$second" "$first"
  grep -q "Größer" "$work/to/member-1" || fail "the changed member is lost"
  lhv "$first" bounce undo 1 m3@b.example >/dev/null
  lhv "$first" digest send 1 >/dev/null
  lhv "$first" receive >/dev/null   # reads on in the ledger
  sends "$first"
  check_copies
  is_sound "$first"
  carry "$first" "$second"
  is_sound "$second"
  lhv "$second" queue ls --json | grep -q '"waiting":[1-9]' && fail "messages are left in a queue"
  return 0
}

travel linux windows
travel windows linux
echo "A data folder is the same on both systems."
