#include "programs/listhaven/importcommand.h"

#include <cstdio>
#include <memory>
#include <string>

#include "engine/catalogue.h"
#include "engine/customfields.h"
#include "engine/dataexport.h"
#include "engine/importaddresses.h"
#include "engine/memberimport.h"
#include "engine/memberstore.h"
#include "platform/process.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/commandline.h"
#include "programs/listhaven/jsonoutput.h"
#include "programs/listhaven/progressbar.h"
#include "programs/listhaven/tableprinter.h"
#include "utility/text.h"

namespace {

struct CArguments {
    std::string list;
    std::string file;
    bool skip = false;
    bool update = false;
    bool json = false;
};

void PrintSummary(const ImportAddresses::CSummary& summary, bool json) {
    if (json) {
        PrintJson({{"added", summary.added},
                   {"updated", summary.updated},
                   {"skipped", summary.skipped},
                   {"rejected", summary.rejected},
                   {"shortened", summary.shortened},
                   {"rejectedFile", JsonText(summary.rejectedFile)}});
        return;
    }
    std::printf("%llu added, %llu updated, %llu skipped, %llu rejected\n",
                static_cast<unsigned long long>(summary.added), static_cast<unsigned long long>(summary.updated),
                static_cast<unsigned long long>(summary.skipped), static_cast<unsigned long long>(summary.rejected));
    if (summary.shortened > 0)
        std::printf("%llu had a name that was too long and is cut\n",
                    static_cast<unsigned long long>(summary.shortened));
    if (!summary.ignoredColumns.empty())
        std::printf("Columns passed over: %s\n", Printable(Join(summary.ignoredColumns, ", ")).c_str());
    if (!summary.rejectedFile.empty())
        std::printf("The rejected rows with their reasons are in %s\n", Printable(summary.rejectedFile).c_str());
}

void Import(const CArguments& arguments) {
    OpenDataFolder();
    const std::uint32_t number = GetCatalogue().GetListNumber(FindList(arguments.list));
    CCustomFields fields;
    fields.Load(number);
    CMemberStore members;
    members.Open(number);
    ImportAddresses::CMemberTarget target(members, fields,
                                          arguments.update ? ExistingMember::Update : ExistingMember::Skip);
    Platform::CatchStopSignals();
    ImportAddresses::CSummary summary;
    bool succeeded;
    {
        CProgressBar bar("Importing, bytes");
        succeeded =
            ImportAddresses::ImportFile(arguments.file, target, summary, [&](std::uint64_t done, std::uint64_t total) {
                bar.Show(done, total);
                return !Platform::StopSignalled();
            });
    }
    if (!succeeded) FailWithLastError(arguments.file);
    PrintSummary(summary, arguments.json);
    if (summary.isCancelled) throw CCommandFailure("the import was stopped; importing the file again completes it");
}

void Export(const CArguments& arguments) {
    OpenDataFolder();
    const std::uint32_t number = GetCatalogue().GetListNumber(FindList(arguments.list));
    CCustomFields fields;
    fields.Load(number);
    CMemberStore members;
    members.Open(number, CMemberStore::Access::ReadOnly);
    Platform::CatchStopSignals();
    std::uint64_t exported = 0;
    bool succeeded;
    {
        CProgressBar bar("Exporting");
        const auto progress = [&](std::int32_t done, std::int32_t total) {
            bar.Show(static_cast<std::uint64_t>(done), static_cast<std::uint64_t>(total));
            return !Platform::StopSignalled();
        };
        succeeded = DataExport::ExportMembers(members, fields, arguments.file, exported, progress);
    }
    if (!succeeded) FailWithLastError(arguments.file);
    if (arguments.json)
        PrintJson({{"exported", exported}});
    else
        std::printf("%llu exported\n", static_cast<unsigned long long>(exported));
}

}  // namespace

void AddImportCommands(CCommand member) {
    auto arguments = std::make_shared<CArguments>();
    CCommand import = member.AddCommand("import", "Add the members in a CSV file");
    import.AddOption("LIST", arguments->list).Required();
    import.AddOption("FILE", arguments->file).Required();
    COption skip =
        import.AddFlag("--skip-existing", arguments->skip, "Leave those that are members as they are (default)");
    import.AddFlag("--update", arguments->update, "Give those that are members the values of the file").Excludes(skip);
    import.AddFlag("--json", arguments->json);
    import.OnRun([arguments] { Import(*arguments);
});

CCommand exporting = member.AddCommand("export", "Write all members into a CSV file");
exporting.AddOption("LIST", arguments->list).Required();
exporting.AddOption("FILE", arguments->file).Required();
exporting.AddFlag("--json", arguments->json);
exporting.OnRun([arguments] { Export(*arguments); });
}
