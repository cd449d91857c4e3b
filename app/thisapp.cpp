#include "app/thisapp.h"

#include <utility>

#include "app/datafolder.h"
#include "app/productname.h"
#include "app/settings.h"
#include "platform/file.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

bool CThisApp::InitInstance() {
    if (!TakeInstance()) return false;
    m_isRunning = StartUp();
    if (!m_isRunning) {
        // A start that ended in order is no unclean shutdown.
        if (std::exchange(m_hasMarked, false)) WriteSetting("Execution", "WasShutDown", 1);
        m_instance.Release();
    }
    return m_isRunning;
}

bool CThisApp::StartUp() {
    bool splash = ReadSetting("General", "ShowSplash", 1) == 1;
    if (splash && !m_frontEnd.ShowSplash()) {
        m_frontEnd.ReportProblem("Failed to create splash screen");
        WriteSetting("General", "ShowSplash", 0);
        splash = false;
    }
    const bool isLoaded = PrepareToLoad() && m_frontEnd.LoadMainWindow();
    if (splash) m_frontEnd.CloseSplash();
    if (!isLoaded) return false;

    if (ReadSetting("Execution", "Configured", 0) == 0 && m_frontEnd.RunFirstSetup())
        WriteSetting("Execution", "Configured", 1);
    if (ReadSetting("Log Details Window", "LoadAtStartup", 0) == 1)
        m_frontEnd.OpenLogWindow(ReadSetting("Log Details Window", "ShowAtStartup", 0) == 1);
    return true;
}

bool CThisApp::PrepareToLoad() {
    return m_frontEnd.PrepareControls() && OpenFolder() && CheckLastShutdown();
}

void CThisApp::ExitInstance() {
    if (!std::exchange(m_isRunning, false)) return;
    WriteSetting("Execution", "WasShutDown", 1);
    m_instance.Release();
}

bool CThisApp::TakeInstance() {
    // The mutex lies in the data folder where the system has none of its own, so
    // a folder that cannot be used has to be found out first.
    std::string folder;
    try {
        folder = GetDataFolder();
    } catch (const CLhvException& exception) {
        return Stop(exception.GetDescription());
    }
    if (const std::string fault = CheckDataFolder(folder); !fault.empty()) return Stop(fault);

    switch (m_instance.Acquire(InstanceMutexName)) {
        case Platform::CPresence::Result::Acquired:
            return true;
        case Platform::CPresence::Result::Failed:
            return Stop("The mutex of the application cannot be created: " +
                        Platform::SystemErrorText(Platform::LastSystemError()));
        case Platform::CPresence::Result::AlreadyHeld:
        case Platform::CPresence::Result::AccessDenied:
            break;
    }
    if (!m_frontEnd.ActivateOtherInstance()) Stop("Another instance of this application is already running. ");
    return false;
}

bool CThisApp::OpenFolder() {
    const std::string folder = GetDataFolder();
    if (!Platform::ChangeToFolder(WithoutSeparator(folder))) return Stop("Failed to set working directory.");
    if (!m_frontEnd.RegisterMainWindow()) return false;
    if (const std::string fault = CheckDataFolder(folder); !fault.empty()) return Stop(fault);
    // Nothing may be written into a settings file that is none.
    const std::string fault = CheckSettingsFile();
    return fault.empty() || Stop(fault);
}

bool CThisApp::CheckLastShutdown() {
    if (ReadSetting("Execution", "WasShutDown", 1) == 1) {
        m_hasMarked = WriteSetting("Execution", "WasShutDown", 0);
        return m_hasMarked || Stop("The settings file cannot be written: " + DescribeLastError());
    }
    return !m_frontEnd.AskForRepair() || m_frontEnd.Repair();
}

bool CThisApp::Stop(const std::string& message) {
    m_frontEnd.ReportStop(message);
    return false;
}

bool IsServerRunning() {
    return Platform::CPresence::IsHeld(ServerMutexName);
}
