#include <cstdio>
#include <string>

#include "engine/repair.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/tableprinter.h"

void AddRepairCommand(CCommand app) {
    CCommand repair = app.AddCommand("repair", "Check the data files, mend what can be mended, and say what was done");
    repair.OnRun([] {
        OpenDataFolder();
        std::size_t actions = 0;
        const bool clean = RepairDataFolder([&](const std::string& action) {
            ++actions;
            std::printf("%s\n", Printable(action).c_str());
        });
        if (actions == 0) std::printf("Nothing to repair.\n");
        if (!clean) throw CCommandFailure("some faults could not be repaired");
    });
}
