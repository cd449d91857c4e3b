#include "engine/repair.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <vector>

#include "app/datafolder.h"
#include "engine/blockedaddresses.h"
#include "engine/catalogue.h"
#include "engine/customfields.h"
#include "engine/eventlog.h"
#include "engine/memberstore.h"
#include "engine/membertable.h"
#include "engine/rulecolumns.h"
#include "engine/tablerepair.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/profilefile.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

// Nothing is written under a passing name for as long as this.
constexpr std::int64_t Abandoned = std::int64_t{3600} * 1'000'000'000;  // nanoseconds

class CRepair {
public:
    CRepair(const std::function<void(const std::string& action)>& report, LostMembers lost)
        : m_report(report), m_lost(lost), m_folder(GetDataFolder()) {}

    bool Run();

private:
    void Tell(RepairFinding finding, const std::string& text);
    void Guard(const std::string& what, const std::function<void()>& step);
    std::vector<std::string> FilesOf(std::string_view pattern);
    bool RepairOne(const std::string& name, std::span<const CColumnDescription> columns,
                   HalfRecord half = HalfRecord::Crash);
    std::vector<std::string> MemberTables();
    void RepairMembers(const std::string& name);
    void NoteLostMembers(const std::string& path);
    void TellOfLostMembers(CMemberStore& members, const std::string& path);
    void RemoveAbandoned(const std::string& folder, int depth);
    bool IsBroadcastUnfinished();
    void FindPrepared();

    const std::function<void(const std::string& action)>& m_report;
    const LostMembers m_lost;
    const std::string m_folder;
    std::set<std::string> m_prepared;  // paths
    bool m_clean = true;
};

bool CRepair::Run() {
    for (const std::string& name : FilesOf("*.CST")) {
        if (EqualNoCase(name, "LISTS.CST")) RepairOne(name, CCatalogue::Columns());
    }
    for (const std::string& name : MemberTables())
        RepairMembers(name);
    for (const std::string& name : FilesOf("*.CFD"))
        RepairOne(name, CCustomFields::Columns());
    for (const std::string& name : FilesOf("*.RUL"))
        RepairOne(name, RuleColumns(), HalfRecord::Cut);
    const struct {
        const char* pattern;
        std::span<const CColumnDescription> columns;
    } tables[] = {{"*.suw", RuleListColumns()},   {"*.bow", RuleListColumns()}, {"*.toa", RuleListColumns()},
                  {"*.fra", RuleListColumns()},   {"*.foa", RuleListColumns()}, {"*.sma", RuleListColumns()},
                  {"*.rpf", ParseFieldColumns()}, {"*.ACL", AccessColumns()}};
    for (const auto& table : tables) {
        for (const std::string& name : FilesOf(table.pattern))
            RepairOne(name, table.columns);
    }
    for (const std::string& name : FilesOf("*.DAT")) {
        if (EqualNoCase(name, "BLOCKED.DAT")) RepairOne(name, CBlockedAddresses::Columns());
    }
    Guard(m_folder, [this] { FindPrepared(); });
    Guard(m_folder, [this] { RemoveAbandoned(WithoutSeparator(m_folder), 0); });
    return m_clean;
}

void CRepair::Tell(RepairFinding finding, const std::string& text) {
    const bool remains = finding == RepairFinding::Remains;
    m_clean = m_clean && !remains;
    Log(remains ? LogError : LogInfo, "Repair: %s", text.c_str());
    m_report(text);
}

// One file that cannot be repaired does not keep the others from it.
void CRepair::Guard(const std::string& what, const std::function<void()>& step) {
    try {
        step();
    } catch (const CLhvException& e) {
        Tell(RepairFinding::Remains, what + ": " + e.GetDescription());
    }
}

std::vector<std::string> CRepair::FilesOf(std::string_view pattern) {
    std::vector<std::string> names;
    const bool listed = ListFolder(m_folder, pattern, [&](const std::string& name, bool isFolder) {
        if (!isFolder) names.push_back(name);
        return true;
    });
    if (!listed) Tell(RepairFinding::Remains, m_folder + ": " + DescribeLastError());
    std::sort(names.begin(), names.end());
    return names;
}

bool CRepair::RepairOne(const std::string& name, std::span<const CColumnDescription> columns, HalfRecord half) {
    const std::string path = m_folder + name;
    bool fit = false;
    Guard(path, [&] {
        Platform::CNamedMutex mutex(TableMutexName(path));
        const CMutexGuard lock(mutex);
        fit = RepairTable(
            path, columns, [this](RepairFinding finding, const std::string& text) { Tell(finding, text); }, half);
    });
    return fit;
}

// Also of lists that have only what tells of their members.
std::vector<std::string> CRepair::MemberTables() {
    std::set<std::string> names;
    for (const std::string& name : FilesOf("*.MBR"))
        names.insert(name);
    for (const std::string& name : FilesOf("*.MBX"))
        names.insert(name.substr(0, name.size() - 1) + "R");
    for (const std::string& name : FilesOf("*.MBR.lost"))
        names.insert(name.substr(0, name.rfind('.')));
    return {names.begin(), names.end()};
}

// Before their records become removed ones.  A table that cannot be opened now may be so when it is repaired.
void CRepair::NoteLostMembers(const std::string& path) {
    try {
        CMemberStore members;
        members.OpenPath(path, CMemberStore::Access::ReadOnly);
        members.NoteLost();
    } catch (const CLhvException& e) {
        Log(LogWarning, "Repair: %s", e.what());
    }
}

