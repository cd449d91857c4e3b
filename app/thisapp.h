// thisapp.h - the front end's start-up and shutdown, in their order.
//
// Errors   InitInstance() returns false after the front end has been told why,
//          or has brought the other instance forward; nothing needs to be
//          undone then, and ExitInstance() does nothing.
// Threads  One.
// Crash    "WasShutDown" stays 0 until ExitInstance(), so the next start knows.

#ifndef LISTHAVEN_APP_THISAPP_H
#define LISTHAVEN_APP_THISAPP_H

#include <string>

#include "platform/namedmutex.h"

// Everything that a person sees or answers.
class IFrontEnd {
public:
    virtual ~IFrontEnd() = default;

    // Brings the window of the other instance forward; false when there is none.
    virtual bool ActivateOtherInstance() = 0;
    virtual bool ShowSplash() = 0;
    virtual void CloseSplash() = 0;
    virtual bool PrepareControls() = 0;  // of the window system
    virtual bool RegisterMainWindow() { return true; }
    virtual bool AskForRepair() = 0;  // the last run did not end cleanly: repair the data files?
    virtual bool Repair() = 0;        // false: start-up ends
    virtual bool LoadMainWindow() = 0;
    virtual bool RunFirstSetup() = 0;  // true when it was completed
    virtual void OpenLogWindow(bool visible) = 0;

    virtual void ReportStop(const std::string& message) = 0;     // start-up ends with this
    virtual void ReportProblem(const std::string& message) = 0;  // start-up goes on
};

class CThisApp {
public:
    explicit CThisApp(IFrontEnd& frontEnd) : m_frontEnd(frontEnd) {}
    CThisApp(const CThisApp&) = delete;
    CThisApp& operator=(const CThisApp&) = delete;

    bool InitInstance();
    void ExitInstance();  // the clean end

private:
    bool StartUp();
    bool TakeInstance();
    bool PrepareToLoad();
    bool OpenFolder();
    bool CheckLastShutdown();
    bool Stop(const std::string& message);

    IFrontEnd& m_frontEnd;
    Platform::CPresence m_instance;
    bool m_isRunning = false;
    bool m_hasMarked = false;  // "WasShutDown" went from 1 to 0
};

bool IsServerRunning();

#endif  // LISTHAVEN_APP_THISAPP_H
