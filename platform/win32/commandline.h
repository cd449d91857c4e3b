// commandline.h - programs and arguments as one line.

#ifndef LISTHAVEN_PLATFORM_WIN32_COMMANDLINE_H
#define LISTHAVEN_PLATFORM_WIN32_COMMANDLINE_H

#include <string>
#include <vector>

namespace Platform {

// So that the program's own run-time library takes it apart again.
std::wstring CommandLine(const std::wstring& program, const std::vector<std::string>& arguments);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_WIN32_COMMANDLINE_H
