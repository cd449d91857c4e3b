// pumpmessages.h - how long work in the engine keeps the user interface alive
// and shows how far it has come.  The program installs both; without them
// nothing is shown and work goes on.
//
// Threads  Install before work starts; PumpMessages() from any thread.

#ifndef LISTHAVEN_APP_PUMPMESSAGES_H
#define LISTHAVEN_APP_PUMPMESSAGES_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Lets the user interface do what waits for it.  False once a stop has been
// requested: the caller gives up its work.
bool PumpMessages();
void SetMessagePump(std::function<bool()> pump);  // {}: none

class IProgressWindow {
public:
    virtual ~IProgressWindow() = default;  // closes the window
    virtual void Step() = 0;               // one of the range is done
};

using ProgressWindowFactory =
    std::function<std::unique_ptr<IProgressWindow>(const std::string& caption, std::uint32_t range)>;

void SetProgressWindowFactory(ProgressWindowFactory factory);                                          // {}: none
std::unique_ptr<IProgressWindow> OpenProgressWindow(const std::string& caption, std::uint32_t range);  // never null

#endif  // LISTHAVEN_APP_PUMPMESSAGES_H
