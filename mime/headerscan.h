// headerscan.h - some header fields of a message file, without loading the rest.
//
// Reads as far as the end of the header, in steps of 16 KiB.  A header above
// 1 MiB is no header: no field is found.
//
// Errors   false when the file cannot be read, with the reason in the
//          last-error text.
// Threads  Any.

#ifndef LISTHAVEN_MIME_HEADERSCAN_H
#define LISTHAVEN_MIME_HEADERSCAN_H

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "utility/text.h"

using CHeaderValues = std::map<std::string, std::string, CLessNoCase>;

enum class HeaderForm {
    Decoded,  // unfolded, encoded words decoded
    Stored,   // unfolded only: what ParseMailboxes() wants for recipients
};

// values gets one entry for each of the names that the header has, with the
// value of the first such field; names compare without regard to case.
bool ReadHeaderFields(std::string_view path, std::span<const std::string_view> names, CHeaderValues& values,
                      HeaderForm form = HeaderForm::Decoded);

// The same of a text that begins with a header.
void ScanHeaderFields(std::string_view text, std::span<const std::string_view> names, CHeaderValues& values,
                      HeaderForm form = HeaderForm::Decoded);

#endif  // LISTHAVEN_MIME_HEADERSCAN_H
