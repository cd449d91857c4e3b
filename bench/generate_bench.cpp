// What generating a broadcast costs, beside a loop that writes the same bytes to
// as many files; and whether its memory grows with the list.
//
// The folder for temporary files decides which disk is measured (TMPDIR).

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "app/datafolder.h"
#include "app/settings.h"
#include "engine/broadcastjob.h"
#include "engine/catalogue.h"
#include "engine/customfields.h"
#include "engine/listaccount.h"
#include "engine/memberstore.h"
#include "platform/file.h"
#include "platform/knownfolders.h"
#include "platform/process.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/uniquename.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int CustomFieldCount = 16;  // with four standard ones: 20 fields
constexpr std::size_t BodySize = 10 * 1024;
constexpr std::size_t GroupSize = 1000;
constexpr std::size_t FolderSize = 5000;
constexpr int Rounds = 5;

[[noreturn]] void Die(const std::string& what) {
    std::fprintf(stderr, "generate_bench: %s: %s\n", what.c_str(), DescribeLastError().c_str());
    std::exit(1);
}

// Of the clock on the wall, and of this process's share of the processor, which
// other programs disturb less.
struct Cost {
    double wall = 0;
    double processor = 0;
};

class CStopwatch {
public:
    Cost Read() const {
        return {std::chrono::duration<double>(Clock::now() - m_start).count(),
                static_cast<double>(std::clock() - m_processor) / CLOCKS_PER_SEC};
    }

private:
    Clock::time_point m_start = Clock::now();
    std::clock_t m_processor = std::clock();
};

std::string FieldName(int i) {
    static const char* const standard[] = {"To-First-Name", "To-Name", "To-Email", "List-Name"};
    return i < 4 ? standard[i] : "Field " + std::to_string(i - 4);
}

// Half plain text, half HTML, each with the 20 fields spread over it.
std::string MakeMessage() {
    const std::string sentence = "The harbour and all others along the coast are open from the first of April. ";
    std::string text;
    std::string html = "<html><body>\n";
    for (int i = 0; text.size() < BodySize / 2; ++i) {
        text += sentence.substr(0, 60) + "\n";
        if (i % 4 == 0 && i / 4 < 20) text += "Your " + std::to_string(i) + ": $(" + FieldName(i / 4) + ").\n";
    }
    for (int i = 0; html.size() < BodySize / 2; ++i) {
        html += "<p>" + sentence + "</p>\n";
        if (i % 2 == 0 && i / 2 < 20) html += "<p>Your <b>$(" + FieldName(i / 2) + ")</b>.</p>\n";
    }
    std::string message =
        "From: \"Harbour News\" <news@harbour.example>\nTo: <news@harbour.example>\n"
        "Subject: The season opens, $(To-First-Name)!\nMIME-Version: 1.0\n"
        "Content-Type: multipart/alternative; boundary=\"B\"\n\n--B\nContent-Type: text/plain; charset=utf-8\n\n";
    return message + text + "\n--B\nContent-Type: text/html; charset=utf-8\n\n" + html + "</body></html>\n\n--B--\n";
}

std::uint32_t MakeList(const std::string& name, std::size_t count) {
    NewList list;
    list.name = name;
    list.listAddresses = "List: news@harbour.example";
    const std::uint32_t number = GetCatalogue().GetListNumber(GetCatalogue().Create(list));
    CCustomFields fields;
    fields.Load(number);
    for (int i = 0; i < CustomFieldCount; ++i) {
        fields.Set(i, {FieldName(i + 4), "", CustomFieldKind::Text});
    }
    CMemberStore store;
    store.Open(number);
    std::vector<CMember> group;
    for (std::size_t i = 0; i < count; ++i) {
        CMember member;
        member.address = "member." + std::to_string(i) + "@example.net";
        member.firstName = "Anna";
        member.lastName = "Berg" + std::to_string(i % 100);
        for (int slot = 0; slot < CustomFieldCount; ++slot) {
            member.SetField(slot, "value " + std::to_string(slot) + " of " + std::to_string(i));
        }
        group.push_back(member);
        if (group.size() == GroupSize || i + 1 == count) {
            store.AddMany(group, ExistingMember::Skip);
            group.clear();
        }
    }
    return number;
}

// What it took; the highest resident memory seen, if wanted.
Cost Generate(const std::string& message, std::uint32_t list, std::size_t count, std::uint64_t* memory = nullptr) {
    const CStopwatch watch;
    CBroadcastJobs jobs;
    std::string id;
    if (!jobs.Create(message, {list}, {}, id)) Die("create");
    std::uint64_t highest = 0;
    const BroadcastProgress progress = [&](std::uint64_t position, std::uint64_t) {
        if (memory != nullptr && position % 500 == 0) highest = std::max(highest, Platform::ResidentMemory());
    };
    BroadcastInfo info;
    if (!jobs.Run(id, {}, progress, info)) Die("run");
    const Cost cost = watch.Read();
    if (info.counts.copies != count) Die("copies are missing");
    if (memory != nullptr) *memory = highest;
    return cost;
}

