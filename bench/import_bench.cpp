// What a large list costs: importing a file into an empty list beside reading
// and splitting the same file alone; the same file again (all skipped, all
// updated); opening the list; finding a member; exporting.
//
//   import_bench [MEMBERS [FOLDER]]
//
// FOLDER decides which disk is measured; it must not exist and is removed.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/datafolder.h"
#include "engine/csvreader.h"
#include "engine/dataexport.h"
#include "engine/memberimport.h"
#include "platform/file.h"
#include "platform/guid.h"
#include "platform/knownfolders.h"
#include "platform/process.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int Lookups = 200000;

[[noreturn]] void Die(const std::string& what) {
    std::fprintf(stderr, "import_bench: %s: %s\n", what.c_str(), DescribeLastError().c_str());
    std::exit(1);
}

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string AddressOf(std::uint32_t number) {
    return "member" + std::to_string(number * 2654435761U) + "@host" + std::to_string(number % 977) + ".example";
}

void WriteMembers(const std::string& path, int count) {
    std::string rows = "E-mail,Name,Mode,Town,Boat\r\n";
    for (int i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        rows += AddressOf(static_cast<std::uint32_t>(i)) + ",\"Berg" + number + ", Anna\",regular,Kiel " + number +
                ",M\xC3\xB6we\r\n";
    }
    if (!WriteFileAtomically(path, rows)) Die(path);
}

double ReadAndSplit(const std::string& path) {
    const auto start = Clock::now();
    CCsvReader reader;
    if (!reader.Open(path)) Die(path);
    CCsvRow row;
    std::size_t cells = 0;
    while (reader.Next(row) == CCsvReader::Step::Row)
        cells += row.cells.size();
    if (cells == 0) Die("nothing was read");
    return SecondsSince(start);
}

struct CRun {
    double seconds = 0;
    std::uint64_t mostMemory = 0;
    ImportAddresses::CSummary summary;
};

CRun Import(const std::string& path, std::uint32_t list, const CCustomFields& fields, ExistingMember onExisting) {
    CRun run;
    const auto start = Clock::now();
    CMemberStore members;
    members.Open(list);
    ImportAddresses::CMemberTarget target(members, fields, onExisting);
    const auto watchMemory = [&](std::uint64_t, std::uint64_t) {
        run.mostMemory = std::max(run.mostMemory, Platform::ResidentMemory());
        return true;
    };
    if (!ImportAddresses::ImportFile(path, target, run.summary, watchMemory)) Die(path);
    members.Close();
    run.seconds = SecondsSince(start);
    return run;
}

void Print(const char* what, double seconds, int count) {
    std::printf("%-36s %8.2f s %10.0f /s\n", what, seconds, count / seconds);
}

void PrintRun(const char* what, const CRun& run, int count) {
    Print(what, run.seconds, count);
    std::printf("%-36s %8.1f MB resident at most; added %llu, updated %llu, skipped %llu, rejected %llu\n", "",
                static_cast<double>(run.mostMemory) / 1e6, static_cast<unsigned long long>(run.summary.added),
                static_cast<unsigned long long>(run.summary.updated),
                static_cast<unsigned long long>(run.summary.skipped),
                static_cast<unsigned long long>(run.summary.rejected));
}

void MeasureUse(std::uint32_t list, const CCustomFields& fields, int count, const std::string& exportFile) {
    auto start = Clock::now();
    CMemberStore members;
    members.Open(list);
    if (members.Find(AddressOf(0)) == CMemberStore::None) Die("a member is missing");
    std::printf("%-36s %8.2f ms\n", "open and find the first member", SecondsSince(start) * 1000);

    start = Clock::now();
    std::uint32_t number = 1;
    for (int i = 0; i < Lookups; ++i) {
        number = number * 1664525U + 1013904223U;
        if (members.Find(AddressOf(number % static_cast<std::uint32_t>(count))) == CMemberStore::None)
            Die("a member is missing");
    }
    Print("find a member", SecondsSince(start), Lookups);
    std::printf("%-36s %8.2f us each\n", "", SecondsSince(start) * 1e6 / Lookups);

    start = Clock::now();
    std::uint64_t exported = 0;
    if (!DataExport::ExportMembers(members, fields, exportFile, exported)) Die(exportFile);
    Print("export", SecondsSince(start), count);
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 1000000;
    const std::string folder =
        argc > 2 ? argv[2]
                 : JoinPath(Platform::TemporaryFolder(), "import_bench." + std::to_string(Platform::RandomNumber()));
    if (count <= 0 || !Platform::MakeFolder(folder)) Die(folder);
    UseDataFolder(folder);
    CCustomFields fields;
    fields.Load(1);
    fields.Set(0, {"Town", "", CustomFieldKind::Text});
    fields.Set(1, {"Boat", "", CustomFieldKind::Text});
    const std::string path = JoinPath(folder, "members.csv");
    WriteMembers(path, count);

    std::printf("%d members\n", count);
    const double reading = ReadAndSplit(path);
    Print("read and split the file alone", reading, count);
    const CRun first = Import(path, 1, fields, ExistingMember::Skip);
    PrintRun("import into an empty list", first, count);
    std::printf("%-36s %8.1f times reading and splitting\n", "", first.seconds / reading);
    PrintRun("again, all skipped", Import(path, 1, fields, ExistingMember::Skip), count);
    PrintRun("again, all updated", Import(path, 1, fields, ExistingMember::Update), count);
    MeasureUse(1, fields, count, JoinPath(folder, "export.csv"));
    RemoveFolderTree(folder);
    return 0;
}
