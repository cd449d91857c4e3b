// servicecommands.h - lhvserver install, uninstall, start, stop and status.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_SERVICECOMMANDS_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_SERVICECOMMANDS_H

#include <CLI/CLI.hpp>
#include <functional>
#include <string>

inline constexpr const char* ServiceName = "lhvserver";

// Which of them was called is put into "chosen": it returns the exit status, and
// throws CLhvException with what failed.
void AddServiceCommands(CLI::App& app, std::function<int()>& chosen);

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_SERVICECOMMANDS_H
