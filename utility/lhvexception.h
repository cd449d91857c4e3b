// lhvexception.h - the exception of the data store and the MIME library.

#ifndef LISTHAVEN_UTILITY_LHVEXCEPTION_H
#define LISTHAVEN_UTILITY_LHVEXCEPTION_H

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

class CLhvException : public std::exception {
public:
    explicit CLhvException(std::string message, std::uint32_t code = 0);  // code: of the system, 0 = none

    const std::string& GetText() const noexcept { return m_message; }
    std::uint32_t GetCode() const noexcept { return m_code; }

    // The text alone, or "TEXT : (0xCODE) SYSTEM'S TEXT".
    const std::string& GetDescription() const noexcept { return m_description; }
    const char* what() const noexcept override { return m_description.c_str(); }

private:
    std::string m_message;
    std::uint32_t m_code;
    std::string m_description;
};

// "SOURCE(LINE) : An internal error has occurred." and what to report.  source
// is the unit's name without ending ("Shared/Engine/stable").
enum class InternalErrorKind { Inconsistent, InvalidArguments };
std::string InternalErrorText(std::string_view source, int line,
                              InternalErrorKind kind = InternalErrorKind::Inconsistent);
[[noreturn]] void ThrowInternalError(std::string_view source, int line,
                                     InternalErrorKind kind = InternalErrorKind::Inconsistent);

#endif  // LISTHAVEN_UTILITY_LHVEXCEPTION_H
