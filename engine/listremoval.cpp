#include "engine/listremoval.h"

#include "engine/catalogue.h"
#include "engine/listaccount.h"
#include "platform/clock.h"
#include "platform/filestatus.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/configuration.h"
#include "utility/files.h"
#include "utility/paths.h"

namespace {

// The dispatcher of another process stops at the key; what it has claimed by
// then is still being sent.
void StopSending(const std::string& accountRoot) {
    if (!Platform::FolderIsThere(accountRoot)) return;
    SendDaemon::CConfiguration config(SendDaemon::GetAccountConfigPath(accountRoot));
    config.SetValue("BeingUnregistered", "1");
    constexpr int Waits = 50;
    for (int i = 0; i < Waits && SendDaemon::CountAccountMessages(accountRoot).claimed > 0; ++i)
        Platform::SleepMilliseconds(100);
}

}  // namespace

std::vector<std::string> RemoveList(std::int32_t index) {
    CCatalogue& catalogue = GetCatalogue();
    const std::uint32_t number = catalogue.GetListNumber(index);
    const std::string root = GetAccountRoot(number);
    StopSending(root);
    std::vector<std::string> left = catalogue.Delete(index);
    const std::string name = std::to_string(number);
    for (const char* folder : {"Inbox", "Pending", "Archive", "Digests"}) {
        const std::string path = JoinPath(JoinPath(catalogue.GetFolder(), folder), name);
        if (!RemoveFolderTree(path)) left.push_back(path);
    }
    if (!RemoveFolderTree(root)) left.push_back(root);
    return left;
}
