#include <algorithm>
#include <set>
#include <vector>

#include "app/datafolder.h"
#include "engine/crc32.h"
#include "engine/eventlog.h"
#include "engine/incoming/cycleparts.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

const std::string RecordKey("\0record", 7);  // no mark's key begins so
constexpr std::size_t LongestMark = 400;

std::string ListFolderIn(std::string_view name, std::uint32_t listNumber) {
    return JoinPath(GetDataFolder() + std::string(name), std::to_string(listNumber));
}

// Those of a folder where nobody else makes any.
bool RemoveFilesOf(const std::string& folder, std::string_view pattern) {
    if (!Platform::FolderIsThere(folder)) return true;
    std::vector<std::string> found;
    if (!ListFolder(folder, pattern, [&](const std::string& name, bool isFolder) {
            if (!isFolder) found.push_back(JoinPath(folder, name));
            return true;
        })) {
        return false;
    }
    for (const std::string& path : found) {
        // One that a dead program had removed can go at any moment where its handles are closed for it.
        if (Platform::RemoveFile(path) || Platform::IsNotFound(Platform::LastSystemError())) continue;
        SetLastErrorFromSystem();
        return false;
    }
    return true;
}

}  // namespace

std::string GetInboxFolder(std::uint32_t listNumber) {
    return ListFolderIn("Inbox", listNumber);
}
std::string GetAcceptedFolder(std::uint32_t listNumber) {
    return JoinPath(GetInboxFolder(listNumber), ".Accepted");
}
std::string GetFailedFolder(std::uint32_t listNumber) {
    return JoinPath(GetInboxFolder(listNumber), ".Failed");
}
std::string GetDoneFolder(std::uint32_t listNumber) {
    return JoinPath(GetInboxFolder(listNumber), ".Done");
}
std::string GetPendingFolder(std::uint32_t listNumber) {
    return ListFolderIn("Pending", listNumber);
}
std::string GetArchiveFolder(std::uint32_t listNumber) {
    return ListFolderIn("Archive", listNumber);
}
std::string GetReceivedFolder(std::uint32_t listNumber) {
    return JoinPath(GetArchiveFolder(listNumber), "Received");
}
std::string GetBouncesFolder(std::uint32_t listNumber) {
    return JoinPath(GetArchiveFolder(listNumber), "Bounces");
}
std::string GetPostsFolder(std::uint32_t listNumber) {
    return JoinPath(GetInboxFolder(listNumber), ".Posts");
}

std::string MarkKey(MarkKind kind, std::string_view key) {
    std::string text(1, static_cast<char>(kind));
    if (key.size() <= LongestMark) return text.append(key);
    return text.append(key.substr(0, LongestMark)).append(FormatText("~%08x", Crc32(key)));
}

struct CCycleLock::CState {
    Platform::CPresence presence;
    bool isHeld = false;
};

CCycleLock::CCycleLock(std::uint32_t listNumber) : m_state(std::make_unique<CState>()) {
    const std::string name = "Vantorel.Listhaven.3.Cycle" + GetInboxFolder(listNumber);
    m_state->isHeld = m_state->presence.Acquire(name) == Platform::CPresence::Result::Acquired;
}

CCycleLock::~CCycleLock() = default;

bool CCycleLock::IsHeld() const noexcept {
    return m_state->isHeld;
}

bool CCycleState::CState::IsReady() const {
    if (needsRecovery) SetLastErrorText("What was interrupted has to be finished first.");
    return !needsRecovery;
}

CCycleState::CState::Result CCycleState::CState::Write(const CycleRecord& record, const Marks& marks) {
    std::vector<CStateChange> changes;
    changes.reserve(marks.size() + 1);
    for (const auto& [key, value] : marks)
        changes.push_back({key, value});
    const std::string bytes = record.IsEmpty() ? std::string() : EncodeRecord(record);
    if (!bytes.empty() || hasRecord) changes.push_back({RecordKey, bytes});
    const auto outcome = database.Apply(changes, CStateDatabase::Written::Now);
    if (outcome == CStateDatabase::Outcome::Nothing) return Result::Nothing;
    if (outcome == CStateDatabase::Outcome::Unknown) {
        const std::string reason = GetLastErrorText();
        std::string found;
        bool isThere = false;
        const bool isKnown = database.Reopen() && database.Find(RecordKey, found, isThere);
        SetLastErrorText(reason);
        if (!isKnown) return Result::Unknown;
        // Marks alone can be set again by the caller.
        if (bytes.empty() || found != bytes) return Result::Nothing;
    }
    hasRecord = !bytes.empty();
    return Result::Written;
}

