// Real and broken messages of other projects: the folder "mime" of the folder
// named by LISTHAVEN_CORPUS.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "mime/mimemessage.h"
#include "mime/mimemultipart.h"
#include "mime/mimewalk.h"
#include "mime/transferencoding.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
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

bool HasJoinedLine(const CMimeHeader& header) {
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        const std::string& value = header.GetStoredField(i).value;
        for (std::size_t at = value.find('\n'); at != std::string::npos; at = value.find('\n', at + 1)) {
            if (at + 1 < value.size() && value[at + 1] != ' ' && value[at + 1] != '\t') return true;
        }
    }
    return false;
}

bool HasJoinedLine(const CMimeMessage& message) {
    return !VisitEntities(*message.GetRoot(),
                          [](const CMimeEntity& entity, int) { return !HasJoinedLine(entity.GetHeader()); });
}

// Texts that are joined only when they are read again settle soon; so does what
// was nested too deep.  A line joined to the field above it grows each time.
bool SettlesWhenReadAgain(std::string text) {
    for (int i = 0; i < 5; ++i) {
        CMimeMessage message;
        EXPECT_TRUE(message.LoadText(text));
        if (HasJoinedLine(message) || message.GetDiskText() == text) return true;
        text = message.GetDiskText();
    }
    return false;
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

TEST(MimeCorpus, LoadAndSaveKeepEverything) {
    std::vector<std::string> paths;
    CollectMessages(CorpusFolder(), paths);
    if (paths.empty()) GTEST_SKIP() << "no messages in " << CorpusFolder() << "; set LISTHAVEN_CORPUS";
    std::size_t changed = 0;
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        CMimeMessage first;
        CMimeMessage second;
        try {
            if (!first.Load(path)) continue;  // an empty file
            ASSERT_TRUE(second.LoadText(first.GetDiskText()));
            if (second.GetDiskText() != first.GetDiskText()) {
                ++changed;
                EXPECT_TRUE(SettlesWhenReadAgain(second.GetDiskText()));
            }
            const CContents before = ContentsOf(first);
            const CContents after = ContentsOf(second);
            EXPECT_EQ(after.attachments, before.attachments);
            ExpectLines(before.texts, after.texts);
        } catch (const CLhvException& exception) {
            ADD_FAILURE() << exception.what();
        }
    }
    EXPECT_LT(changed * 8, paths.size());
}

// What stands in no header and no delimiter is still there after load and save.
TEST(MimeCorpus, NoLineOfABodyIsLost) {
    std::vector<std::string> paths;
    CollectMessages(CorpusFolder(), paths);
    if (paths.empty()) GTEST_SKIP() << "no messages in " << CorpusFolder() << "; set LISTHAVEN_CORPUS";
    for (const std::string& path : paths) {
        SCOPED_TRACE(path);
        CMimeMessage message;
        std::string text;
        if (!message.Load(path) || !ReadWholeFile(path, text)) continue;
        // Joined texts were decoded, and may be quoted-printable now.
        const std::string saved = message.GetText() + DecodeQuotedPrintable(message.GetText());
        // Encoded lines that no text operation touches.
        std::size_t missing = 0;
        std::size_t looked = 0;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = std::min(text.find('\n', at), text.size());
            std::string line = text.substr(at, end - at);
            at = end + 1;
            if (!line.empty() && line.back() == '\r') line.pop_back();
            if (line.size() < 60 || line.find_first_of(" :;=<>-") != std::string::npos) continue;
            ++looked;
            std::string decoded = DecodeBase64Text(line);
            std::erase(decoded, '\r');
            if (saved.find(line) == std::string::npos && saved.find(decoded) == std::string::npos) ++missing;
            if (looked == 200) break;
        }
        EXPECT_EQ(missing, 0u) << looked;
    }
}

}  // namespace
