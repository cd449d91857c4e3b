#include "engine/rules/rulestore.h"

#include <algorithm>
#include <array>
#include <exception>

#include "app/datafolder.h"
#include "engine/eventlog.h"
#include "engine/filelook.h"
#include "engine/rules/rulesidefiles.h"
#include "engine/rules/ruletable.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

std::array<RuleFile, RuleFileCount> AllFiles() {
    std::array<RuleFile, RuleFileCount> files{};
    for (std::size_t i = 0; i < RuleFileCount; ++i)
        files[i] = static_cast<RuleFile>(i);
    return files;
}

// What the rule would be without, if the file were empty.
const char* NeedOf(const RuleFields& rule, RuleFile file) {
    switch (file) {
        case RuleFile::SubjectWords:
            return rule.checkSubject ? "its subject words" : nullptr;
        case RuleFile::BodyWords:
            return rule.checkBody ? "its body words" : nullptr;
        case RuleFile::ToAddresses:
            return rule.checkTo && !rule.toOptions.members.subscribers ? "its To addresses" : nullptr;
        case RuleFile::FromAddresses:
            return rule.checkFrom && !rule.fromOptions.members.subscribers ? "its From addresses" : nullptr;
        default:
            return nullptr;
    }
}

// The rules that are there, as far as a check of a new one asks for them.
std::vector<CMessageRule> NamesOf(const std::vector<CRuleRow>& rows) {
    std::vector<CMessageRule> rules;
    for (const CRuleRow& row : rows) {
        if (!row.isLive) continue;
        RuleFields fields;
        fields.name = row.name;
        rules.emplace_back(row.id, std::move(fields));
    }
    return rules;
}

void Require(const std::string& fault) {
    if (!fault.empty()) throw CLhvException(fault);
}

void AppendLook(std::string& stamp, const std::string& path, std::int64_t now, bool& isRecent) {
    const auto look = LookAtFile(path);
    if (!look) {
        stamp += "-;";
        return;
    }
    stamp += FormatText("%llx:%llx:%llx;", static_cast<unsigned long long>(look->identity),
                        static_cast<unsigned long long>(look->size), static_cast<unsigned long long>(look->modified));
    isRecent = isRecent || now - look->modified <= FileClockTick;
}

}  // namespace

CRuleStore::CRuleStore(std::uint32_t listNumber) : m_path(GetDataFolder() + std::to_string(listNumber) + ".RUL") {}

CRuleStore::CRuleStore(std::string rulesPath) : m_path(std::move(rulesPath)) {}

std::vector<CMessageRule> CRuleStore::Load() {
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    std::vector<CMessageRule> rules;
    for (const CRuleRow& row : CRuleTable(m_path).Read()) {
        if (row.isLive) rules.push_back(LoadRule(row));
    }
    return rules;
}

// A content that was written when the program ended counts if the record names it.
CMessageRule CRuleStore::LoadRule(const CRuleRow& row) {
    RuleFields fields;
    std::vector<std::string> faults(1);
    CRuleTable::Take(row, fields, faults.front());
    if (faults.front().empty()) faults.clear();
    const CRuleDirectory directory(row.directory);
    for (const RuleFile file : AllFiles()) {
        const std::string name = LastPathComponent(RuleFilePath(m_path, row.id, file));
        std::string content;
        bool isThere = (!directory.IsKnown() || directory.Has(file)) && ReadRuleFile(m_path, row.id, file, content);
        if (directory.Has(file) && !directory.Fits(file, content)) {
            std::string next;
            if (ReadNextRuleFile(m_path, row.id, file, next) && directory.Fits(file, next)) {
                PublishNextRuleFile(m_path, row.id, file);
                content = std::move(next);
                isThere = true;
            } else {
                faults.push_back(name + (isThere ? " is not what was stored" : " is missing"));
                continue;
            }
        }
        if (isThere && !content.empty() && !TakeRuleFileContent(fields, file, content)) {
            faults.push_back(name + " is damaged");
            continue;
        }
        const char* const need = content.empty() ? NeedOf(fields, file) : nullptr;
        if (need) faults.push_back(std::string(need) + " are missing");
    }
    CMessageRule rule(row.id, fields);
    if (faults.empty()) return rule;
    const std::string fault = Join(faults, ", ");
    Log(LogError, "The rule \"%s\" of %s is disabled because %s.", OneLine(fields.name).c_str(), m_path.c_str(),
        fault.c_str());
    fields.enabled = false;
    rule = CMessageRule(row.id, std::move(fields));
    rule.SetFault(fault);
    return rule;
}

