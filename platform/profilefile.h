// profilefile.h - profile (INI) files: sections in square brackets, key=value.
//
// Sections and keys compare without regard to case.  White space around keys
// and values does not count; a value in a pair of equal quotes (" or ') is read
// without them.  Lines beginning with ";" and lines that are no key=value are
// kept as they are when a key is written.
//
// Errors   Reading never fails: what is missing or cannot be read yields the
//          default.  Writing returns false with the reason in
//          LastSystemError() and leaves the file as it was.
// Threads  Any; writers exclude each other by a named mutex of the file.
// Crash    The file is replaced whole: old or new, never a mixture.

#ifndef LISTHAVEN_PLATFORM_PROFILEFILE_H
#define LISTHAVEN_PLATFORM_PROFILEFILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Platform {

struct ProfileFault {
    std::size_t line = 0;  // from 1
    std::string reason;
};

// At most maxLength bytes (0: no limit).
std::string ReadProfileText(std::string_view path, std::string_view section, std::string_view key,
                            std::string_view defaultValue, std::size_t maxLength = 0);

// Decimal with optional sign; a value that begins otherwise is 0, a missing key the default.
int ReadProfileNumber(std::string_view path, std::string_view section, std::string_view key, int defaultValue);

bool WriteProfileText(std::string_view path, std::string_view section, std::string_view key, std::string_view value);
bool RemoveProfileKey(std::string_view path, std::string_view section, std::string_view key);

std::vector<std::string> ReadProfileKeys(std::string_view path, std::string_view section);  // in file order

// The first line that is not a profile line (binary data, no "="), if any.
// A missing file has no fault.
std::optional<ProfileFault> CheckProfileFile(std::string_view path);

// While it lives, its thread looks only once whether a file has changed: for
// work that reads many settings and is over in a moment.  What is written
// through this interface is seen at once.
class CProfileStay {
public:
    CProfileStay() noexcept;
    CProfileStay(const CProfileStay&) = delete;
    CProfileStay& operator=(const CProfileStay&) = delete;
    ~CProfileStay();
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_PROFILEFILE_H
