#include "engine/rules/rulesidefiles.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "engine/crc32.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/text.h"

namespace {

constexpr std::string_view NextEnding = ".next";
constexpr std::string_view DirectoryStart = "1";
constexpr const char* RecordName = "record";
constexpr const char* CountName = "rules";
constexpr const char* TemplateMutexPrefix = "Vantorel.Listhaven.3.Template";

bool IsMessage(RuleFile file) noexcept {
    return file == RuleFile::Reply || file == RuleFile::InvalidFormatReply || file == RuleFile::Footer ||
           file == RuleFile::Header || file == RuleFile::MessageToSend;
}

std::string MutexName(const std::string& path, RuleFile file) {
    return IsMessage(file) ? TemplateMutexPrefix + path : TableMutexName(path);
}

// Records of texts only, each column one byte longer than declared, for a NUL.
std::size_t RecordSize(std::span<const CColumnDescription> columns) {
    std::size_t size = 1;
    for (const CColumnDescription& column : columns)
        size += static_cast<std::size_t>(column.size) + 1;
    return size;
}

void AppendRecord(std::string& table, std::span<const CColumnDescription> columns,
                  std::span<const std::string_view> texts) {
    table.push_back('N');
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const auto limit = static_cast<std::size_t>(columns[i].size);
        const std::string_view text = texts[i].substr(0, limit);
        table.append(text).append(limit + 1 - text.size(), '\0');
    }
}

// False when the bytes are no whole records, or one of them is none.
template <class V>
bool ForEachRecord(std::string_view table, std::span<const CColumnDescription> columns, const V& visit) {
    const std::size_t size = RecordSize(columns);
    if (table.size() % size != 0) return false;
    std::vector<std::string_view> texts(columns.size());
    for (; !table.empty(); table.remove_prefix(size)) {
        if (table.front() != 'N' && table.front() != 'Y') return false;
        if (table.front() == 'Y') continue;
        std::size_t at = 1;
        for (std::size_t i = 0; i < columns.size(); ++i) {
            const std::size_t width = static_cast<std::size_t>(columns[i].size) + 1;
            texts[i] = table.substr(at, width);
            const std::size_t end = texts[i].find('\0');
            if (end == std::string_view::npos) return false;
            texts[i] = texts[i].substr(0, end);
            at += width;
        }
        if (!visit(texts)) return false;
    }
    return true;
}

std::string ParseFieldTable(const std::vector<CParseField>& fields) {
    std::string table;
    for (const CParseField& field : fields) {
        const std::string target = std::to_string(field.target);
        const std::array<std::string_view, 5> texts = {target, field.fromBody ? "1" : "0", field.pattern, field.format,
                                                       field.trim ? "1" : "0"};
        AppendRecord(table, ParseFieldColumns(), texts);
    }
    return table;
}

bool TakeParseFields(std::string_view table, std::vector<CParseField>& fields) {
    std::vector<CParseField> read;
    const bool good = ForEachRecord(table, ParseFieldColumns(), [&](const std::vector<std::string_view>& texts) {
        const auto target = ParseNumber(texts[0]);
        if (!target || *target < 0 || *target > INT32_MAX) return false;
        read.push_back({static_cast<std::int32_t>(*target), texts[1] != "0", std::string(texts[2]),
                        std::string(texts[3]), texts[4] != "0"});
        return true;
    });
    if (good) fields = std::move(read);
    return good;
}

std::string ListTable(const std::vector<std::string>& entries) {
    std::string table;
    for (const std::string& entry : entries) {
        const std::array<std::string_view, 1> texts = {entry};
        AppendRecord(table, RuleListColumns(), texts);
    }
    return table;
}

bool TakeList(std::string_view table, std::vector<std::string>& entries) {
    std::vector<std::string> read;
    const bool good = ForEachRecord(table, RuleListColumns(), [&](const std::vector<std::string_view>& texts) {
        read.emplace_back(texts[0]);
        return true;
    });
    if (good) entries = std::move(read);
    return good;
}

bool TakeMessage(std::string_view content, CMimeMessage& message) {
    CMimeMessage read;
    if (!read.LoadText(CMimeSource(content))) return false;
    message = read;
    return true;
}

[[noreturn]] void FailOn(const char* what, const std::string& path) {
    throw CLhvException(FormatText("%s file \"%s\"", what, path.c_str()), Platform::LastSystemError());
}

bool ReadFile(const std::string& path, std::string& content) {
    if (ReadWholeFile(path, content)) return true;
    if (Platform::IsNotFound(Platform::LastSystemError())) return false;
    FailOn("Error opening", path);
}

void RemoveIfThere(const std::string& path) {
    if (!Platform::RemoveFile(path) && !Platform::IsNotFound(Platform::LastSystemError())) {
        FailOn("Error removing", path);
    }
}

}  // namespace

std::string RuleFilePath(std::string_view rulesPath, std::uint32_t id, RuleFile file) {
    std::string path(rulesPath);
    path.append(".").append(std::to_string(id)).append(".");
    return path.append(RuleFileExtensions[static_cast<std::size_t>(file)]);
}

std::string RuleFileContent(const RuleFields& rule, RuleFile file) {
    std::string content;
    if (file == RuleFile::ParseFields) return ParseFieldTable(rule.parseFields);
    VisitRuleLists(rule, [&](std::string_view, RuleFile place, const std::vector<std::string>& entries) {
        if (place == file) content = ListTable(entries);
    });
    VisitRuleMessages(rule, [&](std::string_view, RuleFile place, const CMimeMessage& message) {
        if (place == file) content = message.GetDiskText();
    });
    return content;
}

