#include "senddaemon/accountfolders.h"

#include <functional>

#include "platform/directorysearch.h"
#include "senddaemon/queuename.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace SendDaemon {

namespace {

constexpr std::array<std::string_view, AccountFolderCount> FolderNames = {"",         ".Queue",   ".Sent",    ".Errors",
                                                                          ".Expired", ".Blocked", ".Deferred"};

std::uint64_t CountBatches(const std::string& queue, const std::function<void(const std::string& name)>& visit = {}) {
    Platform::CDirectorySearch batches;
    Platform::DirectoryEntry entry;
    std::uint64_t count = 0;
    if (!batches.Open(queue, "*")) return 0;
    while (batches.Next(entry) == Platform::CDirectorySearch::Step::Entry) {
        if (!entry.isFolder || entry.name.starts_with('.')) continue;
        Platform::CDirectorySearch messages;
        Platform::DirectoryEntry message;
        if (!messages.Open(JoinPath(queue, entry.name), "*.eml")) continue;
        while (messages.Next(message) == Platform::CDirectorySearch::Step::Entry) {
            if (message.isFolder) continue;
            ++count;
            if (visit) visit(message.name);
        }
    }
    return count;
}

}  // namespace

std::string_view GetAccountFolderName(AccountFolder folder) noexcept {
    return FolderNames.at(static_cast<std::size_t>(folder));
}

std::string GetAccountFolderPath(std::string_view accountRoot, AccountFolder folder) {
    if (folder == AccountFolder::Waiting) return WithoutSeparator(accountRoot);
    return JoinPath(accountRoot, GetAccountFolderName(folder));
}

std::string GetAccountConfigPath(std::string_view accountRoot) {
    return JoinPath(accountRoot, AccountConfigFileName);
}

bool CAccount::SetUp(std::string_view rootFolder) {
    const std::lock_guard guard(m_lock);
    if (rootFolder.empty()) {
        SetLastErrorText("No account folder is given.");
        return false;
    }
    if (!EnsureFolder(rootFolder)) return false;
    m_rootFolder = WithoutSeparator(rootFolder);
    for (auto& folder : m_folders)
        folder.reset();
    return true;
}

CBatchFolder* CAccount::GetFolder(AccountFolder folder) {
    const std::lock_guard guard(m_lock);
    if (m_rootFolder.empty()) {
        SetLastErrorText("No account folder is given.");
        return nullptr;
    }
    auto& slot = m_folders.at(static_cast<std::size_t>(folder));
    if (!slot) {
        auto opened = std::make_unique<CBatchFolder>();
        if (!EnsureFolder(m_rootFolder) || !opened->Open(GetAccountFolderPath(m_rootFolder, folder))) return nullptr;
        slot = std::move(opened);
    }
    return slot.get();
}

CAccountCounts CountAccountMessages(std::string_view accountRoot) {
    const auto count = [&](AccountFolder folder) { return CountBatches(GetAccountFolderPath(accountRoot, folder)); };
    return {.waiting = count(AccountFolder::Waiting),
            .claimed = count(AccountFolder::Claimed),
            .sent = count(AccountFolder::Sent),
            .errors = count(AccountFolder::Errors),
            .expired = count(AccountFolder::Expired),
            .parked = count(AccountFolder::Parked),
            .deferred = count(AccountFolder::Deferred)};
}

CDeferredMessages FindDeferredMessages(std::string_view accountRoot) {
    CDeferredMessages found;
    found.count =
        CountBatches(GetAccountFolderPath(accountRoot, AccountFolder::Deferred), [&](const std::string& file) {
            CQueueName name;
            if (!ParseQueueName(file, name) || !name.due) return;
            if (found.firstDue == 0 || *name.due < found.firstDue) found.firstDue = *name.due;
        });
    return found;
}

}  // namespace SendDaemon
