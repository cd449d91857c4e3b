#include "tests/integration/mailworld.h"

#include <algorithm>

#include "mime/messagecomposer.h"
#include "mime/mimemessage.h"
#include "net/pop3session.h"
#include "net/smtpsession.h"

namespace {

const std::string Password = "a pass word";

std::string WithoutToken(std::string subject) {
    const std::size_t at = subject.find(" [LHV-");
    if (at != std::string::npos) subject.erase(at, subject.find(']', at) + 1 - at);
    return subject;
}

}  // namespace

CMail::CMail(std::string whole) : text(std::move(whole)), subject(WithoutToken(Field("Subject"))) {
    CMimeMessage message;
    if (message.LoadText(text)) body = GetMessageText(message, TextKind::Plain);
}

std::string CMail::Field(const char* name) const {
    CMimeMessage message;
    return message.LoadText(text) ? message.GetRoot()->GetField(name) : std::string();
}

CMailWorld::CMailWorld(const std::vector<std::string>& mailboxes) : m_people(mailboxes) {
    for (const std::string& mailbox : mailboxes)
        m_server.AddUser(mailbox, Password);
}

bool CMailWorld::Start() {
    if (!m_server.Start()) return false;
    Set("Execution", "GenerationPause", "0");
    Set("Service", "ReplyInterval", "0");
    Set("Service", "SmtpPort", std::to_string(m_server.GetPort()));
    Set("Service", "Pop3Port", std::to_string(m_server.GetMailboxes().GetPort()));
    return true;
}

void CMailWorld::Set(const std::string& section, const std::string& key, const std::string& value) const {
    m_runner.MustRun({"settings", "set", section, key, value});
}

void CMailWorld::MakeList(const std::string& name, const std::string& mailbox,
                          const std::vector<std::string>& options) {
    std::vector<std::string> create = {"list",
                                       "create",
                                       name,
                                       "--email",
                                       mailbox + "@lists.example",
                                       "--command-email",
                                       mailbox + "+cmd@lists.example"};
    create.insert(create.end(), options.begin(), options.end());
    m_runner.MustRun(create);
    const std::pair<const char*, std::string> settings[] = {{"popHost", "127.0.0.1"},
                                                            {"popLogin", mailbox},
                                                            {"popPassword", Password},
                                                            {"smtpHost", "127.0.0.1"},
                                                            {"maxConnections", "1"}};
    for (const auto& [key, value] : settings)
        m_runner.MustRun({"list", "set", name, key, value});
    std::erase(m_people, mailbox);
}

void CMailWorld::Send(const CLetter& letter) {
    const std::string text = "From: " + letter.from + "\r\nTo: " + letter.to + "\r\nSubject: " + letter.subject +
                             "\r\nMessage-ID: <letter-" + std::to_string(++m_letters) + "@home.example>\r\n" +
                             letter.more + "\r\n" + letter.body;
    Net::SmtpMessage message;
    message.envelopeSender = letter.from;
    message.recipients = {letter.to};
    message.file = m_runner.WriteFile("letter.eml", text);
    message.size = text.size();
    Net::SmtpOptions options;
    options.connect.host = "127.0.0.1";
    options.connect.port = m_server.GetPort();
    options.connect.tlsMode = Net::TlsMode::None;
    Net::CSmtpSession session;
    Net::SmtpSendResult result;
    EXPECT_TRUE(session.Open(options) && session.Send(message, result)) << session.GetFailure().text;
    session.Close();
}

void CMailWorld::Reply(const std::string& from, const CMail& mail, const std::string& more, const char* to) {
    const std::string id = mail.Field("Message-ID");
    const std::string address = mail.Field(mail.Field(to).empty() ? "From" : to);
    const std::size_t open = address.find('<');
    Send({.from = from,
          .to = open == std::string::npos ? address : address.substr(open + 1, address.find('>') - open - 1),
          .subject = "Re: " + mail.Field("Subject"),
          .more = "In-Reply-To: " + id + "\r\nReferences: " + id + "\r\n" + more});
}

void CMailWorld::Serve() {
    Platform::CChildProcess server;
    int status = -1;
    EXPECT_TRUE(m_server.WaitForDelivery()) << m_server.GetLog();
    ASSERT_TRUE(m_runner.Start(server, {"run", "--once"}, LISTHAVEN_SERVER));
    ASSERT_TRUE(server.WaitFor(std::chrono::minutes(1), status)) << "the server hangs";
    EXPECT_EQ(status, 0) << CProgramRunner::ReadFile(m_runner.Path("stderr"));
    EXPECT_TRUE(m_server.WaitForDelivery()) << m_server.GetLog();
}

bool CMailWorld::ServeAndKill(std::chrono::milliseconds after) {
    Platform::CChildProcess server;
    int status = -1;
    if (!m_runner.Start(server, {"run", "--once"}, LISTHAVEN_SERVER)) return false;
    const bool hasEnded = server.WaitFor(after, status);
    EXPECT_TRUE(!hasEnded || status == 0) << CProgramRunner::ReadFile(m_runner.Path("stderr"));
    server.Kill();
    return !hasEnded;
}

std::vector<CMail> CMailWorld::Read(const std::string& mailbox) {
    Net::Pop3Options options;
    options.connect.host = "127.0.0.1";
    options.connect.port = m_server.GetMailboxes().GetPort();
    options.connect.tlsMode = Net::TlsMode::None;
    Net::CPop3Session session;
    Net::CPop3Listing messages;
    EXPECT_TRUE(session.Open(options) && session.Login(Net::Pop3Login::UserPass, mailbox, Password) &&
                session.GetMessages(messages))
        << mailbox << ": " << session.GetFailure().text;
    std::vector<CMail> mails;
    for (std::size_t i = 0; i < messages.GetCount(); ++i) {
        std::string text;
        EXPECT_TRUE(session.Retrieve(messages.Get(i).number, 10'000'000, [&](std::string_view block) {
            text += block;
            return true;
        }));
        mails.emplace_back(std::move(text));
    }
    session.Close();
    return mails;
}

std::string CMailWorld::Subjects(const std::string& mailbox) {
    std::map<std::string, int> counts;
    for (const CMail& mail : Read(mailbox))
        ++counts[mail.subject];
    std::string text;
    for (const auto& [subject, count] : counts)
        text += (text.empty() ? "" : "; ") + subject + (count == 1 ? "" : "*" + std::to_string(count));
    return text;
}

std::size_t CMailWorld::CountMail() {
    std::size_t count = 0;
    for (const std::string& mailbox : m_people)
        count += Read(mailbox).size();
    return count;
}

bool CMailWorld::IsMember(const std::string& list, const std::string& address) const {
    return m_runner.Run({"member", "show", list, address}).status == 0;
}
