#include <set>

#include "mime/headerwords.h"
#include "mime/mailbox.h"
#include "mime/mimemessage.h"
#include "mime/mimewalk.h"
#include "senddaemon/cleanedcopy.h"
#include "senddaemon/wireheader.h"
#include "tests/mime/messagecorpus.h"
#include "tests/senddaemon/sendfixture.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

std::string_view HeaderOf(std::string_view text) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t next = std::min(text.find_first_not_of('\r', start), text.size());
        if (next < text.size() && text[next] == '\n') return text.substr(0, start);
        start = std::min(text.find('\n', next), text.size() - 1) + 1;
    }
    return text;
}

// What a reader is shown: words decoded, without the blanks, quotes and line
// ends that may come or go.
std::string Shown(std::string_view value) {
    std::string result;
    while (!value.empty()) {
        CHeaderWord word;
        if (ReadHeaderWord(value, word)) {
            result += DecodeHeaderWord(word);
            value.remove_prefix(word.size);
        } else {
            result += value.front();
            value.remove_prefix(1);
        }
    }
    std::erase_if(result, [](char c) { return c == ' ' || c == '\t' || c == '"' || c == '\\'; });
    return result;
}

struct CHeaderFacts {
    std::map<std::string, std::string, CLessNoCase> texts;
    std::map<std::string, std::multiset<std::string>, CLessNoCase> addresses;
};

CHeaderFacts FactsOf(std::string_view header) {
    CHeaderFacts facts;
    for (const CWireField& field : SplitWireFields(header)) {
        const auto kept = GetKeptHeaders();
        const bool isKept = std::any_of(kept.begin(), kept.end(),
                                        [&field](std::string_view name) { return EqualNoCase(name, field.name); });
        const std::string name = LowerAscii(field.name);
        if (!isKept || EqualNoCase(name, "BCC")) continue;
        const std::string value = UnfoldWireValue(field.raw);
        if (!EqualNoCase(name, "X-Gateway-From") && IsWireAddressField(name)) {
            const bool isList = EqualNoCase(name, "To") || EqualNoCase(name, "CC") || EqualNoCase(name, "Reply-To");
            if (facts.addresses.contains(name) && !isList) continue;
            auto& addresses = facts.addresses[name];
            for (const CMailbox& mailbox : ParseMailboxes(value))
                addresses.insert(AsciiOnly(mailbox.address));
        } else if (!StartsWithNoCase(name, "Content-T") && !EqualNoCase(name, "MIME-Version") &&
                   !EqualNoCase(name, "Date")) {
            facts.texts.try_emplace(name, Shown(value));
        }
    }
    return facts;
}

void ExpectFitForWire(std::string_view copy, bool has8BitMime) {
    const std::string_view header = HeaderOf(copy);
    EXPECT_FALSE(HasHighBytes(header));
    EXPECT_TRUE(has8BitMime || !HasHighBytes(copy));
    EXPECT_EQ(copy.find('\0'), std::string_view::npos);
    EXPECT_TRUE(copy.ends_with("\r\n"));
    for (std::string_view rest = copy; !rest.empty();) {
        const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
        EXPECT_LE(end, LongestWireLine);
        ASSERT_EQ(rest.substr(end, 2), "\r\n");
        rest.remove_prefix(end + 2);
    }
}

class CleanedCorpus : public CSendFixture {
protected:
    void Check(const std::string& path, bool has8BitMime) {
        SCOPED_TRACE(path + (has8BitMime ? "" : ", 7bit"));
        const std::string target = InFolder("copy.clean");
        std::string source;
        std::string copy;
        CCleanResult result;
        ASSERT_TRUE(
            WriteCleanedCopy(path, target, {.keepHeaders = "Content-Disposition", .has8BitMime = has8BitMime}, result))
            << GetLastErrorText();
        ASSERT_TRUE(ReadWholeFile(path, source) && ReadWholeFile(target, copy));
        EXPECT_EQ(result.size, copy.size());
        EXPECT_EQ(result.is8Bit, HasHighBytes(copy));
        ExpectFitForWire(copy, has8BitMime);
        if (path.ends_with("very-very-long-boundary.msg")) return;  // no line could hold its delimiters
        const CHeaderFacts before = FactsOf(HeaderOf(source));
        const CHeaderFacts after = FactsOf(HeaderOf(copy));
        EXPECT_EQ(after.addresses, before.addresses);
        EXPECT_EQ(after.texts, before.texts);
        CMimeMessage sourceMessage;
        CMimeMessage copyMessage;
        if (!sourceMessage.Load(path)) return;  // an empty file
        ASSERT_TRUE(copyMessage.Load(target));
        const CContents sourceContents = ContentsOf(sourceMessage);
        const CContents copyContents = ContentsOf(copyMessage);
        EXPECT_EQ(copyContents.attachments, sourceContents.attachments);
        EXPECT_EQ(copyContents.texts, sourceContents.texts);
    }
};

TEST_F(CleanedCorpus, SaysTheSame) {
    std::vector<std::string> paths;
    CollectMessages(CorpusFolder(), paths);
    if (paths.empty()) GTEST_SKIP() << "no messages in " << CorpusFolder() << "; set LISTHAVEN_CORPUS";
    for (const std::string& path : paths) {
        Check(path, true);
        Check(path, false);
    }
}

}  // namespace

}  // namespace SendDaemon
