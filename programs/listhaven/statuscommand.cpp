#include <cstdio>
#include <memory>
#include <string>

#include "app/datafolder.h"
#include "app/productname.h"
#include "app/thisapp.h"
#include "engine/daemonhost.h"
#include "platform/namedmutex.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/tableprinter.h"

namespace {

void ShowStatus(bool json) {
    OpenDataFolder();
    const bool server = IsServerRunning();
    const bool frontEnd = Platform::CPresence::IsHeld(InstanceMutexName);
    const bool sending = IsSomebodySending();
    if (json) {
        return PrintJson({{"dataFolder", JsonText(GetDataFolder())},
                          {"version", JsonText(std::string(ProductVersionText()))},
                          {"server", server},
                          {"frontEnd", frontEnd},
                          {"sending", sending}});
    }
    std::printf("Data folder  %s\n", Printable(GetDataFolder()).c_str());
    std::printf("Server       %s\n", server ? "running" : "not running");
    std::printf("Front end    %s\n", frontEnd ? "running" : "not running");
    std::printf("Sending      %s\n", sending ? "yes" : "no");
}

}  // namespace

void AddStatusCommand(CCommand app) {
    auto json = std::make_shared<bool>(false);
    CCommand status =
        app.AddCommand("status", "Show whether the server and the front end run, and whether mail is sent");
    status.AddFlag("--json", *json);
    status.OnRun([json] { ShowStatus(*json); });
}
