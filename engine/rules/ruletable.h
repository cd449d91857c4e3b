// ruletable.h - the records of a rules file, read and written as a whole.
//
// Deleted records are kept until the caller leaves them out; the one that holds
// the greatest identifier he has to leave in, so that none is given twice: what
// is remembered of a rule must not pass to another one.
//
// Errors   CLhvException.
// Order    The caller holds the named mutex of the file.
// Crash    The file is the old or the new one.

#ifndef LISTHAVEN_ENGINE_RULES_RULETABLE_H
#define LISTHAVEN_ENGINE_RULES_RULETABLE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/rules/messagerule.h"
#include "engine/rules/rulesidefiles.h"
#include "engine/stable.h"

struct CRuleRow {
    std::uint32_t id = 0;
    bool isLive = true;
    std::string name;
    std::string directory;  // of the side files, as stored
    std::vector<std::byte> record;
};

class CRuleTable {
public:
    enum class Cut { Refused, PassedOver };  // a file that ends too early, or holds what is no record

    explicit CRuleTable(std::string path) : m_path(std::move(path)) {}

    std::vector<CRuleRow> Read(Cut cut = Cut::Refused);  // none when there is no file

    static std::uint32_t NextId(const std::vector<CRuleRow>& rows) noexcept;
    CRuleRow MakeRow(std::uint32_t id, const RuleFields& rule, CRuleDirectory directory) const;
    // Everything that the record holds; fault says what of it is none.
    static void Take(const CRuleRow& row, RuleFields& rule, std::string& fault);

    void Write(const std::vector<CRuleRow>& rows);  // in this order

private:
    static void TakeColumns(const CRuleRow& row, RuleFields& rule, std::string& fault);

    std::string m_path;
};

#endif  // LISTHAVEN_ENGINE_RULES_RULETABLE_H
