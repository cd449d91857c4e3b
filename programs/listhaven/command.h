// command.h - what every command of the program shares: output, failures, progress.
//
// A command adds itself to the command line with AddXxxCommands() and does its
// work in a callback.  It ends well by returning, with exit status 1 by throwing
// CCommandFailure (or CLhvException), with 2 by throwing CUsageFailure; main()
// prints the one line on standard error.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_COMMAND_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_COMMAND_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace CLI {
class App;
}

class CCommandFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class CUsageFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] void FailWithLastError(const std::string& what);  // "WHAT: REASON"

// Checks the data folder and the settings file, and applies the settings that
// hold for the whole process.  Every command that uses the data folder calls it first.
void OpenDataFolder();

// The record index in the catalogue of a list given by number or name.
std::int32_t FindList(std::string_view numberOrName);

void AddListCommands(CLI::App& app);
void AddFieldCommands(CLI::App& app);
void AddMemberCommands(CLI::App& app);
void AddRuleCommands(CLI::App& app);
void AddAccessCommands(CLI::App& app);
void AddBlockedCommands(CLI::App& app);
void AddBroadcastCommands(CLI::App& app);
void AddReceiveCommand(CLI::App& app);
void AddRunCommand(CLI::App& app);
void AddSendCommand(CLI::App& app);
void AddTestSendCommand(CLI::App& app);
void AddAccountCommands(CLI::App& app);
void AddLimitCommands(CLI::App& app);
void AddQueueCommands(CLI::App& app);
void AddDeliveryCommands(CLI::App& app);
void AddMessageCommands(CLI::App& app);
void AddModerationCommands(CLI::App& app);
void AddDigestCommands(CLI::App& app);
void AddSettingsCommands(CLI::App& app);
void AddRuleTestCommand(CLI::App& app);  // behind what adds the group "rule"
void AddBounceCommands(CLI::App& app);
void AddLogCommands(CLI::App& app);
void AddRepairCommand(CLI::App& app);

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_COMMAND_H
