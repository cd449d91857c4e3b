// rulesidefiles.h - the twelve files that a rule can have beside the rules file.
//
// A list of strings is a record table with one entry per record, parse fields
// are a record table, a message is a message file; docs/formats.md has the
// bytes.  What is empty has no file.  The record of the rule names the files
// that it has with their lengths and checksums (its directory), so a file that
// is missing, cut or another rule's is known for what it is.
//
// Crash    A new content is written under FILE.next; when the record that names
//          it is there, it counts, and whoever reads next gives it its name.
// Sharing  Each read and each write holds the named mutex of the file.
// Errors   CLhvException: "Error opening file ...", and the system's faults.

#ifndef LISTHAVEN_ENGINE_RULES_RULESIDEFILES_H
#define LISTHAVEN_ENGINE_RULES_RULESIDEFILES_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engine/rules/rulefieldnames.h"

inline constexpr std::size_t RuleFileCount = static_cast<std::size_t>(RuleFile::Count);

inline constexpr std::array<std::string_view, RuleFileCount> RuleFileExtensions = {
    "suw", "bow", "toa", "fra", "foa", "rte", "wfr", "ftr", "hdr", "mts", "sma", "rpf"};

std::string RuleFilePath(std::string_view rulesPath, std::uint32_t id, RuleFile file);

// The content of one file.  "": there is to be none.
std::string RuleFileContent(const RuleFields& rule, RuleFile file);
// False: it is not what the file should hold; the rule is as it was.
bool TakeRuleFileContent(RuleFields& rule, RuleFile file, std::string_view content);

// What a record says of its files.
class CRuleDirectory {
public:
    CRuleDirectory() = default;
    explicit CRuleDirectory(std::string_view text);  // as stored

    bool IsKnown() const noexcept { return m_isKnown; }  // false: the record says nothing
    bool Has(RuleFile file) const noexcept;
    bool Fits(RuleFile file, std::string_view content) const noexcept;
    void Set(RuleFile file, std::string_view content);

    // What the record itself holds outside of this directory.  Fits: also when nothing is known of it.
    void SetRecord(std::string_view content);
    bool FitsRecord(std::string_view content) const noexcept;
    // Records of the whole rules file, deleted ones too; 0: not known.
    std::uint64_t GetRuleCount() const noexcept { return m_ruleCount; }
    void SetRuleCount(std::uint64_t count) noexcept { m_ruleCount = count; }

    std::string GetText() const;

private:
    struct Entry {
        std::uint64_t size = 0;
        std::uint32_t checksum = 0;
    };
    static Entry MakeEntry(std::string_view content) noexcept;

    std::array<std::optional<Entry>, RuleFileCount> m_entries;
    std::optional<Entry> m_record;
    std::uint64_t m_ruleCount = 0;
    bool m_isKnown = false;
};

// False: there is none.
bool ReadRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string& content);
bool ReadNextRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string& content);
void WriteRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string_view content);
void WriteNextRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file, std::string_view content);
bool PublishNextRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file);  // one rename, not flushed
void RemoveRuleFile(std::string_view rulesPath, std::uint32_t id, RuleFile file);       // with what belongs to it

#endif  // LISTHAVEN_ENGINE_RULES_RULESIDEFILES_H
