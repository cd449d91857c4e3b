#include "senddaemon/batchfolder.h"

#include <algorithm>
#include <functional>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "platform/directorysearch.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "senddaemon/messagefile.h"
#include "utility/files.h"
#include "utility/flushfiles.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

constexpr std::string_view MessageExtension = "eml";
constexpr std::string_view MessagePattern = "*.eml";

// After so many messages of our own we look at the batch again, since others
// add to it and take from it.
constexpr std::uint32_t RecountInterval = 500;

// Batches that vanish while a message is put into them are rare; a queue folder
// in which every new one vanishes is broken.
constexpr int MaxAttempts = 20;

struct CBatch {
    std::string name;
    std::uint32_t count = 0;       // as far as we know
    std::uint32_t addedSince = 0;  // the last count
    bool isCounted = false;
};

bool EndsWithNoCase(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && EqualNoCase(text.substr(text.size() - end.size()), end);
}

bool IsMessageName(std::string_view name) {
    return EndsWithNoCase(name, ".eml");
}
bool IsPreparedName(std::string_view name) {
    return EndsWithNoCase(name, ".tmp");
}

// A name that MoveToUniqueName() could have given, or one that says more
// (queuename.h).
bool IsOwnName(std::string_view name) {
    const std::size_t end = name.find_first_not_of("0123456789-");
    return end != 0 && name.front() != '-' && end != std::string_view::npos && name.substr(end) == ".eml";
}

// Each file counts for which "counts" says so.
bool CountFiles(std::string_view folder, bool (*counts)(std::string_view name), std::uint32_t& count) {
    Platform::CDirectorySearch search;
    Platform::DirectoryEntry entry;
    if (!search.Open(folder, "*")) return false;
    for (;;) {
        switch (search.Next(entry)) {
            case Platform::CDirectorySearch::Step::Entry:
                if (!entry.isFolder && counts(entry.name)) ++count;
                break;
            case Platform::CDirectorySearch::Step::NoMoreFiles:
                return true;
            default:
                return false;
        }
    }
}

bool FailFromSystem() {
    SetLastErrorFromSystem();
    return false;
}

bool RenewTimes(const std::string& path) {
    const std::int64_t now = Platform::NanosecondsSince1970();
    return Platform::SetFileTimes(path, {.created = now, .modified = now}) || FailFromSystem();
}

// A number that is free there stays with its message, so that the log can be
// followed; and a rename that replaces nothing needs no mutex.
bool Rename(std::string_view source, std::string_view folder, std::string_view name, std::string& newPath) {
    if (!IsOwnName(name)) return MoveToUniqueName(source, folder, MessageExtension, newPath);
    const std::string_view rest = name.substr(name.find_first_not_of("0123456789"));
    std::string path = JoinPath(folder, name);
    for (int attempt = 0; attempt < MaxAttempts; ++attempt) {
        if (Platform::RenameNew(source, path)) {
            newPath = std::move(path);
            return true;
        }
        if (!Platform::IsAlreadyThere(Platform::LastSystemError())) break;
        path = JoinPath(folder, std::to_string(Platform::RandomNumber()) + std::string(rest));
    }
    return FailFromSystem();
}

}  // namespace

struct CBatchFolder::CState {
    mutable std::recursive_mutex lock;
    std::string path;
    std::vector<CBatch> batches;
    std::size_t current = 0;

    bool Load();
    bool HasRoom(CBatch& batch) const;
    bool ChooseBatch(std::string& batchPath);
    bool MakeBatch();
    void DropBatch(std::string_view name);
    bool PlaceInBatch(const std::function<bool(const std::string& batchPath)>& place);
    bool Transport(std::string_view source, Transfer transfer, std::string_view extraHeaders, std::string& newPath);
    void RemoveBatchIfEmpty(std::string_view batchPath);
};

bool CBatchFolder::CState::Load() {
    current = 0;
    batches.clear();
    if (!Platform::FolderIsThere(path)) return true;
    Platform::CDirectorySearch search;
    Platform::DirectoryEntry entry;
    if (!search.Open(path, "*")) return FailFromSystem();
    for (;;) {
        switch (search.Next(entry)) {
            case Platform::CDirectorySearch::Step::Entry:
                if (entry.isFolder && !entry.name.starts_with('.')) batches.push_back({.name = entry.name});
                break;
            case Platform::CDirectorySearch::Step::NoMoreFiles:
                return true;
            default:
                return FailFromSystem();
        }
    }
}

// The count is trusted until it says "full" or is old; so the limit is exact
// as far as this object is the only one that adds.
bool CBatchFolder::CState::HasRoom(CBatch& batch) const {
    if (batch.isCounted && batch.addedSince < RecountInterval && batch.count <= BatchLimit) return true;
    const std::string batchPath = JoinPath(path, batch.name);
    std::uint32_t count = 0;
    const auto takesRoom = [](std::string_view name) { return IsMessageName(name) || IsPreparedName(name); };
    if (!CountFiles(batchPath, takesRoom, count)) return false;
    batch.count = count;
    batch.addedSince = 0;
    batch.isCounted = true;
    return count <= BatchLimit;
}

