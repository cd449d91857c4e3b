// rulestore.h - the rules of a list on disk: n.RUL and its side files.
//
// Errors   CLhvException: the system's faults, a damaged table, a rule that may
//          not be stored (see CheckRule).  What threw has changed nothing that
//          a reader sees, or left the old rule.
//          A side file that is missing, cut, damaged or another rule's gets a
//          log line, and the rule is loaded disabled (CMessageRule::GetFault):
//          a rule that has lost a condition must not apply to everything.
// Sharing  Each operation holds the named mutex of the rules file; each side
//          file is read and written under its own.
// Crash    A rule is the old or the new one with all its files; several that
//          are appended or replaced together are there together.

#ifndef LISTHAVEN_ENGINE_RULES_RULESTORE_H
#define LISTHAVEN_ENGINE_RULES_RULESTORE_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/rules/messagerule.h"

struct CRuleRow;
enum class RuleFile : std::uint8_t;

class CRuleStore {
public:
    explicit CRuleStore(std::uint32_t listNumber);  // in the data folder
    explicit CRuleStore(std::string rulesPath);     // of the .RUL file

    std::vector<CMessageRule> Load();  // in the order in which they apply

    // A fingerprint of the rules file and its side files: rules need not be
    // loaded again while it is the same.  Take it before Load().  For some
    // milliseconds after a change each one is another.
    std::string GetStamp();

    void Append(CMessageRule& rule);  // gets its id
    void Append(std::span<CMessageRule> rules);
    void Save(CMessageRule& rule);                // that is stored already
    void Delete(std::uint32_t id);                // with its side files
    void Move(std::uint32_t id, std::size_t to);  // to this place, from 0
    void DeleteAll();
    void Replace(std::span<CMessageRule> rules);  // all that are there by these, in one step

    static std::vector<std::string> SideFilesOf(std::string_view rulesPath, std::uint32_t id);

private:
    CMessageRule LoadRule(const CRuleRow& row);
    void Store(std::span<CMessageRule> rules, bool replaceAll);
    CRuleRow& FindRow(std::vector<CRuleRow>& rows, std::uint32_t id) const;
    void RemoveSideFiles(std::uint32_t id);
    void RemoveUnused(std::uint32_t first, std::uint32_t last) noexcept;
    void RemoveEmptied(std::uint32_t id, const std::vector<RuleFile>& files) noexcept;
    bool TryRemoveSideFiles(std::uint32_t id) noexcept;
    void RemoveSideFilesOfDeleted(const std::vector<CRuleRow>& rows) noexcept;
    std::vector<CRuleRow> ReadRows();
    std::vector<CRuleRow> WithoutGone(std::vector<CRuleRow> rows);

    std::string m_path;
};

// Why a rule cannot be stored: a name that is empty or another rule's, a regular
// expression that is none, and for an enabled rule a condition or an action
// without what it needs.  "" when it can.
std::string CheckRule(const RuleFields& rule, std::span<const CMessageRule> others, std::uint32_t ownId = 0);

#endif  // LISTHAVEN_ENGINE_RULES_RULESTORE_H