// What lies in the queue, which is empty afterwards.
std::vector<std::string> TakeCopies(std::uint32_t list) {
    std::vector<std::string> copies;
    const std::string queue = GetAccountRoot(list);
    ListFolder(queue, "*", [&](const std::string& batch, bool isFolder) {
        if (!isFolder) return true;
        return ListFolder(JoinPath(queue, batch), "*.eml", [&](const std::string& name, bool) {
            return ReadWholeFile(JoinPath(JoinPath(queue, batch), name), copies.emplace_back());
        });
    });
    if (!RemoveFolderTree(queue)) Die("remove the queue");
    return copies;
}

// The same bytes into as many files, in folders as large as a batch.
Cost WriteInLoop(const std::string& root, const std::vector<std::string>& copies, bool isFlushed) {
    std::string folder;
    const CStopwatch watch;
    for (std::size_t i = 0; i < copies.size(); ++i) {
        if (i % FolderSize == 0) {
            folder = JoinPath(root, std::to_string(i));
            if (!EnsureFolder(folder)) Die("loop folder");
        }
        const std::string path = JoinPath(folder, std::to_string(i));
        Platform::CFile file;
        if (!file.Open(path + ".tmp", Platform::FileMode::CreateNew) || !file.Write(copies[i])) Die("loop file");
        if ((isFlushed && !file.Flush()) || !file.Close()) Die("loop file");
        if (!Platform::RenameNew(path + ".tmp", path + ".eml")) Die("loop file");
        if (isFlushed && !Platform::FlushFolder(folder)) Die("loop folder");
    }
    const Cost cost = watch.Read();
    RemoveFolderTree(root);
    return cost;
}

// Microseconds per file, the middle one of all rounds.
double Median(const std::vector<Cost>& costs, double Cost::*kind, std::size_t count) {
    std::vector<double> values;
    for (const Cost& cost : costs)
        values.push_back(cost.*kind / static_cast<double>(count) * 1e6);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

std::string messagePath;

// Rounds of both, in turn; range(0): whether every file is flushed, range(1): copies.
void BM_GenerateBesideALoop(benchmark::State& state) {
    const bool isFlushed = state.range(0) != 0;
    const auto count = static_cast<std::size_t>(state.range(1));
    Platform::SetFlushEnabled(false);
    const std::uint32_t list = MakeList(isFlushed ? "Flushed" : "Unflushed", count);
    Platform::SetFlushEnabled(isFlushed);
    std::vector<Cost> generated;
    std::vector<Cost> written;
    std::size_t size = 0;
    for (auto round : state) {
        static_cast<void>(round);
        generated.push_back(Generate(messagePath, list, count));
        const std::vector<std::string> copies = TakeCopies(list);
        size = copies.at(0).size();
        written.push_back(WriteInLoop(JoinPath(GetDataFolder(), "loop"), copies, isFlushed));
        state.SetIterationTime(generated.back().wall);
    }
    state.counters["bytes"] = static_cast<double>(size);
    state.counters["copy_us"] = Median(generated, &Cost::wall, count);
    state.counters["loop_us"] = Median(written, &Cost::wall, count);
    state.counters["of_loop"] = Median(written, &Cost::wall, count) / Median(generated, &Cost::wall, count);
    Platform::SetFlushEnabled(false);
}
BENCHMARK(BM_GenerateBesideALoop)
    ->ArgNames({"flushed", "copies"})
    ->Args({0, 5000})
    ->Args({1, 1000})
    ->Iterations(Rounds)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void BM_MemoryWhileGenerating(benchmark::State& state) {
    const auto members = static_cast<std::size_t>(state.range(0));
    const std::uint32_t list = MakeList("List of " + std::to_string(members), members);
    std::uint64_t memory = 0;
    for (auto round : state) {
        static_cast<void>(round);
        state.SetIterationTime(Generate(messagePath, list, members, &memory).wall);
    }
    state.counters["resident_MiB"] = static_cast<double>(memory) / 1048576;
    if (!RemoveFolderTree(GetAccountRoot(list))) Die("remove the queue");
}
BENCHMARK(BM_MemoryWhileGenerating)
    ->ArgName("members")
    ->Arg(1000)
    ->Arg(100000)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    std::string root;
    if (!MakeUniqueFolder(Platform::TemporaryFolder(), root)) Die("folder");
    UseDataFolder(root);
    WriteSetting("Execution", "GenerationPause", 0);
    messagePath = JoinPath(root, "message.eml");
    if (!WriteFileAtomically(messagePath, MakeMessage())) Die("message");
    Platform::SetFlushEnabled(false);
    benchmark::RunSpecifiedBenchmarks();
    RemoveFolderTree(root);
    return 0;
}
