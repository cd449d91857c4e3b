#include "engine/broadcastjob.h"

#include <algorithm>
#include <tuple>

#include "engine/broadcastfiles.h"
#include "engine/broadcastrun.h"
#include "engine/eventlog.h"
#include "engine/listaccount.h"
#include "engine/literaltext.h"
#include "mime/mimemessage.h"
#include "mime/mimemultipart.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/namedmutex.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

std::string PresenceName(const std::string& folder) {
    return "Vantorel.Listhaven.3.Broadcast" + folder;
}

// A message that copies can be made of: some header, and a body that could be taken apart.
bool IsUsable(const CMimeMessage& message, const std::string& name) {
    const auto root = message.GetRoot();
    if (!root) {
        SetLastErrorFormat("The message \"%s\" cannot be loaded, or is empty.", name.c_str());
        return false;
    }
    if (root->GetHeader().GetFieldCount() == 0) {
        SetLastErrorFormat("\"%s\" is not a message: it has no header.", name.c_str());
        return false;
    }
    const auto multipart = root.As<CMimeMultipart>();
    if (multipart && multipart->GetPartCount() == 0) {
        SetLastErrorFormat("The parts of the message \"%s\" cannot be told apart: its boundary is missing.",
                           name.c_str());
        return false;
    }
    return true;
}

// Some earlier list gives the address its copy.
bool HasCopyFrom(std::vector<CMemberStore>& stores, std::size_t count, const std::string& address,
                 const BroadcastModes& modes) {
    CMember member;
    for (std::size_t i = 0; i < count; ++i) {
        const std::int32_t index = stores[i].Find(address);
        if (index == CMemberStore::None || !stores[i].Read(index, member, NoSlots)) continue;
        if (modes.Include(member.mode) && !member.IsInactive()) return true;
    }
    return false;
}

bool WriteSnapshot(const std::string& folder, BroadcastSettings& settings) {
    CSnapshotWriter writer;
    if (!writer.Create(BroadcastFile(folder, BroadcastSnapshotFile))) return false;
    std::vector<CMemberStore> stores(settings.lists.size());
    for (std::size_t i = 0; i < stores.size(); ++i) {
        stores[i].Open(settings.lists[i], CMemberStore::Access::ReadOnly);
        stores[i].RefuseDamaged();
        if (const auto lost = stores[i].FindLost(); !lost.empty()) throw CMembersDamaged(DescribeLostMembers(lost));
        bool isWritten = true;
        stores[i].ForEach(NoSlots, [&](std::int32_t index, const CMember& member) {
            if (!settings.modes.Include(member.mode) || member.IsInactive() ||
                HasCopyFrom(stores, i, member.address, settings.modes)) {
                ++settings.counts.skipped;
                return true;
            }
            ++settings.total;
            isWritten = writer.Add(settings.lists[i], index, member.address);
            return isWritten;
        });
        if (!isWritten) return false;
    }
    return writer.Finish();
}

bool FillJob(const std::string& folder, std::string_view messagePath, BroadcastSettings& settings) {
    CBroadcastPosition position;
    return CopyWholeFile(messagePath, BroadcastFile(folder, BroadcastMessageFile)) && WriteSnapshot(folder, settings) &&
           position.Create(BroadcastFile(folder, BroadcastPositionFile)) && WriteBroadcastSettings(folder, settings);
}

bool CheckLists(const std::vector<std::uint32_t>& lists, const CMimeMessage& message) {
    for (const std::uint32_t list : lists) {
        BroadcastList known;
        if (!ReadBroadcastList(list, known) || !CanSendFrom(message, known)) return false;
    }
    if (lists.empty()) SetLastErrorText("A broadcast needs at least one list.");
    return !lists.empty();
}

bool ReadSettings(const CMimeMessage& message, const std::string& name, const std::vector<std::uint32_t>& lists,
                  const BroadcastModes& modes, BroadcastSettings& settings) {
    for (const std::uint32_t list : lists) {
        const bool isNew = std::find(settings.lists.begin(), settings.lists.end(), list) == settings.lists.end();
        if (isNew) settings.lists.push_back(list);
    }
    settings.modes = modes;
    settings.started = Platform::SecondsSince1970();
    if (!modes.regular && !modes.both && !modes.digest) {
        SetLastErrorText("A broadcast needs at least one delivery mode.");
        return false;
    }
    if (!IsUsable(message, name) || !CheckLists(settings.lists, message)) return false;
    settings.subject = ReadableText(message.GetRoot()->GetField("Subject"));
    return true;
}