// A record that others' work could make wrong in time goes at once.
CCycleState::CState::Result CCycleState::CState::Commit(const CycleRecord& record, const Marks& marks) {
    if (!IsReady()) return Result::Nothing;
    const Result result = Write(record, marks);
    if (result == Result::Nothing) return result;
    needsRecovery = result == Result::Unknown || !work.CarryOut(record);
    if (needsRecovery) return result;
    if (!record.IsHarmless()) ClearRecord();
    return Result::Done;
}

void CCycleState::CState::ClearRecord() {
    const std::vector<CStateChange> change = {{RecordKey, {}}};
    hasRecord = database.Apply(change, CStateDatabase::Written::Later) != CStateDatabase::Outcome::Done;
}

bool CCycleState::CState::Recover() {
    if (needsRecovery && !database.Reopen()) return false;
    std::string bytes;
    bool isThere = false;
    // Taken for none, it would lose the files that it names.
    if (!database.Find(RecordKey, bytes, isThere)) return false;
    hasRecord = isThere;
    if (hasRecord) {
        CycleRecord record;
        if (!DecodeRecord(bytes, record)) {
            Log(LogError,
                "What the interrupted mail cycle of list %u still had to do cannot be read: the last messages may be "
                "processed twice.",
                static_cast<unsigned>(list));
        } else if (!work.CarryOut(record)) {
            return false;
        }
        ClearRecord();
    }
    if (!preparing.RemoveFiles() || !CleanInbox()) return false;
    needsRecovery = false;
    return true;
}

bool CCycleState::IsToPut(const std::vector<std::string>& addresses) const {
    std::string bytes;
    bool isThere = false;
    CycleRecord record;
    if (addresses.empty()) return true;
    if (!m_state->database.Find(RecordKey, bytes, isThere) || !isThere || !DecodeRecord(bytes, record)) return false;
    std::set<std::string> due;
    for (const CMember& member : record.members)
        due.insert(LowerAscii(member.address));
    return std::all_of(addresses.begin(), addresses.end(), [&](const std::string& each) { return due.contains(each); });
}

bool CCycleState::CState::CleanInbox() {
    const std::string inbox = GetInboxFolder(list);
    std::vector<std::string> batches;
    if (!ListFolder(inbox, "*", [&](const std::string& name, bool isFolder) {
            if (isFolder && name.front() != '.') batches.push_back(JoinPath(inbox, name));
            return true;
        })) {
        return false;
    }
    for (const std::string& batch : batches) {
        if (!RemoveFilesOf(batch, "*.tmp")) return false;
    }
    for (std::size_t i = 1; i < batches.size(); ++i)
        Platform::RemoveEmptyFolder(batches[i]);
    return RemoveFilesOf(GetPostsFolder(list), "*.tmp") && RemoveFilesOf(GetDoneFolder(list), "*");
}

CCycleState::CCycleState() = default;
CCycleState::~CCycleState() = default;

bool CCycleState::Open(std::uint32_t listNumber) {
    m_state.reset();
    auto state = std::make_unique<CState>(listNumber);
    const std::string inbox = GetInboxFolder(listNumber);
    if (!EnsureFolder(inbox) || !state->database.Open(JoinPath(inbox, ".state")) ||
        !state->preparing.Open(JoinPath(inbox, ".preparing"))) {
        return false;
    }
    m_state = std::move(state);
    return true;
}

bool CCycleState::Recover() {
    if (m_state) return m_state->Recover();
    SetLastErrorText("The state of the list is not open.");
    return false;
}

bool CCycleState::GetMark(MarkKind kind, std::string_view key, std::string& value) const {
    value.clear();
    return m_state && m_state->database.Get(MarkKey(kind, key), value);
}

bool CCycleState::ForEachMark(MarkKind kind,
                              const std::function<bool(std::string_view key, std::string_view value)>& visit) const {
    return m_state && m_state->database.ForEach(MarkKey(kind, {}), [&](std::string_view key, std::string_view value) {
        return visit(key.substr(1), value);
    });
}

bool CCycleState::EmptyDone() {
    return RemoveFilesOf(GetDoneFolder(m_state->list), "*");
}

bool CCycleState::DropMarks(MarkKind kind,
                            const std::function<bool(std::string_view key, std::string_view value)>& drop) {
    return m_state && m_state->database.Drop(MarkKey(kind, {}), [&](std::string_view key, std::string_view value) {
        return drop(key.substr(1), value);
    });
}
