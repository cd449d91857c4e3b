#include "senddaemon/accountcheck.h"

#include <memory>
#include <vector>

#include "net/smtpsession.h"
#include "platform/filestatus.h"
#include "senddaemon/configuration.h"
#include "senddaemon/directmessagesender.h"
#include "senddaemon/dnsclient.h"
#include "senddaemon/mxrecords.h"
#include "senddaemon/nullmessagesender.h"
#include "senddaemon/popclient.h"
#include "senddaemon/smtpmessagesender.h"
#include "senddaemon/smtpsettings.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

using Report = std::function<void(const CAccountCheckStep&)>;

class CAccountCheck {
public:
    CAccountCheck(const CConfiguration& config, const Report& report) : m_config(config), m_report(report) {}

    bool CheckFolder();
    bool CheckRelay();
    bool CheckDomain(std::string_view domain);
    bool Fail(const char* step, const std::string& text) { return Say(step, false, text); }

private:
    bool Say(const char* step, bool isGood, const std::string& text) {
        m_report({.name = step, .isGood = isGood, .text = OneLine(text)});
        return isGood;
    }
    bool CheckServer(const CSmtpSettings& settings, Net::Resolver resolver);
    void DescribeTls(const Net::CSmtpSession& session, const CSmtpSettings& settings);
    bool CheckLogin(Net::CSmtpSession& session, const CSmtpSettings& settings);

    const CConfiguration& m_config;
    const Report& m_report;
};

std::string DescribeOffers(const Net::SmtpCapabilities& server) {
    std::vector<std::string> offers;
    if (server.hasPipelining) offers.emplace_back("PIPELINING");
    if (server.has8BitMime) offers.emplace_back("8BITMIME");
    if (server.hasSmtpUtf8) offers.emplace_back("SMTPUTF8");
    if (server.hasEnhancedCodes) offers.emplace_back("ENHANCEDSTATUSCODES");
    if (server.hasDsn) offers.emplace_back("DSN");
    if (server.hasStartTls) offers.emplace_back("STARTTLS");
    if (server.hasSize) {
        offers.push_back(server.sizeLimit > 0 ? "SIZE up to " + std::to_string(server.sizeLimit) + " octets"
                                              : std::string("SIZE"));
    }
    if (!server.authMechanisms.empty()) offers.push_back("AUTH " + Join(server.authMechanisms, " "));
    const std::string name = server.serverName.empty() ? "the server" : server.serverName;
    return name + (offers.empty() ? " offers nothing beyond plain SMTP" : " offers " + Join(offers, ", "));
}

bool CAccountCheck::CheckFolder() {
    std::string folder;
    if (!m_config.GetFileName("TargetFolder", folder)) return Fail("folder", GetLastErrorText());
    if (folder.empty()) return Fail("folder", "TargetFolder is not set: every message would fail.");
    if (!Platform::FolderIsThere(folder)) return Say("folder", true, folder + " will be made by the first message");
    return Say("folder", true, "messages are put into " + folder);
}

bool CAccountCheck::CheckRelay() {
    CSmtpSettings settings;
    if (!settings.Read(m_config)) return Fail("settings", GetLastErrorText());
    if (!settings.popHostName.empty()) {
        CPopClient pop;
        if (pop.Authenticate(settings))
            Say("pop3", true, "logged in to " + settings.popHostName + " as " + settings.popLogin);
        else
            Say("pop3", false, settings.popHostName + ": " + GetLastErrorText() + " (sending goes on without)");
    }
    return CheckServer(settings, {});
}

bool CAccountCheck::CheckServer(const CSmtpSettings& settings, Net::Resolver resolver) {
    const std::string where = settings.hostName + " port " + std::to_string(settings.port);
    Net::CSmtpSession session;
    if (!session.Open(settings.MakeSmtpOptions(std::move(resolver)))) {
        return Fail("connect", where + ": " + session.GetFailure().text);
    }
    Say("connect", true, where + " (" + session.GetConnection().GetPeerAddress() + ")");
    DescribeTls(session, settings);
    Say("offers", true, DescribeOffers(session.GetCapabilities()));
    const bool isGood = CheckLogin(session, settings);
    session.Close();
    return isGood;
}

void CAccountCheck::DescribeTls(const Net::CSmtpSession& session, const CSmtpSettings& settings) {
    if (!session.IsEncrypted()) {
        const bool isOffered = session.GetCapabilities().hasStartTls;
        Say("tls", true,
            isOffered ? "offered and not used" : "not offered: messages and passwords travel in the clear");
        return;
    }
    const Net::CConnection& connection = session.GetConnection();
    std::string text = connection.DescribeTls() + "; certificate ";
    text += connection.IsCertificateVerified() ? "is good" : "is not good";
    text += ": " + connection.DescribeCertificate();
    if (!connection.IsCertificateVerified() && settings.tlsMode == Net::TlsMode::Opportunistic) {
        text += " (TlsMode Opportunistic does not ask for a good one)";
    }
    Say("tls", true, text);
}

bool CAccountCheck::CheckLogin(Net::CSmtpSession& session, const CSmtpSettings& settings) {
    if (settings.login.empty()) return Say("login", true, "none is set");
    if (!session.Authenticate(settings.login, settings.password)) {
        return Fail("login", settings.login + ": " + session.GetFailure().text);
    }
    return Say("login", true,
               "accepted as " + settings.login + (session.IsEncrypted() ? "" : ", with the password in the clear"));
}

bool CAccountCheck::CheckDomain(std::string_view domain) {
    CDnsSettings dns;
    if (!dns.Read(m_config)) return Fail("settings", GetLastErrorText());
    const std::unique_ptr<CDnsClient> client = CMxRecordEnumerator::CreateDnsClient(dns);
    std::vector<std::string> exchangers;
    const std::string name(domain);
    if (!client || !client->GetMailExchangers(name, exchangers)) {
        const std::string server = dns.server.empty() ? "the system's name server" : dns.server;
        Say("dns", false, server + ": " + name + ": " + GetLastErrorText());
        return m_config.GetNumber("DnsUseFallback") > 0 && CheckRelay();
    }
    Say("dns", true, "mail for " + name + " goes to " + Join(exchangers, ", "));
    CSmtpSettings settings;
    for (const std::string& exchanger : exchangers) {
        if (!settings.ReadFor(m_config, exchanger)) return Fail("settings", GetLastErrorText());
        if (CheckServer(settings, client->MakeResolver())) return true;
    }
    return false;
}

}  // namespace

bool CheckAccount(const CConfiguration& config, std::string_view domain, const Report& report) {
    CAccountCheck check(config, report);
    const std::string method = config.GetText("SendMethod");
    if (method == CNullMessageSender::MethodName) return check.CheckFolder();
    if (method == SmtpMessageSender2::MethodName) return check.CheckRelay();
    if (method == CDirectMessageSender::MethodName) return check.CheckDomain(domain);
    return check.Fail("settings", "There is no send method \"" + method + "\".");
}

}  // namespace SendDaemon