void CRepair::TellOfLostMembers(CMemberStore& members, const std::string& path) {
    const std::vector<std::string> lost = members.FindLost();
    if (lost.empty()) return;
    if (m_lost == LostMembers::Awaited || members.HasForeignRecords())
        return Tell(RepairFinding::Remains, path + ": " + DescribeLostMembers(lost));
    members.ForgetLost();
    Tell(RepairFinding::Mended, FormatText("%s: The list goes on without %d members that were lost.", path.c_str(),
                                           static_cast<int>(lost.size())));
}

void CRepair::RepairMembers(const std::string& name) {
    const std::string path = m_folder + name;
    NoteLostMembers(path);
    const bool isFit = RepairOne(name, CMemberTable::Columns());
    Guard(path, [&] {
        CMemberStore members;
        members.OpenPath(path, isFit ? CMemberStore::Access::ReadWrite : CMemberStore::Access::ReadOnly);
        if (!isFit) return TellOfLostMembers(members, path);
        members.RebuildIndex();
        Log(LogInfo, "Repair: The index of %s was made anew.", path.c_str());
        members.ForEach(NoSlots, [&](std::int32_t index, const CMember& member) {
            const std::int32_t first = members.Find(member.address);
            if (first != index) {
                Tell(RepairFinding::Remains, FormatText("%s: Records %d and %d have the same address, %s.",
                                                        path.c_str(), first, index, OneLine(member.address).c_str()));
            }
            return true;
        });
        TellOfLostMembers(members, path);
    });
}

// A copy of a broadcast waits under a passing name until its group becomes
// visible; the job itself knows which of them are to be kept.
bool CRepair::IsBroadcastUnfinished() {
    bool unfinished = false;
    const std::string jobs = m_folder + "Broadcasts";
    if (!Platform::FolderIsThere(jobs)) return false;
    const bool listed = ListFolder(jobs, "*", [&](const std::string& name, bool isFolder) {
        if (!isFolder) return true;
        std::string settings;
        std::string lower = "\n";
        if (ReadFileStart(JoinPath(JoinPath(jobs, name), "job.cfg"), std::size_t{64} << 10, settings)) {
            lower += LowerAscii(settings);
        }
        unfinished =
            lower.find("\nstate=done") == std::string::npos && lower.find("\nstate=cancelled") == std::string::npos;
        return !unfinished;
    });
    return unfinished || !listed;
}

// The paths of both systems are written down with the separators of the one that wrote them.
std::string WithSlashes(std::string path) {
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

// The files of mail cycles: one that was interrupted knows which of them are to
// be kept.
void CRepair::FindPrepared() {
    const std::string inboxes = m_folder + "Inbox";
    if (!Platform::FolderIsThere(inboxes)) return;
    ListFolder(inboxes, "*", [&](const std::string& name, bool isFolder) {
        std::string prepared;
        const std::string path = JoinPath(JoinPath(inboxes, name), ".preparing");
        if (!isFolder || !Platform::FileIsThere(path) || !ReadWholeFile(path, prepared)) return true;
        for (const std::string_view file : Split(prepared, '\n'))
            m_prepared.insert(WithSlashes(m_folder + std::string(file)));
        return true;
    });
}

bool IsPassingName(std::string_view name) {
    if (name.ends_with(".tmp")) return true;
    if (!name.ends_with(".new")) return false;
    name.remove_suffix(4);  // what follows a table's name is its rewriting, which has no number
    const std::size_t dot = name.rfind('.');
    return dot != std::string_view::npos && dot + 1 < name.size() &&
           name.find_first_not_of("0123456789", dot + 1) == std::string_view::npos;
}

void CRepair::RemoveAbandoned(const std::string& folder, int depth) {
    constexpr int Deepest = 4;
    std::vector<std::string> folders;
    std::vector<std::string> files;
    const bool listed = ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        if (isFolder) {
            folders.push_back(name);
        } else if (IsPassingName(name)) {
            files.push_back(name);
        }
        return true;
    });
    if (!listed) {
        Tell(RepairFinding::Remains, folder + ": " + DescribeLastError());
        return;
    }
    const std::int64_t now = Platform::NanosecondsSince1970();
    for (const std::string& name : files) {
        const std::string path = JoinPath(folder, name);
        Platform::FileStatus status;
        if (m_prepared.count(WithSlashes(path)) > 0) continue;
        if (!Platform::GetFileStatus(path, status) || now - status.times.modified < Abandoned) continue;
        if (Platform::RemoveFile(path)) {
            Tell(RepairFinding::Mended, path + ": This file was left half-written and is removed.");
        } else {
            Tell(RepairFinding::Remains, path + ": This file was left half-written and cannot be removed.");
        }
    }
    for (const std::string& name : folders) {
        if (depth >= Deepest || name == ".locks" || name == ".mailslots") continue;
        if (depth == 0 && (name == "SendDaemon" || name == "Broadcasts") && IsBroadcastUnfinished()) continue;
        RemoveAbandoned(JoinPath(folder, name), depth + 1);
    }
}

}  // namespace

bool RepairDataFolder(const std::function<void(const std::string& action)>& report, LostMembers lost) {
    try {
        return CRepair(report, lost).Run();
    } catch (const CLhvException& e) {
        Log(LogError, "Repair: %s", e.what());
        report(e.GetDescription());
        return false;
    }
}
