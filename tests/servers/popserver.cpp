#include "tests/servers/popserver.h"

#include <filesystem>

#include "utility/text.h"

namespace TestServers {

namespace {

constexpr const char* Configuration = R"(
base_dir = @/run
state_dir = @/state
instance_name = listhaven-test
log_path = /dev/stderr
protocols = pop3
listen = 127.0.0.1
ssl = yes
ssl_cert = <@/certificate.pem
ssl_key = <@/key.pem
disable_plaintext_auth = no
auth_mechanisms = plain login apop
auth_failure_delay = 0
mail_location = maildir:@/mail/%u
mail_max_userip_connections = 100
first_valid_uid = 1
first_valid_gid = 1
passdb {
  driver = passwd-file
  args = scheme=PLAIN username_format=%u @/users
}
userdb {
  driver = static
  args = home=@/mail/%u
}
service auth {
  unix_listener @/auth {
    mode = 0666
  }
}
service pop3-login {
  service_count = 0
  inet_listener pop3 {
    port = PORT
  }
  inet_listener pop3s {
    port = TLS
    ssl = yes
  }
}
)";

// Root may not own mail; nobody may.
constexpr const char* RunByRoot = "mail_uid = 65534\nmail_gid = 65534\n";
constexpr const char* RunByOther = R"(
default_internal_user = USER
default_internal_group = GROUP
default_login_user = USER
mail_uid = USER
mail_gid = GROUP
service anvil {
  chroot =
}
service stats {
  chroot =
}
service pop3-login {
  chroot =
}
)";

std::string AskForName(const char* option) {
    std::string output;
    RunProgram(FindProgram("id"), {option}, output);
    return std::string(Trim(output));
}

}  // namespace

bool CPopServer::IsInstalled() {
    if (!CTestServer::IsInstalled()) return false;
    return std::filesystem::exists(TestPath("/usr/lib/dovecot/pop3")) || Fail("dovecot is installed without POP3");
}

void CPopServer::AddUser(const std::string& login, const std::string& password) {
    m_users += login + ":{PLAIN}" + password + '\n';
    for (const char* part : {"/cur", "/new", "/tmp"})
        std::filesystem::create_directories(MailFolder(login) + part);
}

void CPopServer::AddMessage(const std::string& login, const std::string& name, const std::string& message) {
    const std::string path = MailFolder(login) + "/new/" + name;
    Put(path, message);
    using std::filesystem::perms;
    std::filesystem::permissions(path, perms::owner_read | perms::owner_write | perms::group_read | perms::others_read);
}

std::size_t CPopServer::CountMessages(const std::string& login) const {
    std::size_t count = 0;
    for (const char* part : {"/cur", "/new"})
        count +=
            static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(MailFolder(login) + part), {}));
    return count;
}

bool CPopServer::Prepare(CCommand& command) {
    m_port = FindFreePort();
    do {
        m_tlsPort = FindFreePort();
    } while (m_tlsPort == m_port);
    if (m_certificate.keyFile.empty() && !MakeCertificate(m_folder.GetPath(), m_certificate))
        return Fail("openssl makes no certificate");
    std::string text = std::string(Configuration) + (IsAdministrator() ? RunByRoot : RunByOther);
    ReplaceAll(text, "@", ServerPath(m_folder.GetPath()));
    ReplaceAll(text, "PORT", std::to_string(m_port));
    ReplaceAll(text, "TLS", std::to_string(m_tlsPort));
    ReplaceAll(text, "USER", AskForName("-un"));
    ReplaceAll(text, "GROUP", AskForName("-gn"));
    std::string output;
    if (!RunProgram(FindProgram("chmod"), {"-R", "a+rwX", OnServer("mail")}, output))
        return Fail("the mailboxes cannot be opened to the server: " + output);
    Put(m_folder / "users", m_users);
    Put(m_folder / "dovecot.conf", text);
    std::filesystem::create_directory(m_folder / "state");
    command.arguments = {"-F", "-c", OnServer("dovecot.conf")};
    command.port = m_port;
    return true;
}

}  // namespace TestServers
