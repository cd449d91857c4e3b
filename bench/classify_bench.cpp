// Classifies bounces, from the text of the file to the report.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "engine/bounces/bounceclassifier.h"
#include "mime/mimemessage.h"
#include "utility/files.h"
#include "utility/paths.h"

namespace {

std::string CorpusFolder(const char* part) {
    const char* folder = std::getenv("LISTHAVEN_CORPUS");
    return JoinPath(folder ? folder : LISTHAVEN_SOURCE_DIR "/../shared/corpus", part);
}

void ReadMessages(const std::string& folder, std::vector<std::string>& texts) {
    ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        std::string text;
        if (isFolder)
            ReadMessages(JoinPath(folder, name), texts);
        else if (!name.ends_with(".tsv") && ReadWholeFile(JoinPath(folder, name), text))
            texts.push_back(std::move(text));
        return true;
    });
}

void BM_Classify(benchmark::State& state, const char* part) {
    std::vector<std::string> texts;
    ReadMessages(CorpusFolder(part), texts);
    if (texts.empty()) {
        state.SkipWithError("no messages");
        return;
    }
    std::size_t bytes = 0;
    for (const std::string& text : texts)
        bytes += text.size();
    for (auto _ : state) {
        for (const std::string& text : texts) {
            CMimeMessage message;
            if (message.LoadText(text)) benchmark::DoNotOptimize(ClassifyMessage(message));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(texts.size()));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

}  // namespace

BENCHMARK_CAPTURE(BM_Classify, bounces, "bounces")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Classify, automatic_replies, "autoreplies")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Classify, other_mail, "mime")->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
