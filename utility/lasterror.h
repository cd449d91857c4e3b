// lasterror.h - the reason of the last failure, one text per thread.
//
// Operations that return false leave their reason here; successes do not clear
// it.  Texts are cut to 1024 characters, line breaks become blanks.  Setting a
// text leaves Platform::LastSystemError() as it was.
//
// Threads  Any; each thread has its own text.

#ifndef LISTHAVEN_UTILITY_LASTERROR_H
#define LISTHAVEN_UTILITY_LASTERROR_H

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "utility/formattext.h"

void SetLastErrorText(std::string_view text);
void SetLastErrorFormat(const char* format, ...) LHV_PRINTF(1, 2);
void SetLastErrorFromSystem(std::uint32_t code);
void SetLastErrorFromSystem();  // the system's last error of this thread
void SetLastErrorFromException(const std::exception& exception);
void ClearLastErrorText();

std::string GetLastErrorText();   // "" when there is none
std::string DescribeLastError();  // "No error description available" when there is none

#endif  // LISTHAVEN_UTILITY_LASTERROR_H