bool CBatchFolder::CState::ChooseBatch(std::string& batchPath) {
    while (current < batches.size() && !HasRoom(batches[current]))
        ++current;
    if (current >= batches.size() && !MakeBatch()) return false;
    batchPath = JoinPath(path, batches[current].name);
    return true;
}

bool CBatchFolder::CState::MakeBatch() {
    const bool isNew = !Platform::FolderIsThere(path);
    if (isNew && !EnsureFolder(path)) return false;
    std::string newPath;
    if (!MakeUniqueFolder(path, newPath)) return false;
    if (!Platform::FlushFolder(path)) return FailFromSystem();
    if (isNew && !Platform::FlushFolder(ParentFolder(path))) return FailFromSystem();
    batches.push_back({.name = LastPathComponent(newPath), .isCounted = true});
    current = batches.size() - 1;
    return true;
}

void CBatchFolder::CState::DropBatch(std::string_view name) {
    const auto found = std::find_if(batches.begin(), batches.end(),
                                    [&](const CBatch& batch) { return EqualNoCase(batch.name, name); });
    if (found == batches.end()) return;
    if (static_cast<std::size_t>(found - batches.begin()) < current) --current;
    batches.erase(found);
}

// A drained batch folder may be removed by whoever drained it at any moment:
// then the next one is taken.
bool CBatchFolder::CState::PlaceInBatch(const std::function<bool(const std::string& batchPath)>& place) {
    if (path.empty()) {
        SetLastErrorText("The queue folder is not open.");
        return false;
    }
    for (int attempt = 0; attempt < MaxAttempts; ++attempt) {
        std::string batchPath;
        if (!ChooseBatch(batchPath)) return false;
        if (place(batchPath)) {
            ++batches[current].count;
            ++batches[current].addedSince;
            return true;
        }
        if (Platform::FolderIsThere(batchPath)) return false;
        DropBatch(LastPathComponent(batchPath));
    }
    SetLastErrorFormat("The folders in \"%s\" disappear while messages are put into them.", path.c_str());
    return false;
}

bool CBatchFolder::CState::Transport(std::string_view source, Transfer transfer, std::string_view extraHeaders,
                                     std::string& newPath) {
    return PlaceInBatch([&](const std::string& batchPath) {
        if (transfer == Transfer::Copy) return CopyMessageToFolder(source, batchPath, extraHeaders, newPath);
        if (!extraHeaders.empty()) return MoveMessageToFolder(source, batchPath, extraHeaders, newPath);
        return Rename(source, batchPath, LastPathComponent(source), newPath);
    });
}

void CBatchFolder::CState::RemoveBatchIfEmpty(std::string_view batchPath) {
    const std::string name = LastPathComponent(batchPath);
    if (name.starts_with('.') || !SamePath(ParentFolder(batchPath), path)) return;
    if (Platform::RemoveEmptyFolder(batchPath)) DropBatch(name);
}

CBatchFolder::CBatchFolder() : m_state(std::make_unique<CState>()) {}
CBatchFolder::~CBatchFolder() = default;

CBatchFolder::CBatchFolder(const CBatchFolder& other) : CBatchFolder() {
    *this = other;
}

CBatchFolder& CBatchFolder::operator=(const CBatchFolder& other) {
    if (this == &other) return *this;
    std::unique_lock from(other.m_state->lock);
    auto path = other.m_state->path;
    auto batches = other.m_state->batches;
    const auto current = other.m_state->current;
    from.unlock();
    const std::lock_guard to(m_state->lock);
    m_state->path = std::move(path);
    m_state->batches = std::move(batches);
    m_state->current = current;
    return *this;
}

bool CBatchFolder::Open(std::string_view path) {
    const std::lock_guard guard(m_state->lock);
    m_state->path = WithoutSeparator(path);
    if (m_state->path.empty()) {
        SetLastErrorText("No queue folder is given.");
        return false;
    }
    return m_state->Load();
}

bool CBatchFolder::Load() {
    const std::lock_guard guard(m_state->lock);
    return m_state->Load();
}

bool CBatchFolder::GetPath(std::string& path) const {
    const std::lock_guard guard(m_state->lock);
    path = m_state->path;
    return !path.empty();
}

bool CBatchFolder::CountMessages(std::uint32_t& total) const {
    const std::lock_guard guard(m_state->lock);
    total = 0;
    if (!Platform::FolderIsThere(m_state->path)) return true;
    for (const CBatch& batch : m_state->batches) {
        std::uint32_t count = 0;
        if (CountFiles(JoinPath(m_state->path, batch.name), IsMessageName, count)) total += count;
    }
    return true;
}

bool CBatchFolder::AddMessage(std::string_view source, Transfer transfer, Times times, std::string_view extraHeaders,
                              std::string& newPath) {
    const std::lock_guard guard(m_state->lock);
    const bool isRename = transfer == Transfer::Move && extraHeaders.empty();  // which keeps the times
    Platform::FileStatus status;
    if (times == Times::Keep && !isRename && !Platform::GetFileStatus(source, status)) return FailFromSystem();
    if (!m_state->Transport(source, transfer, extraHeaders, newPath)) return false;
    if (times == Times::Renew && isRename && !RenewTimes(newPath)) return false;
    if (times == Times::Keep && !isRename && !Platform::SetFileTimes(newPath, status.times)) return FailFromSystem();
    return true;
}

