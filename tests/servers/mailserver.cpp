#include "tests/servers/mailserver.h"

#include <filesystem>

#include "utility/text.h"

namespace TestServers {

namespace {

constexpr const char* MainConfiguration = R"(
compatibility_level = 3.6
queue_directory = @/queue
data_directory = @/data
mail_owner = postfix
maillog_file = @/log
maillog_file_prefixes = @
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
myhostname = mx.local.example
mydomain = local.example
mynetworks =
mydestination =
alias_maps =
alias_database =
virtual_mailbox_domains = regexp:@/conf/domains
virtual_mailbox_maps = regexp:@/conf/mailboxes
virtual_mailbox_base = MAILBOXES
virtual_uid_maps = static:65534
virtual_gid_maps = static:65534
virtual_minimum_uid = 1
default_transport = error:nothing leaves this machine
disable_dns_lookups = yes
message_size_limit = LIMIT
virtual_mailbox_limit = 0
header_checks = regexp:@/conf/headers
smtpd_reject_unlisted_recipient = no
smtpd_recipient_restrictions = check_recipient_access regexp:@/conf/recipients
smtpd_relay_restrictions = permit_sasl_authenticated, reject_unauth_destination
smtpd_tls_security_level = may
smtpd_tls_cert_file = @/certificate.pem
smtpd_tls_key_file = @/key.pem
smtpd_tls_session_cache_database =
smtpd_sasl_type = dovecot
smtpd_sasl_path = AUTHSOCKET
smtpd_sasl_auth_enable = no
smtpd_sasl_security_options = noanonymous
smtpd_client_connection_rate_limit = 0
smtpd_client_connection_count_limit = 0
smtpd_error_sleep_time = 0
smtputf8_enable = yes
)";

// Each connection has a process of its own (max_use), which reads the answers to
// recipients as they are then.
constexpr const char* MasterConfiguration = R"(
127.0.0.1:PLAIN inet n - n - - smtpd -o max_use=1
127.0.0.1:CLEAR inet n - n - - smtpd -o max_use=1 -o smtpd_sasl_auth_enable=yes -o smtpd_tls_security_level=none
  -o smtpd_relay_restrictions=permit_sasl_authenticated,reject
127.0.0.1:TLS inet n - n - - smtpd -o max_use=1 -o smtpd_sasl_auth_enable=yes -o smtpd_tls_wrappermode=yes
  -o smtpd_relay_restrictions=permit_sasl_authenticated,reject
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
virtual unix - n n - - virtual
anvil unix - - n - 1 anvil
postlog unix-dgram n - n - 1 postlogd
)";

}  // namespace

bool CMailServer::IsInstalled() {
    if (!CTestServer::IsInstalled()) return false;
    if (!IsAdministrator()) return Fail("postfix runs for root only");
    return m_mailboxes.IsInstalled() || Fail(m_mailboxes.WhyNot());
}

void CMailServer::AddUser(const std::string& login, const std::string& password) {
    m_mailboxes.AddUser(login, password);
    m_users += "/^" + login + "(\\+.*)?@/ " + login + "/\n";
}

void CMailServer::AnswerRecipient(const std::string& address, const std::string& answer) {
    m_answers[address] = answer;
    WriteAnswers();
}

void CMailServer::WriteAnswers() {
    if (!std::filesystem::exists(m_folder / "conf")) return;
    std::string text;
    for (const auto& [address, answer] : m_answers) {
        std::string pattern = address;
        ReplaceAll(pattern, ".", "\\.");
        ReplaceAll(pattern, "+", "\\+");
        if (!answer.empty()) text += "/^" + pattern + "$/ " + answer + '\n';
    }
    Put(m_folder / "conf/recipients", text);
}

