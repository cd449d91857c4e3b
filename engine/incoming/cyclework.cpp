#include <algorithm>
#include <span>

#include "engine/broadcastjob.h"
#include "engine/eventlog.h"
#include "engine/incoming/cycleparts.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/flushfiles.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

constexpr std::string_view MessageExtension = "eml";
constexpr std::size_t MemberGroup = 1000;

bool FailFromSystem() {
    SetLastErrorFromSystem();
    return false;
}

enum class Presence { There, Gone, Unknown };

Presence Look(const std::string& path) {
    Platform::FileStatus status;
    if (Platform::GetFileStatus(path, status)) return Presence::There;
    if (Platform::IsNotFound(Platform::LastSystemError())) return Presence::Gone;
    SetLastErrorFromSystem();
    return Presence::Unknown;
}

bool RemoveIfThere(const std::string& path) {
    return Platform::RemoveFile(path) || Platform::IsNotFound(Platform::LastSystemError()) || FailFromSystem();
}

// Linked where that is possible.
bool MakeTwin(const std::string& source, const std::string& target) {
    if (Platform::LinkFile(source, target) || Platform::IsAlreadyThere(Platform::LastSystemError())) return true;
    return CopyWholeFile(source, target);
}

}  // namespace

bool CPreparingList::Open(const std::string& path) {
    m_path = path;
    return m_file.Open(path, Platform::FileMode::Append) || FailFromSystem();
}

bool CPreparingList::Add(const std::string& temporaryPath) {
    const std::lock_guard guard(m_lock);
    return m_file.Write(ToStoredPath(temporaryPath) + '\n') || FailFromSystem();
}

bool CPreparingList::Clear() {
    return m_file.SetSize(0) || FailFromSystem();
}

bool CPreparingList::RemoveFiles() {
    std::string names;
    if (!ReadWholeFile(m_path, names)) return false;
    for (const std::string_view name : Split(names, '\n')) {
        if (!name.ends_with(".tmp")) continue;  // the last one can be cut
        if (!RemoveIfThere(FromStoredPath(name))) return false;
    }
    return names.empty() || Clear();
}

CBatchFolder* CQueueFolders::Open(const std::string& path) {
    const auto found = m_folders.find(path);
    if (found != m_folders.end()) return &found->second;
    CBatchFolder folder;
    if (!folder.Open(path)) return nullptr;
    return &m_folders.emplace(path, folder).first->second;
}

bool CCycleWork::CarryOut(const CycleRecord& record) {
    m_touched.clear();
    try {
        return MakeTwins(record) && PublishFiles(record) && FlushTouched() && ChangeMembers(record) &&
               CreateBroadcasts(record) && MoveFiles(record) && RemoveFiles(record) && FlushTouched();
    } catch (const CLhvException& exception) {
        m_members.Close();
        SetLastErrorFromException(exception);
        return false;
    }
}

bool CCycleWork::MakeTwins(const CycleRecord& record) {
    for (const CycleRecord::CTwin& twin : record.twins) {
        const Presence isDue = Look(twin.temporaryPath);
        if (isDue == Presence::Unknown) return false;
        if (isDue == Presence::Gone) continue;
        const Presence isHidden = Look(twin.sourceTemporaryPath);
        if (isHidden == Presence::Unknown) return false;
        const std::string& source = isHidden == Presence::There ? twin.sourceTemporaryPath : twin.sourceFinalPath;
        if (!MakeTwin(source, twin.finalPath) || !RemoveIfThere(twin.temporaryPath)) return false;
        m_touched.insert(ParentFolder(twin.finalPath));
    }
    return true;
}

// A .tmp file that is gone was published.  Its name can have been taken by a
// message that was moved there with its own: then it gets another one.
bool CCycleWork::PublishFiles(const CycleRecord& record) {
    for (const CycleRecord::CFile& file : record.files) {
        const std::string folder = ParentFolder(file.finalPath);
        m_touched.insert(folder);
        if (Platform::RenameNew(file.temporaryPath, file.finalPath)) continue;
        if (Platform::IsNotFound(Platform::LastSystemError())) continue;
        if (!Platform::IsAlreadyThere(Platform::LastSystemError())) return FailFromSystem();
        std::string newPath;
        if (!MoveToUniqueName(file.temporaryPath, folder, MessageExtension, newPath)) return false;
    }
    return true;
}

