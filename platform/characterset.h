// characterset.h - text of other character sets, brought to UTF-8.
//
// Known are the sets that mail is written in: ISO-8859, Windows and KOI8 code
// pages, the Chinese, Japanese and Korean ones, UTF-7, -16 and -32, Mac Roman.
// Windows has no ISO-8859-10, -14 and -16; Wine besides no GB 18030.
// Names come from messages: one that is not in the list never reaches the system.
//
// Errors   false when the set is unknown here; bytes that are none of its
//          characters become U+FFFD.
// Threads  Any.
// Cost     Linear; the result is at most four times as long as the text.

#ifndef LISTHAVEN_PLATFORM_CHARACTERSET_H
#define LISTHAVEN_PLATFORM_CHARACTERSET_H

#include <string>
#include <string_view>

namespace Platform {

bool ConvertToUtf8(std::string_view characterSet, std::string_view text, std::string& utf8);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_CHARACTERSET_H
