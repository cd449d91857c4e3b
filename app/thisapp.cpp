#include "app/thisapp.h"

#include "app/datafolder.h"
#include "app/productname.h"
#include "app/settings.h"
#include "platform/file.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

bool CThisApp::InitInstance() {
    if (!TakeInstance()) return false;

    bool splash = ReadSetting("General", "ShowSplash", 1) == 1;
    if (splash && !m_frontEnd.ShowSplash()) {
        m_frontEnd.ReportProblem("Failed to create splash screen");
        WriteSetting("General", "ShowSplash", 0);
        splash = false;
    }
    if (!m_frontEnd.PrepareControls()) return false;
    if (!OpenFolder() || !CheckLastShutdown()) return false;
    if (!m_frontEnd.LoadMainWindow()) return false;
    if (splash) m_frontEnd.CloseSplash();

    if (ReadSetting("Execution", "Configured", 0) == 0 && m_frontEnd.RunFirstSetup())
        WriteSetting("Execution", "Configured", 1);
    if (ReadSetting("Log Details Window", "LoadAtStartup", 0) == 1)
        m_frontEnd.OpenLogWindow(ReadSetting("Log Details Window", "ShowAtStartup", 0) == 1);
    return true;
}

void CThisApp::ExitInstance() {
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
    const std::string fault = CheckDataFolder(folder);
    return fault.empty() || Stop(fault);
}

bool CThisApp::CheckLastShutdown() {
    if (ReadSetting("Execution", "WasShutDown", 1) == 1) {
        if (!WriteSetting("Execution", "WasShutDown", 0)) return Stop("The settings file cannot be written.");
        return true;
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