std::string CRuleStore::GetStamp() {
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    const std::int64_t now = Platform::NanosecondsSince1970();
    bool isRecent = false;
    std::string stamp;
    AppendLook(stamp, m_path, now, isRecent);
    for (const CRuleRow& row : CRuleTable(m_path).Read()) {
        if (!row.isLive) continue;
        const CRuleDirectory directory(row.directory);
        for (const RuleFile file : AllFiles()) {
            if (directory.IsKnown() && !directory.Has(file)) continue;
            AppendLook(stamp, RuleFilePath(m_path, row.id, file), now, isRecent);
        }
    }
    if (isRecent) stamp += std::to_string(now);
    return stamp;
}

void CRuleStore::Append(CMessageRule& rule) {
    Store(std::span(&rule, 1), false);
}

void CRuleStore::Append(std::span<CMessageRule> rules) {
    Store(rules, false);
}

void CRuleStore::DeleteAll() {
    Store({}, true);
}

void CRuleStore::Replace(std::span<CMessageRule> rules) {
    Store(rules, true);
}

// New rules have identifiers of their own: nobody sees their files before the
// records are there.
void CRuleStore::Store(std::span<CMessageRule> rules, bool replaceAll) {
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    CRuleTable table(m_path);
    std::vector<CRuleRow> rows =
        WithoutGone(table.Read(replaceAll ? CRuleTable::Cut::PassedOver : CRuleTable::Cut::Refused));
    if (rules.empty() && rows.empty()) return;
    const std::uint32_t first = table.NextId(rows);
    if (replaceAll) {
        for (CRuleRow& row : rows)
            row.isLive = false;
    }
    std::vector<CMessageRule> others = NamesOf(rows);
    std::uint32_t id = first;
    try {
        for (const CMessageRule& rule : rules) {
            Require(CheckRule(rule.Get(), others));
            RemoveSideFiles(id);
            CRuleDirectory directory;
            for (const RuleFile file : AllFiles()) {
                const std::string content = RuleFileContent(rule.Get(), file);
                directory.Set(file, content);
                if (!content.empty()) WriteRuleFile(m_path, id, file, content);
            }
            rows.push_back(table.MakeRow(id, rule.Get(), directory));
            RuleFields named;
            named.name = rule.Get().name;
            others.emplace_back(id++, std::move(named));
        }
        table.Write(rows);
    } catch (...) {
        RemoveUnused(first, id);
        throw;
    }
    id = first;
    for (CMessageRule& rule : rules)
        rule.SetStored(id++);
    RemoveSideFilesOfDeleted(rows);
}

void CRuleStore::Save(CMessageRule& rule) {
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    CRuleTable table(m_path);
    std::vector<CRuleRow> rows = ReadRows();
    CRuleRow& row = FindRow(rows, rule.GetId());
    Require(CheckRule(rule.Get(), NamesOf(rows), rule.GetId()));
    CRuleDirectory directory;
    std::vector<RuleFile> written;
    std::vector<RuleFile> emptied;
    for (const RuleFile file : AllFiles()) {
        const std::string content = RuleFileContent(rule.Get(), file);
        std::string before;
        directory.Set(file, content);
        if (content.empty()) {
            emptied.push_back(file);
        } else if (!ReadRuleFile(m_path, row.id, file, before) || before != content) {
            WriteNextRuleFile(m_path, row.id, file, content);
            written.push_back(file);
        }
    }
    row = table.MakeRow(row.id, rule.Get(), directory);
    table.Write(rows);  // the rule has changed with this
    rule.SetStored(rule.GetId());
    for (const RuleFile file : written)
        PublishNextRuleFile(m_path, rule.GetId(), file);
    RemoveEmptied(rule.GetId(), emptied);
    if (!written.empty()) Platform::FlushFolder(ParentFolder(m_path));
}