bool ReadSettings(std::string_view messagePath, const std::vector<std::uint32_t>& lists, const BroadcastModes& modes,
                  BroadcastSettings& settings) {
    const std::string path(messagePath);
    CMimeMessage message;
    message.Load(path);  // what could not be loaded has no root
    return ReadSettings(message, path, lists, modes, settings);
}

void RemoveUnfinished(const std::string& folder) {
    const std::string reason = GetLastErrorText();
    if (!folder.empty()) RemoveFolderTree(folder);
    SetLastErrorText(reason);
}

bool IsJobId(std::string_view id) {
    return !id.empty() && id.find_first_not_of("0123456789") == std::string_view::npos;
}

}  // namespace

std::string_view BroadcastStateName(BroadcastState state) noexcept {
    switch (state) {
        case BroadcastState::Running:
            return "running";
        case BroadcastState::Interrupted:
            return "interrupted";
        case BroadcastState::Done:
            return "done";
        case BroadcastState::Cancelled:
            return "cancelled";
    }
    return "";
}

CBroadcastJobs::CBroadcastJobs() : m_root(GetBroadcastsFolder()) {}

CBroadcastJobs::CBroadcastJobs(std::string_view root) : m_root(WithoutSeparator(root)) {}

bool CBroadcastJobs::Check(std::string_view messagePath, const std::vector<std::uint32_t>& lists,
                           const BroadcastModes& modes) {
    BroadcastSettings settings;
    try {
        return ReadSettings(messagePath, lists, modes, settings);
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

bool CBroadcastJobs::Check(const CMimeMessage& message, const std::vector<std::uint32_t>& lists,
                           const BroadcastModes& modes) {
    BroadcastSettings settings;
    const std::string subject = message.GetRoot() ? message.GetRoot()->GetField("Subject") : std::string();
    return ReadSettings(message, subject, lists, modes, settings);
}

bool CBroadcastJobs::Create(std::string_view messagePath, const std::vector<std::uint32_t>& lists,
                            const BroadcastModes& modes, std::string& id) {
    std::string folder;
    try {
        BroadcastSettings settings;
        if (!ReadSettings(messagePath, lists, modes, settings)) return false;
        if (!EnsureFolder(m_root) || !MakeUniqueFolder(m_root, folder)) return false;
        if (FillJob(folder, messagePath, settings)) {
            Platform::FlushFolder(m_root);
            id = LastPathComponent(folder);
            return true;
        }
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
    }
    RemoveUnfinished(folder);
    return false;
}

std::string CBroadcastJobs::NewIdentifier() const {
    std::string id;
    do
        id = std::to_string(Platform::RandomNumber() & 0x7FFFFFFFU);
    while (Platform::FolderIsThere(JoinPath(m_root, id)));
    return id;
}

bool CBroadcastJobs::Exists(std::string_view id) const {
    return IsJobId(id) && Platform::FileIsThere(BroadcastFile(JoinPath(m_root, id), BroadcastSettingsFile));
}

bool CBroadcastJobs::CreateAs(std::string_view id, std::string_view messagePath,
                              const std::vector<std::uint32_t>& lists, const BroadcastModes& modes) {
    if (Exists(id)) return true;
    if (!IsJobId(id)) {
        SetLastErrorFormat("\"%s\" is no identifier of a broadcast.", std::string(id).c_str());
        return false;
    }
    std::string folder;
    try {
        BroadcastSettings settings;
        if (!ReadSettings(messagePath, lists, modes, settings)) return false;
        folder = JoinPath(m_root, id);
        // The settings are written last: what is there without them is half of it.
        if (RemoveFolderTree(folder) && EnsureFolder(folder) && FillJob(folder, messagePath, settings)) {
            if (Platform::FlushFolder(m_root)) return true;
            SetLastErrorFromSystem();
            return false;
        }
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
    }
    RemoveUnfinished(folder);
    return false;
}

bool CBroadcastJobs::Get(std::string_view id, BroadcastInfo& info) const {
    const std::string folder = JoinPath(m_root, id);
    if (!IsJobId(id) || !Platform::FileIsThere(BroadcastFile(folder, BroadcastSettingsFile))) {
        SetLastErrorFormat("There is no broadcast \"%s\".", std::string(id).c_str());
        return false;
    }
    BroadcastSettings settings;
    if (!ReadBroadcastSettings(folder, settings)) return false;
    info = BroadcastInfo{std::string(id),   settings.subject,  settings.lists, settings.modes,   BroadcastState::Done,
                         settings.hasBegun, settings.position, settings.total, settings.started, settings.counts};
    if (settings.state == BroadcastSettings::State::Done) return true;
    info.state = BroadcastState::Cancelled;
    if (settings.state == BroadcastSettings::State::Cancelled) return true;
    const bool isRunning = Platform::CPresence::IsHeld(PresenceName(folder));
    info.state = isRunning ? BroadcastState::Running : BroadcastState::Interrupted;
    CBroadcastPosition position;
    BroadcastMark mark;
    if (position.Open(BroadcastFile(folder, BroadcastPositionFile)) && position.Read(mark)) {
        info.position = mark.position;
        info.counts.copies = mark.counts.copies;
        info.counts.blocked = mark.counts.blocked;
        info.counts.skipped += mark.counts.skipped;
    }
    return true;
}

bool CBroadcastJobs::ForEach(const std::function<void(const BroadcastInfo& job)>& visit) const {
    if (!Platform::FolderIsThere(m_root)) return true;
    return ListFolder(m_root, "*", [&](const std::string& name, bool isFolder) {
        BroadcastInfo info;
        if (isFolder && IsJobId(name) && Get(name, info)) visit(info);
        return true;
    });
}

bool CBroadcastJobs::List(std::vector<BroadcastInfo>& jobs) const {
    jobs.clear();
    const bool isListed = ForEach([&](const BroadcastInfo& job) { jobs.push_back(job); });
    std::sort(jobs.begin(), jobs.end(), [](const BroadcastInfo& a, const BroadcastInfo& b) {
        return std::tie(a.started, a.id) < std::tie(b.started, b.id);
    });
    return isListed;
}

bool CBroadcastJobs::Run(std::string_view id, const BroadcastStop& stop, const BroadcastProgress& progress,
                         BroadcastInfo& info) {
    if (!Get(id, info)) return false;
    const std::string folder = JoinPath(m_root, id);
    Platform::CPresence presence;
    if (presence.Acquire(PresenceName(folder)) != Platform::CPresence::Result::Acquired) {
        SetLastErrorFormat("The broadcast %s is being generated by another program.", info.id.c_str());
        return false;
    }
    BroadcastSettings settings;
    if (!ReadBroadcastSettings(folder, settings)) return false;
    if (settings.state != BroadcastSettings::State::Running) {
        SetLastErrorFormat("The broadcast %s is %s already.", info.id.c_str(),
                           settings.state == BroadcastSettings::State::Done ? "done" : "cancelled");
        return false;
    }
    bool succeeded = false;
    try {
        succeeded = CBroadcastRun(folder, settings).Run(stop, progress);
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
    }
    if (!succeeded) {
        const std::string reason = DescribeLastError();
        Log(LogError, "The broadcast \"%s\" was interrupted: %s", settings.subject.c_str(), reason.c_str());
        SetLastErrorText(reason);
    }
    presence.Release();
    const std::string reason = GetLastErrorText();
    if (!Get(id, info)) succeeded = false;
    if (!succeeded && !reason.empty()) SetLastErrorText(reason);
    return succeeded;
}

bool CBroadcastJobs::ResumeAll(const BroadcastStop& stop, const BroadcastProgress& progress,
                               std::vector<BroadcastInfo>& ran) {
    std::vector<BroadcastInfo> jobs;
    if (!List(jobs)) return false;
    bool succeeded = true;
    std::string reason;
    for (BroadcastInfo& job : jobs) {
        if (job.state != BroadcastState::Interrupted) continue;
        if (stop && stop()) break;
        if (Run(job.id, stop, progress, job)) {
            ran.push_back(job);
        } else {
            succeeded = false;
            reason = GetLastErrorText();
        }
    }
    if (!succeeded) SetLastErrorText(reason);
    return succeeded;
}

bool CBroadcastJobs::Cancel(std::string_view id) {
    BroadcastInfo info;
    if (!Get(id, info)) return false;
    if (info.state == BroadcastState::Done || info.state == BroadcastState::Cancelled) {
        SetLastErrorFormat("The broadcast %s is %s already.", info.id.c_str(),
                           std::string(BroadcastStateName(info.state)).c_str());
        return false;
    }
    const std::string folder = JoinPath(m_root, id);
    if (!WriteFileAtomically(BroadcastFile(folder, BroadcastCancelFile), "")) return false;
    Platform::CPresence presence;
    if (presence.Acquire(PresenceName(folder)) != Platform::CPresence::Result::Acquired) return true;
    BroadcastSettings settings;
    if (!ReadBroadcastSettings(folder, settings)) return false;
    if (settings.state != BroadcastSettings::State::Running) return true;
    try {
        return CBroadcastRun(folder, settings).Cancel();
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}