bool CBatchFolder::MoveMessageIn(std::string_view source, std::string_view name, Times times, std::string& newPath) {
    const std::lock_guard guard(m_state->lock);
    const auto place = [&](const std::string& batchPath) { return Rename(source, batchPath, name, newPath); };
    return m_state->PlaceInBatch(place) && (times == Times::Keep || RenewTimes(newPath));
}

bool CBatchFolder::AddMessageText(std::string_view text, std::string& newPath) {
    const std::lock_guard guard(m_state->lock);
    return m_state->PlaceInBatch(
        [&](const std::string& batchPath) { return WriteMessageToFolder(text, batchPath, newPath); });
}

bool CBatchFolder::CreateMessage(CNewFile& file, const std::function<bool(const std::string& temporaryPath)>& note) {
    const std::lock_guard guard(m_state->lock);
    return m_state->PlaceInBatch(
        [&](const std::string& batchPath) { return file.Create(batchPath, MessageExtension, note); });
}

bool CBatchFolder::PrepareMessage(std::string_view text, CPreparedMessage& prepared) {
    CNewFile file;
    if (!CreateMessage(file) || !file.Write(text) || !file.CloseUnflushed()) return false;
    file.Keep();
    prepared = {.temporaryPath = file.GetTemporaryPath(), .finalPath = file.GetFinalPath()};
    return true;
}

bool CBatchFolder::FlushPrepared(std::span<const CPreparedMessage> prepared) {
    std::vector<std::string> files;
    files.reserve(prepared.size());
    for (const CPreparedMessage& message : prepared)
        files.push_back(message.temporaryPath);
    return FlushTogether(files, {});
}

bool CBatchFolder::PublishPrepared(std::span<const CPreparedMessage> prepared) {
    std::set<std::string> folders;
    bool isPublished = true;
    for (const CPreparedMessage& message : prepared) {
        if (!Platform::RenameNew(message.temporaryPath, message.finalPath)) {
            isPublished = FailFromSystem();
            break;
        }
        folders.insert(ParentFolder(message.finalPath));
    }
    return FlushTogether({}, std::vector<std::string>(folders.begin(), folders.end())) && isPublished;
}

bool CBatchFolder::AddMessages(std::string_view folder, Transfer transfer, Times times) {
    const std::lock_guard guard(m_state->lock);
    Platform::CDirectorySearch search;
    Platform::DirectoryEntry entry;
    if (!search.Open(folder, MessagePattern)) return FailFromSystem();
    for (;;) {
        switch (search.Next(entry)) {
            case Platform::CDirectorySearch::Step::Entry: {
                std::string newPath;
                if (!entry.isFolder && !AddMessage(JoinPath(folder, entry.name), transfer, times, {}, newPath)) {
                    return false;
                }
                break;
            }
            case Platform::CDirectorySearch::Step::NoMoreFiles:
                return true;
            default:
                return FailFromSystem();
        }
    }
}

bool CBatchFolder::MoveAllTo(CBatchFolder& target) {
    const std::lock_guard guard(m_state->lock);
    for (const CBatch& batch : m_state->batches) {
        const std::string batchPath = JoinPath(m_state->path, batch.name);
        if (!Platform::FolderIsThere(batchPath)) continue;
        if (!target.AddMessages(batchPath, Transfer::Move, Times::Keep)) return false;
    }
    return true;
}

bool CBatchFolder::MoveMessageTo(std::string_view message, CBatchFolder& target, std::string_view name) {
    const std::lock_guard guard(m_state->lock);
    std::string newPath;
    const std::string kept = name.empty() ? LastPathComponent(message) : std::string(name);
    if (!target.MoveMessageIn(message, kept, Times::Keep, newPath)) return false;
    m_state->RemoveBatchIfEmpty(ParentFolder(message));
    return true;
}

bool CBatchFolder::RemoveBatch(std::string_view batchPath) {
    const std::lock_guard guard(m_state->lock);
    const std::string name = LastPathComponent(batchPath);
    const auto& batches = m_state->batches;
    const auto found = std::find_if(batches.begin(), batches.end(),
                                    [&](const CBatch& batch) { return EqualNoCase(batch.name, name); });
    if (found == batches.end()) {
        SetLastErrorFormat("The folder \"%s\" is not in the queue.", std::string(batchPath).c_str());
        return false;
    }
    const std::string folder = JoinPath(m_state->path, found->name);
    m_state->DropBatch(name);
    return RemoveFolderTree(folder);
}

bool CBatchFolder::RemoveAll() {
    const std::lock_guard guard(m_state->lock);
    bool isRemoved = true;
    for (const CBatch& batch : m_state->batches) {
        if (!RemoveFolderTree(JoinPath(m_state->path, batch.name))) isRemoved = false;
    }
    m_state->batches.clear();
    m_state->current = 0;
    return isRemoved;
}
