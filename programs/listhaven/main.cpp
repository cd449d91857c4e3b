// The front end's command line.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "app/datafolder.h"
#include "app/productname.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr int Failed = 1;
constexpr int WrongUsage = 2;

int Complain(const std::string& what, int status) {
    std::fprintf(stderr, "listhaven: %s\n", OneLine(what).c_str());
    return status;
}

void AddCommands(CLI::App& app) {
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
    AddLogCommands(app);
    AddRepairCommand(app);
}

int Run(int argc, char** argv) {
    CLI::App app("Listhaven, a mailing-list manager", "listhaven");
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string(ProductVersionText()));
    app.add_option_function<std::string>(
           "--data-folder", [](const std::string& folder) { SetDataFolder(folder); },
           "Where everything is kept (else $LISTHAVEN_DATA_FOLDER, else the system's place)")
        ->type_name("DIR")
        ->trigger_on_parse();
    AddCommands(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForAllHelp& help) {
        return app.exit(help);
    } catch (const CLI::CallForVersion& version) {
        return app.exit(version);
    } catch (const CLI::RequiredError& fault) {
        const std::vector<std::string> unknown = app.remaining(true);
        return Complain(unknown.empty() ? fault.what() : "there is no command \"" + unknown.front() + "\"", WrongUsage);
    } catch (const CLI::ParseError& fault) {
        return Complain(fault.what(), WrongUsage);
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Platform::PrepareProcess();
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
