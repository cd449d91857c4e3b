// The front end's command line.

#include <cstdio>
#include <exception>
#include <string>

#include "app/datafolder.h"
#include "app/productname.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "utility/lhvexception.h"
#include "utility/terminaltext.h"
#include "utility/text.h"

namespace {

constexpr int Failed = 1;
constexpr int WrongUsage = 2;

int Complain(const std::string& what, int status) {
    std::fprintf(stderr, "listhaven: %s\n", Printable(OneLine(what)).c_str());
    return status;
}

// A reader who has seen enough, such as "head", is no failure.
int WithOutput(int status) {
    const bool isLost = Platform::FlushOutput() == Platform::OutputState::Failed;
    return isLost && status == 0 ? Complain("not all of the output could be written", Failed) : status;
}

void AddCommands(CCommand app) {
    AddListCommands(app);
    AddFieldCommands(app);
    AddMemberCommands(app);
    AddRuleCommands(app);
    AddAccessCommands(app);
    AddBlockedCommands(app);
    AddBroadcastCommands(app);
    AddReceiveCommand(app);
    AddRunCommand(app);
    AddSendCommand(app);
    AddTestSendCommand(app);
    AddAccountCommands(app);
    AddLimitCommands(app);
    AddQueueCommands(app);
    AddDeliveryCommands(app);
    AddMessageCommands(app);
    AddModerationCommands(app);
    AddDigestCommands(app);
    AddSettingsCommands(app);
    AddRuleTestCommand(app);
    AddBounceCommands(app);
    AddStatusCommand(app);
    AddLogCommands(app);
    AddRepairCommand(app);
}

int Run(int argc, char** argv) {
    CCommandLine line("listhaven", "Listhaven, a mailing-list manager", std::string(ProductVersionText()));
    line.AddEarlyOption(
            "--data-folder", [](const std::string& folder) { SetDataFolder(folder); },
            "Where everything is kept (else $LISTHAVEN_DATA_FOLDER, else the system's place)")
        .NamesValue("DIR");
    AddCommands(line.GetRoot());
    std::string fault;
    return line.Run(argc, argv, fault) ? 0 : Complain(fault, WrongUsage);
}

int RunGuarded(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const CUsageFailure& failure) {
        return Complain(failure.what(), WrongUsage);
    } catch (const CLhvException& exception) {
        return Complain(exception.GetDescription(), Failed);
    } catch (const std::exception& exception) {
        return Complain(exception.what(), Failed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Platform::PrepareProcess(argc, argv);
    return WithOutput(RunGuarded(argc, argv));
}
