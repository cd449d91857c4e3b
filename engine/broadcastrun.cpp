#include "engine/broadcastrun.h"

#include <utility>

#include "app/settings.h"
#include "engine/eventlog.h"
#include "engine/listaccount.h"
#include "platform/clock.h"
#include "platform/directorysearch.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t AbandonedAfter = 3600 * std::int64_t{1'000'000'000};
constexpr std::size_t HeaderStart = 64 * 1024;  // of a copy, in which its broadcast is named

CPreparedMessage PathsOf(const BroadcastMark::Name& name) {
    const std::string path = JoinPath(GetAccountRoot(name.list), name.name);
    return {path + ".tmp", path + ".eml"};
}

BroadcastMark::Name NameOf(std::uint32_t list, const CPreparedMessage& prepared) {
    const std::string batch = ParentFolder(prepared.finalPath);
    const std::string file = LastPathComponent(prepared.finalPath);
    return {list, LastPathComponent(batch) + "/" + file.substr(0, file.rfind('.'))};
}

// Those of the group that are not visible yet.
bool FindInvisible(const std::vector<BroadcastMark::Name>& group, std::vector<CPreparedMessage>& invisible) {
    for (const BroadcastMark::Name& name : group) {
        const CPreparedMessage paths = PathsOf(name);
        Platform::FileStatus status;
        if (Platform::GetFileStatus(paths.temporaryPath, status)) {
            invisible.push_back(paths);
        } else if (!Platform::IsNotFound(Platform::LastSystemError())) {
            SetLastErrorFromSystem();
            return false;
        }
    }
    return true;
}

// An empty one does not say whose it is, but nobody leaves one empty for long.
bool IsCopyOf(const std::string& path, const std::string& identifier) {
    Platform::FileStatus status;
    if (Platform::GetFileStatus(path, status) && status.size == 0) {
        return status.times.modified < Platform::NanosecondsSince1970() - AbandonedAfter;
    }
    std::string start;
    return ReadFileStart(path, HeaderStart, start) &&
           start.find("X-Lhv-Broadcast: " + identifier + "\r\n") != std::string::npos;
}

// In all batches of an account, without keeping names of more than one folder.
bool RemoveTemporaryCopies(const std::string& accountRoot, const std::string& identifier) {
    if (!Platform::FolderIsThere(accountRoot)) return true;
    bool removed = true;
    const bool listed = ListFolder(accountRoot, "*", [&](const std::string& batch, bool isFolder) {
        if (!isFolder || batch.front() == '.') return true;
        const std::string folder = JoinPath(accountRoot, batch);
        std::vector<std::string> found;
        ListFolder(folder, "*.tmp", [&](const std::string& name, bool isSubFolder) {
            const std::string path = JoinPath(folder, name);
            if (!isSubFolder && IsCopyOf(path, identifier)) found.push_back(path);
            return true;
        });
        for (const std::string& path : found) {
            if (Platform::RemoveFile(path)) continue;
            SetLastErrorFromSystem();
            removed = false;
        }
        return removed;
    });
    return listed && removed;
}

}  // namespace

CBroadcastRun::CBroadcastRun(std::string folder, BroadcastSettings& settings)
    : m_folder(std::move(folder)), m_settings(settings) {}

bool CBroadcastRun::Open() {
    return m_position.Open(BroadcastFile(m_folder, BroadcastPositionFile)) && m_position.Read(m_mark);
}

bool CBroadcastRun::Run(const BroadcastStop& stop, const BroadcastProgress& progress) {
    if (!Open()) return false;
    std::vector<CPreparedMessage> invisible;
    if (!FindInvisible(m_mark.group, invisible) || !CBatchFolder::PublishPrepared(invisible)) return false;
    if (m_settings.hasBegun) {
        if (!RemoveUnnamed()) return false;
    } else {
        m_settings.hasBegun = true;
        if (!WriteBroadcastSettings(m_folder, m_settings)) return false;
    }
    m_next = m_mark;
    m_next.group.clear();
    m_pause = ReadSetting("Execution", "GenerationPause", 10);
    if (!m_message.Load(BroadcastFile(m_folder, BroadcastMessageFile), CMimeSource::Sealed::Kept)) {
        SetLastErrorText("The message of the broadcast cannot be loaded.");
        return false;
    }
    Log(LogInfo, "Generating messages for broadcast \"%s\".\n", m_settings.subject.c_str());
    const Walk walk = WalkMembers(stop, progress);
    if (walk == Walk::Failed) {
        DropGroup();
        return false;
    }
    if (m_next.position != m_mark.position && !Commit()) return false;
    if (walk == Walk::Stopped) return true;
    return End(walk == Walk::Done ? BroadcastSettings::State::Done : BroadcastSettings::State::Cancelled);
}

bool CBroadcastRun::Cancel() {
    if (!Open()) return false;
    std::vector<CPreparedMessage> invisible;
    if (!FindInvisible(m_mark.group, invisible)) return false;
    for (const CPreparedMessage& paths : invisible) {
        if (!Platform::RemoveFile(paths.temporaryPath)) {
            SetLastErrorFromSystem();
            return false;
        }
        --m_mark.counts.copies;
    }
    return RemoveUnnamed() && End(BroadcastSettings::State::Cancelled);
}

