// importaddresses.h - reads members from a file of separated values (csvreader.h)
// or of one address per line.
//
// The first row names the columns, without regard to case, blanks, hyphens and
// underscores: E-mail (or Email, Address, E-mail address, Mail), Name, First
// name, Middle name, Last name, Mode, and the custom fields of the target.  Other
// columns are passed over and named in the summary.  A first row in which an
// address stands is no header: then a row is "address", "Name <address>" or
// "address,name".
//
// What the values mean:
// - The address cell may also be "Name <address>".  An address that is none, or
//   longer than 128 bytes, rejects the row.
// - Mode is regular, both or digest, or 0, 1 or 2; something else rejects the row.
// - A file with a Name and without the parts gets them by splitting the name,
//   one with parts only gets the name by joining them.
// - Names and parts that are too long are cut at the end of a character, and
//   counted as shortened: a long name must not cost the member.
// - Line breaks within a value become blanks.
// - A row whose cells are all empty is passed over.  A row of an address that
//   came before in the file counts as existing.
// - When existing members are updated, an empty cell leaves what is stored; the
//   name and its parts count as one value.
//
// Rejected rows go to FILE.rejected.csv: Line, Reason, then the row as it was,
// below the header of the file.  So they can be put right there and imported
// again.  A row that cannot be taken apart is kept in one cell.  The file is
// made only when there are such rows; an old one is removed.
//
// Errors   false, with the reason in the last-error text: a file that cannot be
//          read or written, a header without address column, a target that
//          throws CLhvException.  The summary says what was done by then.
// Threads  Any; the target is used on the caller's.
// Crash    Members of groups that were taken stay; importing the file again
//          completes it.
// Memory   Constant: a group of members and one row.

#ifndef LISTHAVEN_ENGINE_IMPORTADDRESSES_H
#define LISTHAVEN_ENGINE_IMPORTADDRESSES_H

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/memberstore.h"

namespace ImportAddresses {

// Where members go.
class IImportTarget {
public:
    virtual ~IImportTarget() = default;

    virtual int FindField(std::string_view columnName) const = 0;  // slot, or -1

    // Called once, before the first member: the parts that the file has columns for.
    virtual void Begin(const MemberParts& columns) = 0;

    // One outcome per member, in order.  given: the parts that the row of a
    // member has a value for.  The members may be changed.
    virtual std::vector<MemberOutcome> Take(std::span<CMember> members, std::span<const MemberParts> given) = 0;
};

struct CSummary {
    std::uint64_t added = 0;
    std::uint64_t updated = 0;
    std::uint64_t skipped = 0;
    std::uint64_t rejected = 0;
    std::uint64_t shortened = 0;  // among those added and updated
    bool isCancelled = false;
    std::string rejectedFile;                 // "" when there is none
    std::vector<std::string> ignoredColumns;  // as named in the header
};

// From time to time, bytes of the file; false cancels, and the import ends well.
using Progress = std::function<bool(std::uint64_t done, std::uint64_t total)>;

bool ImportFile(const std::string& path, IImportTarget& target, CSummary& summary, const Progress& progress = {});

std::string RejectedFileName(const std::string& path);

}  // namespace ImportAddresses

#endif  // LISTHAVEN_ENGINE_IMPORTADDRESSES_H
