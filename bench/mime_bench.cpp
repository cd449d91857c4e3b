// Parses messages and writes them back, by this library and by GMime, and
// measures what a broadcast does with each copy.

#include <benchmark/benchmark.h>
#include <gmime/gmime.h>

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "mime/createentity.h"
#include "mime/mimemessage.h"
#include "mime/transferencoding.h"
#include "utility/files.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::size_t BigAttachment = 10 * 1024 * 1024;

std::string CorpusFolder() {
    if (const char* folder = std::getenv("LISTHAVEN_CORPUS")) return JoinPath(folder, "mime");
    return LISTHAVEN_SOURCE_DIR "/../shared/corpus/mime";
}

void ReadMessages(const std::string& folder, std::vector<std::string>& messages) {
    ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        const std::string path = JoinPath(folder, name);
        const bool isMessage = name.ends_with(".eml") || name.ends_with(".msg") || name.ends_with(".raw");
        std::string text;
        if (isFolder)
            ReadMessages(path, messages);
        else if (isMessage && ReadWholeFile(path, text))
            messages.push_back(std::move(text));
        return true;
    });
}

std::string MessageWithBytes(std::size_t size, bool crLf) {
    std::string content(size, '\0');
    std::uint32_t state = 1;
    for (char& c : content)
        c = static_cast<char>((state = state * 1664525 + 1013904223) >> 24);
    std::string text =
        "From: a@example.org\nTo: b@example.org\nSubject: files\nMIME-Version: 1.0\n"
        "Content-Type: multipart/mixed; boundary=\"=_cut\"\n\n--=_cut\nContent-Type: text/plain\n\nSee the file.\n"
        "--=_cut\nContent-Type: application/octet-stream; name=\"a.bin\"\nContent-Transfer-Encoding: base64\n"
        "Content-Disposition: attachment; filename=\"a.bin\"\n\n";
    std::string encoded;
    EncodeBase64(content.data(), content.data() + content.size(), encoded);
    text += CrLfToLf(encoded) + "\n--=_cut--\n";
    return crLf ? LfToCrLf(text) : text;
}

const std::vector<std::string>& Messages(int which) {
    static const std::vector<std::vector<std::string>> Sets = [] {
        std::vector<std::vector<std::string>> sets(3);
        ReadMessages(CorpusFolder(), sets[0]);
        sets[1].push_back(MessageWithBytes(BigAttachment, false));
        sets[2].push_back(MessageWithBytes(BigAttachment, true));
        return sets;
    }();
    return Sets[static_cast<std::size_t>(which)];
}

template <class F>
void ForEachMessage(benchmark::State& state, const F& work) {
    const auto& messages = Messages(static_cast<int>(state.range(0)));
    if (messages.empty()) {
        state.SkipWithError("no messages");
        return;
    }
    std::size_t bytes = 0;
    for (const std::string& text : messages)
        bytes += text.size();
    for (auto _ : state) {
        for (const std::string& text : messages)
            work(text);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

// The argument: 0 the corpus, 1 a message with 10 MB attached, 2 the same with CR LF.
void BM_ParseAndWrite(benchmark::State& state) {
    ForEachMessage(state, [](const std::string& text) {
        benchmark::DoNotOptimize(CreateEntity(std::string_view(text))->GetText());
    });
}

void BM_GMimeParseAndWrite(benchmark::State& state) {
    static const bool IsInitialised = (g_mime_init(), true);
    benchmark::DoNotOptimize(IsInitialised);
    ForEachMessage(state, [](const std::string& text) {
        GMimeStream* in = g_mime_stream_mem_new_with_buffer(text.data(), text.size());
        GMimeParser* parser = g_mime_parser_new_with_stream(in);
        g_object_unref(in);
        GMimeMessage* message = g_mime_parser_construct_message(parser, nullptr);
        g_object_unref(parser);
        if (!message) return;
        GMimeStream* out = g_mime_stream_mem_new();
        benchmark::DoNotOptimize(g_mime_object_write_to_stream(GMIME_OBJECT(message), nullptr, out));
        g_object_unref(out);
        g_object_unref(message);
    });
}

void BM_LoadAndGetDiskText(benchmark::State& state) {
    ForEachMessage(state, [](const std::string& text) {
        CMimeMessage message;
        if (message.LoadText(text)) benchmark::DoNotOptimize(message.GetDiskText());
    });
}

// A copy of a message of 10 KB with a plain and an HTML text, as a broadcast makes it.
void BM_CopyOfBroadcast(benchmark::State& state) {
    std::string plain;
    while (plain.size() < 4000)
        plain += "News of the week, and where to read more of it.\n";
    std::string html = "<html><body>\n";
    while (html.size() < 6000)
        html += "<p>News of the <b>week</b>, and where to read more of it.</p>\n";
    CMimeMessage message;
    message.LoadText(
        "From: a@example.org\nTo: list@example.org\nSubject: News\nMIME-Version: 1.0\nContent-Type: "
        "multipart/alternative; boundary=\"=_cut\"\n\n--=_cut\nContent-Type: text/plain\n\n" +
        plain + "\n--=_cut\nContent-Type: text/html\n\n" + html + "</body></html>\n--=_cut--\n");
    for (auto _ : state) {
        CMimeMessage copy = message.Clone();
        copy.GetRoot()->SetField("To", "\"Some Body\" <somebody@example.org>");
        benchmark::DoNotOptimize(copy.GetDiskText());
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_Base64(benchmark::State& state) {
    const std::string content(1 << 20, 'x');
    std::string encoded;
    for (auto _ : state) {
        encoded.clear();
        EncodeBase64(content.data(), content.data() + content.size(), encoded);
        benchmark::DoNotOptimize(DecodeBase64Text(encoded));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(content.size()));
}

void BM_QuotedPrintable(benchmark::State& state) {
    std::string content;
    while (content.size() < 1 << 20)
        content += "A line of ordinary text with one byte above 127: caf\xE9, and more.\n";
    for (auto _ : state)
        benchmark::DoNotOptimize(DecodeQuotedPrintable(EncodeQuotedPrintable(content)));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(content.size()));
}

}  // namespace

BENCHMARK(BM_ParseAndWrite)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GMimeParseAndWrite)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadAndGetDiskText)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CopyOfBroadcast);
BENCHMARK(BM_Base64);
BENCHMARK(BM_QuotedPrintable);

BENCHMARK_MAIN();
