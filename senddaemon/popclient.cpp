#include "senddaemon/popclient.h"

#include "app/datafolder.h"
#include "app/settings.h"
#include "platform/process.h"
#include "senddaemon/daemonlog.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace SendDaemon {

namespace {

void LogStep(const char* name) {
    LogFormat(LogLevelTrace, "[%u] %s\n", static_cast<unsigned>(Platform::CurrentThreadId()), name);
}

}  // namespace

bool CPopClient::Connect(const CSmtpSettings& settings, const std::string& traceFile) {
    LogStep("Connect ()");
    m_session.Close();
    if (m_session.Open(settings.MakePop3Options(traceFile))) return true;
    SetLastErrorText(m_session.GetFailure().text);
    return false;
}

bool CPopClient::Login(Net::Pop3Login method, const CSmtpSettings& settings) {
    LogStep("Login ()");
    if (method == Net::Pop3Login::UserPass && !m_session.GetConnection().IsEncrypted()) {
        LogFormat(LogLevelWarning, "The password for %s is sent to %s without encryption.", settings.popLogin.c_str(),
                  settings.popHostName.c_str());
    }
    if (m_session.Login(method, settings.popLogin, settings.popPassword)) return true;
    SetLastErrorText(m_session.GetFailure().text);
    return false;
}

void CPopClient::Disconnect() {
    LogStep("Disconnect ()");
    m_session.Close();
}

std::string CPopClient::GetTraceFile() {
    if (ReadSetting("Execution", "DebugMode", 0) == 0) return {};
    LogStep("EnableTrace ()");
    return JoinPath(GetLogFolder(), "PopTrace.txt");
}

bool CPopClient::Open(const CSmtpSettings& settings) {
    const std::string traceFile = GetTraceFile();
    if (!Connect(settings, traceFile)) return false;
    if (m_session.HasApop()) {
        if (Login(Net::Pop3Login::Apop, settings)) return true;
        if (m_session.GetFailure().kind == Net::FailureKind::Cancelled) return false;
        Disconnect();
        if (!Connect(settings, traceFile)) return false;
    }
    if (Login(Net::Pop3Login::UserPass, settings)) return true;
    Disconnect();
    return false;
}

bool CPopClient::Authenticate(const CSmtpSettings& settings) {
    const std::string traceFile = GetTraceFile();
    if (!Connect(settings, traceFile)) return false;
    if (!Login(Net::Pop3Login::Apop, settings)) {
        Disconnect();
        if (!Connect(settings, traceFile)) return false;
        if (!Login(Net::Pop3Login::UserPass, settings)) {
            m_session.Close();
            return false;
        }
    }
    LogStep("RegisterEvent ()");
    Disconnect();
    return true;
}

}  // namespace SendDaemon
