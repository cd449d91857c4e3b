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

class CCommand;

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

void AddListCommands(CCommand app);
void AddFieldCommands(CCommand app);
void AddMemberCommands(CCommand app);
void AddRuleCommands(CCommand app);
void AddAccessCommands(CCommand app);
void AddBlockedCommands(CCommand app);
void AddBroadcastCommands(CCommand app);
void AddReceiveCommand(CCommand app);
void AddRunCommand(CCommand app);
void AddSendCommand(CCommand app);
void AddTestSendCommand(CCommand app);
void AddAccountCommands(CCommand app);
void AddLimitCommands(CCommand app);
void AddQueueCommands(CCommand app);
void AddDeliveryCommands(CCommand app);
void AddMessageCommands(CCommand app);
void AddModerationCommands(CCommand app);
void AddDigestCommands(CCommand app);
void AddSettingsCommands(CCommand app);
void AddRuleTestCommand(CCommand app);  // behind what adds the group "rule"
void AddBounceCommands(CCommand app);
void AddLogCommands(CCommand app);
void AddStatusCommand(CCommand app);
void AddRepairCommand(CCommand app);

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_COMMAND_H