bool TakeRuleFileContent(RuleFields& rule, RuleFile file, std::string_view content) {
    bool good = false;
    if (file == RuleFile::ParseFields) return TakeParseFields(content, rule.parseFields);
    VisitRuleLists(rule, [&](std::string_view, RuleFile place, std::vector<std::string>& entries) {
        if (place == file) good = TakeList(content, entries);
    });
    VisitRuleMessages(rule, [&](std::string_view, RuleFile place, CMimeMessage& message) {
        if (place == file) good = TakeMessage(content, message);
    });
    return good;
}

// "1;EXT:SIZE:CHECKSUM;...", size and checksum in hexadecimal.
CRuleDirectory::CRuleDirectory(std::string_view text) {
    const std::vector<std::string_view> parts = Split(text, ';');
    if (parts.front() != DirectoryStart) return;
    m_isKnown = true;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        const std::vector<std::string_view> words = Split(parts[i], ':');
        if (words.size() == 2 && words[0] == CountName)
            std::from_chars(words[1].data(), words[1].data() + words[1].size(), m_ruleCount, 16);
        const auto extension = std::find(RuleFileExtensions.begin(), RuleFileExtensions.end(), words.front());
        const bool isRecord = words.front() == RecordName;
        if (words.size() != 3 || (extension == RuleFileExtensions.end() && !isRecord)) continue;
        Entry entry;
        std::from_chars(words[1].data(), words[1].data() + words[1].size(), entry.size, 16);
        std::from_chars(words[2].data(), words[2].data() + words[2].size(), entry.checksum, 16);
        (isRecord ? m_record : m_entries[static_cast<std::size_t>(extension - RuleFileExtensions.begin())]) = entry;
    }
}

bool CRuleDirectory::Has(RuleFile file) const noexcept {
    return m_entries[static_cast<std::size_t>(file)].has_value();
}

bool CRuleDirectory::Fits(RuleFile file, std::string_view content) const noexcept {
    const std::optional<Entry>& entry = m_entries[static_cast<std::size_t>(file)];
    return entry && entry->size == content.size() && entry->checksum == Crc32(content);
}

void CRuleDirectory::Set(RuleFile file, std::string_view content) {
    m_isKnown = true;
    std::optional<Entry>& entry = m_entries[static_cast<std::size_t>(file)];
    if (content.empty()) {
        entry.reset();
    } else {
        entry = MakeEntry(content);
    }
}

CRuleDirectory::Entry CRuleDirectory::MakeEntry(std::string_view content) noexcept {
    return {content.size(), Crc32(content)};
}

void CRuleDirectory::SetRecord(std::string_view content) {
    m_isKnown = true;
    m_record = MakeEntry(content);
}

bool CRuleDirectory::FitsRecord(std::string_view content) const noexcept {
    return !m_record || (m_record->size == content.size() && m_record->checksum == Crc32(content));
}

std::string CRuleDirectory::GetText() const {
    std::string text(DirectoryStart);
    for (std::size_t i = 0; i < RuleFileCount; ++i) {
        if (!m_entries[i]) continue;
        text += FormatText(";%s:%llx:%x", std::string(RuleFileExtensions[i]).c_str(),
                           static_cast<unsigned long long>(m_entries[i]->size), m_entries[i]->checksum);
    }
    if (m_record)
        text +=
            FormatText(";%s:%llx:%x", RecordName, static_cast<unsigned long long>(m_record->size), m_record->checksum);
    if (m_ruleCount > 0) text += FormatText(";%s:%llx", CountName, static_cast<unsigned long long>(m_ruleCount));
    return text;
}

bool ReadRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string& content) {
    const std::string path = RuleFilePath(rulesPath, id, file);
    if (!Platform::FileIsThere(path)) return false;
    Platform::CNamedMutex mutex(MutexName(path, file));
    const CMutexGuard guard(mutex);
    return ReadFile(path, content);
}

bool ReadNextRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string& content) {
    const std::string path = RuleFilePath(rulesPath, id, file);
    if (!Platform::FileIsThere(path + std::string(NextEnding))) return false;
    Platform::CNamedMutex mutex(MutexName(path, file));
    const CMutexGuard guard(mutex);
    return ReadFile(path + std::string(NextEnding), content);
}

void WriteRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string_view content) {
    const std::string path = RuleFilePath(rulesPath, id, file);
    Platform::CNamedMutex mutex(MutexName(path, file));
    const CMutexGuard guard(mutex);
    if (!WriteFileAtomically(path, content)) FailOn("Error writing", path);
}

void WriteNextRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string_view content) {
    const std::string path = RuleFilePath(rulesPath, id, file);
    Platform::CNamedMutex mutex(MutexName(path, file));
    const CMutexGuard guard(mutex);
    if (!WriteFileAtomically(path + std::string(NextEnding), content)) FailOn("Error writing", path);
}

bool PublishNextRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file) {
    const std::string path = RuleFilePath(rulesPath, id, file);
    Platform::CNamedMutex mutex(MutexName(path, file));
    const CMutexGuard guard(mutex);
    return Platform::RenameReplacing(path + std::string(NextEnding), path);
}

void RemoveRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file) {
    const std::string path = RuleFilePath(rulesPath, id, file);
    std::vector<std::string> there;
    for (const char* const ending : {"", ".next", ".ver"}) {
        if (Platform::FileIsThere(path + ending)) there.push_back(path + ending);
    }
    if (there.empty()) return;
    Platform::CNamedMutex mutex(MutexName(path, file));
    const CMutexGuard guard(mutex);
    for (const std::string& each : there)
        RemoveIfThere(each);
}
