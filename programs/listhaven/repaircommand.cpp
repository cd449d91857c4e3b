#include <cstdio>
#include <memory>
#include <string>

#include "engine/repair.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/tableprinter.h"

void AddRepairCommand(CCommand app) {
    CCommand repair = app.AddCommand("repair", "Check the data files, mend what can be mended, and say what was done");
    auto acceptLoss = std::make_shared<bool>(false);
    repair.AddFlag("--accept-loss", *acceptLoss, "Lists that have lost members go on without them");
    repair.OnRun([acceptLoss] {
        OpenDataFolder();
        std::size_t actions = 0;
        const auto print = [&](const std::string& action) {
            ++actions;
            std::printf("%s\n", Printable(action).c_str());
        };
        const bool clean = RepairDataFolder(print, *acceptLoss ? LostMembers::Accepted : LostMembers::Awaited);
        if (actions == 0) std::printf("Nothing to repair.\n");
        if (!clean) throw CCommandFailure("some faults could not be repaired");
    });
}
