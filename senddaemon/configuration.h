// configuration.h - the settings of an account or of the daemon: one file.
//
// A profile file with the section "Configuration".  Keys begin with a letter
// and have only letters and digits; values are texts, stored with backslash,
// LF and CR escaped, so any text without NUL survives up to the length that
// is read: 1023 bytes as stored.
//
// Errors   false, with the reason in the last-error text.  A key that is
//          missing reads as "".
// Threads  Any.
// Crash    The file is the old or the new one.

#ifndef LISTHAVEN_SENDDAEMON_CONFIGURATION_H
#define LISTHAVEN_SENDDAEMON_CONFIGURATION_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "senddaemon/subject.h"

namespace SendDaemon {

class CConfiguration : public CSubject {
public:
    explicit CConfiguration(std::string_view path);
    CConfiguration(const CConfiguration& other);  // only the path
    CConfiguration& operator=(const CConfiguration& other);
    ~CConfiguration() override;

    static bool IsValidKey(std::string_view key) noexcept;

    // What this process writes is seen at once, through whatever object; what
    // another writes within 100 ms.
    bool GetValue(std::string_view key, std::string& value) const;
    std::string GetText(std::string_view key) const;     // "" after a failure
    std::int32_t GetNumber(std::string_view key) const;  // as far as it is decimal, else 0
    // The whole value must be a number in the range; one that is missing or empty leaves "number" as it is.
    bool GetNumberWithin(std::string_view key, std::int32_t lowest, std::int32_t highest, std::int32_t& number) const;
    // A file or folder: a relative one lies in the data folder, so that it goes with it.  False for one that only
    // another system has (C:\FOLDER where there are no drives).
    bool GetFileName(std::string_view key, std::string& path) const;
    bool SetValue(std::string_view key, std::string_view value);  // makes the folder; tells the observers

    std::string GetPath() const;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_CONFIGURATION_H
