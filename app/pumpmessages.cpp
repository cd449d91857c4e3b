#include "app/pumpmessages.h"

#include <mutex>

#include "app/heartbeat.h"

namespace {

std::mutex installedLock;
std::function<bool()> installedPump;
ProgressWindowFactory installedFactory;

class CNoWindow : public IProgressWindow {
public:
    void Step() override {}
};

}  // namespace

bool PumpMessages() {
    Beat();
    std::function<bool()> pump;
    {
        const std::lock_guard guard(installedLock);
        pump = installedPump;
    }
    return !pump || pump();
}

void SetMessagePump(std::function<bool()> pump) {
    const std::lock_guard guard(installedLock);
    installedPump = std::move(pump);
}

void SetProgressWindowFactory(ProgressWindowFactory factory) {
    const std::lock_guard guard(installedLock);
    installedFactory = std::move(factory);
}

std::unique_ptr<IProgressWindow> OpenProgressWindow(const std::string& caption, std::uint32_t range) {
    ProgressWindowFactory factory;
    {
        const std::lock_guard guard(installedLock);
        factory = installedFactory;
    }
    std::unique_ptr<IProgressWindow> window = factory ? factory(caption, range) : nullptr;
    if (!window) window = std::make_unique<CNoWindow>();
    return window;
}