bool CBroadcastRun::RemoveUnnamed() {
    for (const std::uint32_t list : m_settings.lists) {
        if (!RemoveTemporaryCopies(GetAccountRoot(list), LastPathComponent(m_folder))) return false;
    }
    return true;
}

CBroadcastRun::Walk CBroadcastRun::WalkMembers(const BroadcastStop& stop, const BroadcastProgress& progress) {
    const std::string cancelPath = BroadcastFile(m_folder, BroadcastCancelFile);
    CSnapshotReader snapshot;
    if (!snapshot.Open(BroadcastFile(m_folder, BroadcastSnapshotFile), m_mark.offset)) return Walk::Failed;
    BroadcastMember member;
    for (;;) {
        if (Platform::FileIsThere(cancelPath)) return Walk::Cancelled;
        if (stop && stop()) return Walk::Stopped;
        const auto step = snapshot.Next(member);
        if (step == CSnapshotReader::Step::Failed) return Walk::Failed;
        if (step == CSnapshotReader::Step::End) return Walk::Done;
        const std::size_t made = m_group.size();
        if (!MakeCopy(member)) return Walk::Failed;
        const bool isMade = m_group.size() > made;
        ++m_next.position;
        m_next.offset = snapshot.GetOffset();
        if (m_group.size() == CBroadcastJobs::GroupSize && !Commit()) return Walk::Failed;
        if (progress) progress(m_next.position, m_settings.total);
        if (isMade && m_pause > 0) Platform::SleepMilliseconds(static_cast<std::uint32_t>(m_pause));
    }
}

bool CBroadcastRun::MakeCopy(const BroadcastMember& member) {
    if (member.list != m_list && !OpenList(member.list)) return false;
    if (!m_listIsThere || !FindMember(member) || m_member.IsInactive() || !m_settings.modes.Include(m_member.mode)) {
        ++m_next.counts.skipped;
        return true;
    }
    switch (m_maker.Make(m_member, Platform::SecondsSince1970(), m_text, &m_store, m_index)) {
        case CopyResult::Made:
            break;
        case CopyResult::Blocked:
            ++m_next.counts.blocked;
            return true;
        case CopyResult::Skipped:
            ++m_next.counts.skipped;
            return true;
        case CopyResult::Failed:
            return false;
    }
    CPreparedMessage prepared;
    if (!m_queue.PrepareMessage(m_text, prepared)) return false;
    m_group.push_back(prepared);
    m_next.group.push_back(NameOf(m_list, prepared));
    ++m_next.counts.copies;
    return true;
}

// As the member is now; at another index when the table was packed meanwhile.
bool CBroadcastRun::FindMember(const BroadcastMember& member) {
    const SlotMask wanted = m_maker.GetWantedSlots();
    m_index = member.index;
    if (m_store.Read(m_index, m_member, wanted) && EqualNoCase(m_member.address, member.address)) return true;
    m_index = m_store.Find(member.address);
    return m_index != CMemberStore::None && m_store.Read(m_index, m_member, wanted);
}

bool CBroadcastRun::OpenList(std::uint32_t list) {
    m_list = list;
    m_listIsThere = false;
    BroadcastList settings;
    if (!ReadBroadcastList(list, settings)) {
        Log(LogError, "The broadcast \"%s\" leaves out a list: %s", m_settings.subject.c_str(),
            DescribeLastError().c_str());
        return true;
    }
    m_store.Open(list, CMemberStore::Access::ReadOnly);
    if (!m_maker.Open(m_message, settings, LastPathComponent(m_folder))) return false;
    if (!m_queue.Open(GetAccountRoot(list))) return false;
    m_listIsThere = true;
    return true;
}

// Whether a mark that could not be written is on the disk is not known: the
// next run reads it, so the copies it may name must stay as they are.
bool CBroadcastRun::Commit() {
    if (!CBatchFolder::FlushPrepared(m_group)) {
        DropGroup();
        return false;
    }
    ++m_next.sequence;
    const std::vector<CPreparedMessage> group = std::move(m_group);
    m_group.clear();
    if (!m_position.Write(m_next) || !CBatchFolder::PublishPrepared(group)) return false;
    m_mark = m_next;
    m_next.group.clear();
    return true;
}

void CBroadcastRun::DropGroup() {
    const std::string reason = GetLastErrorText();
    for (const CPreparedMessage& prepared : m_group)
        Platform::RemoveFile(prepared.temporaryPath);
    m_group.clear();
    SetLastErrorText(reason);
}

bool CBroadcastRun::End(BroadcastSettings::State state) {
    m_settings.state = state;
    m_settings.position = m_mark.position;
    m_settings.counts.copies = m_mark.counts.copies;
    m_settings.counts.blocked = m_mark.counts.blocked;
    m_settings.counts.skipped += m_mark.counts.skipped;
    if (!WriteBroadcastSettings(m_folder, m_settings)) return false;
    for (const std::string_view name : {BroadcastSnapshotFile, BroadcastPositionFile, BroadcastCancelFile}) {
        Platform::RemoveFile(BroadcastFile(m_folder, name));
    }
    return true;
}
