// dataexport.h - writes the members of a list to a file that can be imported again.
//
// RFC 4180: UTF-8 without byte order mark, commas, CR LF.  The first row is
// E-mail, Name, First name, Middle name, Last name, Mode and the custom fields
// that are defined, in the order of their slots.  Members that get no broadcasts
// (inactive ones) are among them; that they do not is not in the file.
//
// Values are written as they are.  A value that begins with "=", "+", "-" or "@"
// is a formula to a spreadsheet that opens the file: a member who may choose his
// name can try that.  Such values are not changed, since an import would then
// not give the same members; look at a list of strangers in a text editor, or
// let the spreadsheet import the columns as text.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.
// Crash    The file is the old or the new one.

#ifndef LISTHAVEN_ENGINE_DATAEXPORT_H
#define LISTHAVEN_ENGINE_DATAEXPORT_H

#include <cstdint>
#include <functional>
#include <string>

#include "engine/customfields.h"
#include "engine/memberstore.h"

namespace DataExport {

// Record indexes; false cancels: then no file is written, and the result is false.
using Progress = std::function<bool(std::int32_t done, std::int32_t total)>;

bool ExportMembers(CMemberStore& members, const CCustomFields& fields, const std::string& path, std::uint64_t& exported,
                   const Progress& progress = {});

}  // namespace DataExport

#endif  // LISTHAVEN_ENGINE_DATAEXPORT_H
