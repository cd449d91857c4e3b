# Sourced by demo-lists.sh: Postfix and Dovecot on loopback, from one folder, on
# free ports, with a mailbox for every name at town.example that is asked for.
# An address without one is taken, and comes back to its sender.  Sets $smtp_port
# and $pop_port.

servers=""       # their folder
dovecot_pid="" postfix_pid=""

answers() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }
free_port() {
  local port
  while port=$((20000 + RANDOM % 10000)); answers "$port"; do :; done
  echo "$port"
}

# start_dovecot MAILBOX...
start_dovecot() {
  local name
  pop_port=$(free_port)
  for name in "$@"; do echo "$name@town.example:{PLAIN}secret"; done >"$servers/users"
  mkdir "$servers/run" "$servers/state" "$servers/mail"
  chown nobody:nogroup "$servers/mail"
  cat >"$servers/dovecot.conf" <<END
base_dir = $servers/run
state_dir = $servers/state
instance_name = listhaven-demo
log_path = $servers/dovecot.log
protocols = pop3 lmtp
listen = 127.0.0.1
ssl = yes
ssl_cert = <$servers/certificate.pem
ssl_key = <$servers/key.pem
auth_failure_delay = 0
mail_location = maildir:$servers/mail/%n
first_valid_uid = 1
first_valid_gid = 1
passdb {
  driver = passwd-file
  args = scheme=PLAIN username_format=%u $servers/users
}
userdb {
  driver = static
  args = uid=nobody gid=nogroup home=$servers/mail/%n
}
service pop3-login {
  inet_listener pop3 {
    port = $pop_port
  }
  inet_listener pop3s {
    port = 0
  }
}
service lmtp {
  unix_listener $servers/lmtp {
    mode = 0666
  }
}
END
  dovecot -F -c "$servers/dovecot.conf" >"$servers/dovecot.out" 2>&1 &
  dovecot_pid=$!
  wait_for answers "$pop_port" || { cat "$servers/dovecot.out" >&2; return 1; }
}

# start_postfix ALIAS=MAILBOX...
start_postfix() {
  local aliases="" pair part
  smtp_port=$(free_port)
  for pair in "$@"; do aliases="$aliases {${pair%=*}@town.example = ${pair#*=}@town.example}"; done
  mkdir "$servers/conf" "$servers/queue" "$servers/queue/pid"
  install -d -o postfix -m 0700 "$servers/data"
  for part in active bounce corrupt defer deferred flush hold incoming private saved trace; do
    install -d -o postfix -m 0700 "$servers/queue/$part"
  done
  install -d -o postfix -g postdrop -m 0730 "$servers/queue/maildrop"
  install -d -o postfix -g postdrop -m 0710 "$servers/queue/public"
  cat >"$servers/conf/main.cf" <<END
compatibility_level = 3.6
queue_directory = $servers/queue
data_directory = $servers/data
maillog_file = $servers/postfix.log
maillog_file_prefixes = $servers
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mx.town.example
mynetworks =
mydestination =
alias_maps =
virtual_alias_maps = ${aliases:+inline:{$aliases }}
virtual_mailbox_domains = town.example
virtual_mailbox_maps = static:any
virtual_transport = lmtp:unix:$servers/lmtp
default_transport = error:nothing leaves this machine
disable_dns_lookups = yes
smtpd_relay_restrictions = reject_unauth_destination
smtpd_tls_security_level = may
smtpd_tls_cert_file = $servers/certificate.pem
smtpd_tls_key_file = $servers/key.pem
smtpd_client_connection_rate_limit = 0
smtpd_client_connection_count_limit = 0
END
  cat >"$servers/conf/master.cf" <<END
127.0.0.1:$smtp_port inet n - n - - smtpd
cleanup unix n - n - 0 cleanup
qmgr unix n - n 300 1 qmgr
tlsmgr unix - - n 1000? 1 tlsmgr
rewrite unix - - n - - trivial-rewrite
bounce unix - - n - 0 bounce
defer unix - - n - 0 bounce
trace unix - - n - 0 bounce
proxymap unix - - n - - proxymap
error unix - - n - - error
retry unix - - n - - error
lmtp unix - - n - - lmtp
anvil unix - - n - 1 anvil
postlog unix-dgram n - n - 1 postlogd
END
  "$(postconf -c "$servers/conf" -h daemon_directory)/master" -c "$servers/conf" -d >"$servers/postfix.out" 2>&1 &
  postfix_pid=$!
  wait_for answers "$smtp_port" || { cat "$servers/postfix.out" "$servers/postfix.log" >&2; return 1; }
}

# Nothing is on its way any more.
all_delivered() {
  ! find "$servers"/queue/{maildrop,incoming,active,deferred} -type f | grep -q .
}

make_servers_folder() {
  servers=$(mktemp -d)
  chmod 755 "$servers"
  openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -addext subjectAltName=IP:127.0.0.1 \
    -keyout "$servers/key.pem" -out "$servers/certificate.pem" 2>/dev/null
}
stop_servers() {
  local pid
  for pid in $postfix_pid $dovecot_pid; do kill "$pid" 2>/dev/null || true; done
  for pid in $postfix_pid $dovecot_pid; do wait "$pid" 2>/dev/null || true; done
  postfix_pid="" dovecot_pid=""
  [ -z "$servers" ] || rm -rf "$servers"
}