bool CCycleWork::ChangeMembers(const CycleRecord& record) {
    if (record.members.empty() && record.removedMembers.empty()) return true;
    if (!m_members.IsOpen()) m_members.Open(m_listNumber);
    const std::span<const CMember> all(record.members);
    for (std::size_t first = 0; first < all.size(); first += MemberGroup) {
        const auto group = all.subspan(first, std::min(MemberGroup, all.size() - first));
        const auto outcomes = m_members.AddMany(group, ExistingMember::Update);
        for (std::size_t i = 0; i < outcomes.size(); ++i) {
            if (outcomes[i].kind != MemberOutcome::Kind::Rejected) continue;
            Log(LogError, "The member \"%s\" cannot be stored: %s", OneLine(group[i].address).c_str(),
                outcomes[i].reason.c_str());
        }
    }
    for (const std::string& address : record.removedMembers) {
        const std::int32_t index = m_members.Find(address);
        if (index != CMemberStore::None) m_members.Remove(index);
    }
    return true;
}

// One that can never be created must not stop the list for good: its message
// is kept with those that could not be processed.
bool CCycleWork::CreateBroadcasts(const CycleRecord& record) {
    for (const CycleRecord::CBroadcast& broadcast : record.broadcasts) {
        const Presence isDue = Look(broadcast.messagePath);
        if (isDue == Presence::Unknown) return false;
        if (isDue == Presence::Gone) continue;
        CBroadcastJobs jobs;
        if (jobs.CreateAs(broadcast.identifier, broadcast.messagePath, {m_listNumber}, broadcast.modes)) {
            if (!RemoveIfThere(broadcast.messagePath)) return false;
            continue;
        }
        // A disk that is full or cannot be read is no reason to give a post up.
        std::string text;
        if (!ReadWholeFile(broadcast.messagePath, text) ||
            CBroadcastJobs::Check(broadcast.messagePath, {m_listNumber}, broadcast.modes)) {
            return false;
        }
        Log(LogError, "The broadcast %s cannot be created: %s", broadcast.identifier.c_str(),
            DescribeLastError().c_str());
        CBatchFolder* const failed = m_queues.Open(GetFailedFolder(m_listNumber));
        std::string newPath;
        if (!failed || !failed->MoveMessageIn(broadcast.messagePath, broadcast.identifier + ".eml",
                                              CBatchFolder::Times::Keep, newPath)) {
            return false;
        }
    }
    return true;
}

bool CCycleWork::MoveFiles(const CycleRecord& record) {
    for (const CycleRecord::CMove& move : record.moves) {
        const Presence isDue = Look(move.source);
        if (isDue == Presence::Unknown) return false;
        if (isDue == Presence::Gone) continue;
        CBatchFolder* const target = m_queues.Open(move.queueFolder);
        std::string newPath;
        if (!target ||
            !target->MoveMessageIn(move.source, LastPathComponent(move.source), CBatchFolder::Times::Keep, newPath)) {
            return false;
        }
        m_touched.insert(ParentFolder(newPath));
        m_touched.insert(ParentFolder(move.source));
    }
    return true;
}

// Files that are deleted between others that are made cost some file systems
// a search for space each time; the cycle ends with deleting them all at once.
bool CCycleWork::RemoveFiles(const CycleRecord& record) {
    const std::string inbox = WithSeparator(GetInboxFolder(m_listNumber));
    const std::string done = GetDoneFolder(m_listNumber);
    const bool hasDone = !record.removals.empty() && EnsureFolder(done);
    for (const std::string& path : record.removals) {
        const bool isOfInbox = hasDone && path.starts_with(inbox);
        if (!isOfInbox || !Platform::RenameReplacing(path, JoinPath(done, LastPathComponent(path)))) {
            if (!RemoveIfThere(path)) return false;
        }
        m_touched.insert(ParentFolder(path));
    }
    return true;
}

bool CCycleWork::FlushTouched() {
    if (!FlushFoldersThatAreThere(std::vector<std::string>(m_touched.begin(), m_touched.end()))) return false;
    m_touched.clear();
    return true;
}