// The folders that Postfix wants, owned by its user.
bool CMailServer::MakeQueue(std::string& output) const {
    const std::string install = FindProgram("install");
    std::vector<std::string> arguments = {"-d", "-o", "postfix", "-m", "0700", OnServer("data")};
    for (const char* part :
         {"active", "bounce", "corrupt", "defer", "deferred", "flush", "hold", "incoming", "private", "saved", "trace"})
        arguments.push_back(OnServer(std::string("queue/") + part));
    std::filesystem::create_directory(m_folder / "queue/pid");
    return RunProgram(install, arguments, output) &&
           RunProgram(install, {"-d", "-o", "postfix", "-g", "postdrop", "-m", "0730", OnServer("queue/maildrop")},
                      output) &&
           RunProgram(install, {"-d", "-o", "postfix", "-g", "postdrop", "-m", "0710", OnServer("queue/public")},
                      output);
}

bool CMailServer::Prepare(CCommand& command) {
    if (!m_mailboxes.IsRunning() && !m_mailboxes.Start()) return Fail(m_mailboxes.WhyNot());
    if (m_certificate.keyFile.empty() && !MakeCertificate(m_folder.GetPath(), m_certificate))
        return Fail("openssl makes no certificate");
    m_port = FindFreePort();
    do {
        m_authPort = FindFreePort();
        m_tlsPort = FindFreePort();
    } while (m_port == m_authPort || m_port == m_tlsPort || m_authPort == m_tlsPort);
    for (const char* part : {"conf", "queue"})
        std::filesystem::create_directory(m_folder / part);

    std::string text = MainConfiguration;
    ReplaceAll(text, "@", ServerPath(m_folder.GetPath()));
    ReplaceAll(text, "LIMIT", std::to_string(SizeLimit));
    ReplaceAll(text, "MAILBOXES", ServerPath(m_mailboxes.GetMailFolder()));
    ReplaceAll(text, "AUTHSOCKET", m_mailboxes.GetAuthSocket());
    Put(m_folder / "conf/main.cf", text);
    text = MasterConfiguration;
    ReplaceAll(text, "PLAIN", std::to_string(m_port));
    ReplaceAll(text, "CLEAR", std::to_string(m_authPort));
    ReplaceAll(text, "TLS", std::to_string(m_tlsPort));
    Put(m_folder / "conf/master.cf", text);
    Put(m_folder / "conf/domains", "/\\.example$/ taken\n");
    Put(m_folder / "conf/mailboxes", "if !/@bounce\\.example$/\n" + m_users + "/@/ all/\nendif\n");
    Put(m_folder / "conf/headers", "/^X-Refuse-Me:/ REJECT This header is not wanted\n");
    WriteAnswers();

    std::string output;
    if (!MakeQueue(output) ||
        !RunProgram(FindProgram("postconf"), {"-c", OnServer("conf"), "-h", "daemon_directory"}, output))
        return Fail("postfix cannot be set up: " + output);
    command.program = std::string(Trim(output)) + "/master";
    command.arguments = {"-c", OnServer("conf"), "-d"};
    command.port = m_port;
    return true;
}

std::vector<std::string> CMailServer::GetMessages() const {
    std::vector<std::string> messages;
    const std::string folder = m_mailboxes.GetMailFolder() + "/all/new";
    if (!std::filesystem::exists(folder)) return messages;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        messages.push_back(Get(entry.path().string()));
    return messages;
}

std::size_t CMailServer::CountMessages() const {
    return GetMessages().size();
}

bool CMailServer::WaitForMessages(std::size_t count) const {
    return WaitUntil([&] { return CountMessages() >= count; });
}

bool CMailServer::WaitForDelivery() const {
    const auto isEmpty = [this] {
        for (const char* part : {"maildrop", "incoming", "active", "deferred"}) {
            for (const auto& entry :
                 std::filesystem::recursive_directory_iterator(m_folder / (std::string("queue/") + part))) {
                // An empty one belongs to a session under way, or cut off: of a client that was killed under Wine the
                // connection can stay open.
                std::error_code hasGone;
                if (entry.is_regular_file(hasGone) && entry.file_size(hasGone) > 0 && !hasGone) return false;
            }
        }
        return true;
    };
    // Twice: what moves from one folder to another may be missed once.
    return WaitUntil([&] { return isEmpty() && isEmpty(); });
}

}  // namespace TestServers
