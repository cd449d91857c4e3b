// tablerepair.h - the repair of one record table with its texts.
//
// Errors   CLhvException for the system's faults; what is wrong with the table
//          itself is reported.
// Order    The caller holds the named mutex of the table; nobody has it open in
//          this thread.

#ifndef LISTHAVEN_ENGINE_TABLEREPAIR_H
#define LISTHAVEN_ENGINE_TABLEREPAIR_H

#include <functional>
#include <span>
#include <string>

#include "engine/stable.h"

enum class RepairFinding {
    Mended,
    Remains,  // could not be put right
};
using RepairReport = std::function<void(RepairFinding finding, const std::string& text)>;

// What half a record at the end of the table means, or one that is neither live nor deleted.
enum class HalfRecord {
    Crash,  // it was being appended: it is dropped
    Cut,    // the table is only ever replaced as a whole: it is no crash, and nothing is changed
};

// False when the table is not fit to be opened.
bool RepairTable(const std::string& path, std::span<const CColumnDescription> columns, const RepairReport& report,
                 HalfRecord half = HalfRecord::Crash);

#endif  // LISTHAVEN_ENGINE_TABLEREPAIR_H
