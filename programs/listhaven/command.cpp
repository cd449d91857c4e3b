#include "programs/listhaven/command.h"

#include "app/datafolder.h"
#include "app/pumpmessages.h"
#include "app/settings.h"
#include "engine/catalogue.h"
#include "programs/listhaven/progressbar.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

// The progress window of long work in the engine.
class CTerminalWindow : public IProgressWindow {
public:
    CTerminalWindow(const std::string& caption, std::uint32_t range) : m_bar(caption, range) {}
    void Step() override { m_bar.Show(++m_done); }

private:
    CProgressBar m_bar;
    std::uint64_t m_done = 0;
};

}  // namespace

void FailWithLastError(const std::string& what) {
    const std::string reason = DescribeLastError();
    throw CCommandFailure(reason.find(what) == std::string::npos ? what + ": " + reason : reason);
}

void OpenDataFolder() {
    const std::string folder = GetDataFolder();
    if (const std::string fault = CheckDataFolder(folder); !fault.empty())
        throw CCommandFailure(std::string(Trim(fault.substr(0, fault.find('\n')))));
    if (const std::string fault = CheckSettingsFile(); !fault.empty()) throw CCommandFailure(fault);
    ApplyDurabilitySetting();
    SetProgressWindowFactory([](const std::string& caption, std::uint32_t range) -> std::unique_ptr<IProgressWindow> {
        return std::make_unique<CTerminalWindow>(caption, range);
    });
}

std::int32_t FindList(std::string_view numberOrName) {
    const std::int32_t index = GetCatalogue().FindByNameOrNumber(Trim(numberOrName));
    if (index == CCatalogue::None) throw CCommandFailure("there is no list \"" + std::string(numberOrName) + "\"");
    return index;
}
