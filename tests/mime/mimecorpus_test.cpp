#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mime/mimemessage.h"
#include "mime/transferencoding.h"
#include "tests/mime/messagecorpus.h"
#include "utility/text.h"

namespace {

// Every line of the texts, wherever it is now.
void ExpectLines(const std::vector<std::string>& texts, const std::vector<std::string>& in) {
    const std::string all = "\n" + Join(in, "\n") + "\n";
    for (const std::string& text : texts) {
        for (const std::string_view line : Split(text, '\n')) {
            const std::string whole = "\n" + std::string(TrimRight(line));
            EXPECT_NE(all.find(whole), std::string::npos) << whole;
        }
    }
}

// What stands in no header and no delimiter is still there after load and
// save.  Only encoded lines: no text operation touches them.
void ExpectEncodedLines(const std::string& text, const CMimeMessage& message) {
    // Joined texts were decoded, and may be quoted-printable now.
    const std::string saved = message.GetText() + DecodeQuotedPrintable(message.GetText());
    std::size_t looked = 0;
    for (std::string_view line : Split(text, '\n')) {
        line = TrimRight(line);
        if (line.size() < 60 || line.find_first_of(" :;=<>-") != std::string_view::npos) continue;
        std::string decoded = DecodeBase64Text(line);
        std::erase(decoded, '\r');
        EXPECT_TRUE(saved.find(line) != std::string::npos || saved.find(decoded) != std::string::npos) << line;
        if (++looked == 200) break;
    }
}

TEST(MimeCorpus, LoadAndSaveKeepEverything) {
    std::vector<std::string> paths;
    CollectMessages(CorpusFolder(), paths);
    if (paths.empty()) GTEST_SKIP() << "no messages in " << CorpusFolder() << "; set LISTHAVEN_CORPUS";
    std::size_t changed = 0;
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        CMimeMessage first;
        CMimeMessage second;
        std::string text;
        if (!first.Load(path) || !ReadWholeFile(path, text)) continue;  // an empty file
        ExpectEncodedLines(text, first);
        ASSERT_TRUE(second.LoadText(first.GetDiskText()));
        // Joined lines of headers grow, and an "alternative" of one text is taken apart.
        if (second.GetDiskText() != first.GetDiskText()) ++changed;
        const CContents before = ContentsOf(first);
        const CContents after = ContentsOf(second);
        EXPECT_EQ(after.attachments, before.attachments);
        ExpectLines(before.texts, after.texts);
    }
    EXPECT_LT(changed * 8, paths.size());
}

}  // namespace
