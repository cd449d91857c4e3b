// What a large list costs: importing a file into an empty list beside reading
// and splitting the same file alone; the same file again (all skipped, all
// updated); opening the list; finding a member; exporting.
//
// The folder for temporary files decides which disk is measured (TMPDIR).

#include <benchmark/benchmark.h>

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

constexpr int Members = 1000000;
constexpr std::uint32_t ListNumber = 1;

std::string benchFolder;
CCustomFields benchFields;

std::string CsvPath() {
    return JoinPath(benchFolder, "members.csv");
}

void BM_ReadAndSplit(benchmark::State& state) {
    for (auto round : state) {
        static_cast<void>(round);
        state.SetIterationTime(ReadAndSplit(CsvPath()));
    }
    state.SetItemsProcessed(Members);
}

void RunImport(benchmark::State& state, ExistingMember onExisting) {
    CRun run;
    for (auto round : state) {
        static_cast<void>(round);
        run = Import(CsvPath(), ListNumber, benchFields, onExisting);
        state.SetIterationTime(run.seconds);
    }
    state.SetItemsProcessed(Members);
    state.counters["resident_MB"] = static_cast<double>(run.mostMemory) / 1e6;
    state.counters["added"] = static_cast<double>(run.summary.added);
    state.counters["updated"] = static_cast<double>(run.summary.updated);
    state.counters["skipped"] = static_cast<double>(run.summary.skipped);
}
void BM_ImportIntoEmptyList(benchmark::State& state) {
    RunImport(state, ExistingMember::Skip);
}
void BM_ImportAgainSkip(benchmark::State& state) {
    RunImport(state, ExistingMember::Skip);
}
void BM_ImportAgainUpdate(benchmark::State& state) {
    RunImport(state, ExistingMember::Update);
}

void BM_OpenAndFindFirst(benchmark::State& state) {
    for (auto round : state) {
        static_cast<void>(round);
        CMemberStore members;
        members.Open(ListNumber);
        if (members.Find(AddressOf(0)) == CMemberStore::None) Die("a member is missing");
    }
}

void BM_Find(benchmark::State& state) {
    CMemberStore members;
    members.Open(ListNumber);
    std::uint32_t number = 1;
    for (auto round : state) {
        static_cast<void>(round);
        number = number * 1664525U + 1013904223U;
        if (members.Find(AddressOf(number % std::uint32_t{Members})) == CMemberStore::None) Die("a member is missing");
    }
}

void BM_Export(benchmark::State& state) {
    CMemberStore members;
    members.Open(ListNumber);
    std::uint64_t exported = 0;
    for (auto round : state) {
        static_cast<void>(round);
        if (!DataExport::ExportMembers(members, benchFields, JoinPath(benchFolder, "export.csv"), exported))
            Die("export");
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(exported));
}

// In this order: each needs what the ones before it have left.
BENCHMARK(BM_ReadAndSplit)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImportIntoEmptyList)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImportAgainSkip)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImportAgainUpdate)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenAndFindFirst)->Iterations(20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Find)->Iterations(200000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Export)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    benchFolder = JoinPath(Platform::TemporaryFolder(), "import-bench-" + std::to_string(Platform::RandomNumber()));
    if (!Platform::MakeFolder(benchFolder)) Die(benchFolder);
    UseDataFolder(benchFolder);
    benchFields.Load(ListNumber);
    benchFields.Set(0, {"Town", "", CustomFieldKind::Text});
    benchFields.Set(1, {"Boat", "", CustomFieldKind::Text});
    WriteMembers(CsvPath(), Members);
    benchmark::RunSpecifiedBenchmarks();
    RemoveFolderTree(benchFolder);
    return 0;
}