void CRuleStore::Delete(std::uint32_t id) {
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    CRuleTable table(m_path);
    std::vector<CRuleRow> rows = ReadRows();
    FindRow(rows, id).isLive = false;
    table.Write(rows);
    RemoveSideFilesOfDeleted(rows);
}

void CRuleStore::Move(std::uint32_t id, std::size_t to) {
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    CRuleTable table(m_path);
    std::vector<CRuleRow> rows = ReadRows();
    std::stable_partition(rows.begin(), rows.end(), [](const CRuleRow& row) { return row.isLive; });
    const CRuleRow moved = FindRow(rows, id);
    const auto live = static_cast<std::size_t>(
        std::count_if(rows.begin(), rows.end(), [](const CRuleRow& row) { return row.isLive; }));
    std::erase_if(rows, [&](const CRuleRow& row) { return row.isLive && row.id == id; });
    rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(std::min(to, live - 1)), moved);
    table.Write(rows);
}

CRuleRow& CRuleStore::FindRow(std::vector<CRuleRow>& rows, std::uint32_t id) const {
    const auto found =
        std::find_if(rows.begin(), rows.end(), [id](const CRuleRow& row) { return row.isLive && row.id == id; });
    if (found == rows.end()) throw CLhvException(FormatText("There is no rule with the identifier %u.", id));
    return *found;
}

void CRuleStore::RemoveSideFiles(std::uint32_t id) {
    for (const RuleFile file : AllFiles())
        RemoveRuleFile(m_path, id, file);
}

void CRuleStore::RemoveEmptied(std::uint32_t id, const std::vector<RuleFile>& files) noexcept {
    try {
        for (const RuleFile file : files)
            RemoveRuleFile(m_path, id, file);
    } catch (const std::exception& e) {
        Log(LogWarning, "A file that a rule no longer has is left behind: %s", e.what());
    }
}

// After a failure, which may have come when the records were already there.
void CRuleStore::RemoveUnused(std::uint32_t first, std::uint32_t last) noexcept {
    try {
        const std::vector<CRuleRow> rows = ReadRows();
        for (std::uint32_t id = first; id <= last; ++id) {
            const bool isUsed =
                std::any_of(rows.begin(), rows.end(), [id](const CRuleRow& row) { return row.id == id; });
            if (!isUsed) RemoveSideFiles(id);
        }
    } catch (const std::exception& e) {
        Log(LogWarning, "Files of rules beside %s may be left behind: %s", m_path.c_str(), e.what());
    }
}

bool CRuleStore::TryRemoveSideFiles(std::uint32_t id) noexcept {
    try {
        RemoveSideFiles(id);
        return true;
    } catch (const std::exception& e) {
        Log(LogWarning, "A file of a deleted rule is left behind for now: %s", e.what());
        return false;
    }
}

void CRuleStore::RemoveSideFilesOfDeleted(const std::vector<CRuleRow>& rows) noexcept {
    for (const CRuleRow& row : rows) {
        if (!row.isLive) TryRemoveSideFiles(row.id);
    }
}

std::vector<CRuleRow> CRuleStore::ReadRows() {
    return WithoutGone(CRuleTable(m_path).Read());
}

// A deleted record stays until its files are gone, whatever came between.  The
// one with the greatest identifier stays beyond that.
std::vector<CRuleRow> CRuleStore::WithoutGone(std::vector<CRuleRow> rows) {
    const std::uint32_t next = CRuleTable::NextId(rows);
    std::erase_if(rows,
                  [&](const CRuleRow& row) { return !row.isLive && TryRemoveSideFiles(row.id) && row.id + 1 != next; });
    return rows;
}

std::vector<std::string> CRuleStore::SideFilesOf(std::string_view rulesPath, std::uint32_t id) {
    std::vector<std::string> paths;
    for (const RuleFile file : AllFiles())
        paths.push_back(RuleFilePath(rulesPath, id, file));
    return paths;
}
