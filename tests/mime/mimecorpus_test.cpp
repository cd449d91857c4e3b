// Real and broken messages of other projects: the folder "mime" of the folder
// named by LISTHAVEN_CORPUS.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "mime/mimemessage.h"
#include "mime/mimewalk.h"
#include "mime/transferencoding.h"
#include "utility/files.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

std::string CorpusFolder() {
    const char* folder = std::getenv("LISTHAVEN_CORPUS");
    return JoinPath(folder ? folder : LISTHAVEN_SOURCE_DIR "/../shared/corpus", "mime");
}

void CollectMessages(const std::string& folder, std::vector<std::string>& paths) {
    ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        const std::string path = JoinPath(folder, name);
        if (isFolder)
            CollectMessages(path, paths);
        else if (name.ends_with(".eml") || name.ends_with(".msg") || name.ends_with(".raw") || name.ends_with(".txt"))
            paths.push_back(path);
        return true;
    });
}

struct CContents {
    std::vector<std::string> attachments;  // decoded
    std::vector<std::string> texts;        // decoded
};

CContents ContentsOf(const CMimeMessage& message) {
    CContents contents;
    VisitEntities(*message.GetRoot(), [&contents](const CMimeEntity& entity, int) {
        if (const auto* attachment = dynamic_cast<const CMimeAttachment*>(&entity))
            contents.attachments.push_back(attachment->GetContent());
        else if (entity.GetKind() == MimeClass::Text)
            contents.texts.emplace_back(TrimRight(entity.GetBody()));
        return true;
    });
    return contents;
}

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
