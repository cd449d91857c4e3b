// Real bounces of many systems, and messages that must not be taken for one:
// the folders "bounces", "autoreplies" and "mime" of the corpus.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "engine/bounces/bounceclassifier.h"
#include "tests/mime/messagecorpus.h"

namespace {

std::string CorpusRoot() {
    return ParentFolder(CorpusFolder());
}

bool HasAny(const std::string& list, std::string_view value) {
    const auto pieces = Split(list, ',');
    return std::any_of(pieces.begin(), pieces.end(),
                       [value](std::string_view one) { return !one.empty() && EqualNoCase(one, value); });
}

struct CExpectedRow {
    std::string file, bounceClass, accept, addresses, alternatives, kind;
};

std::vector<CExpectedRow> ReadRows() {
    std::string text;
    std::vector<CExpectedRow> rows;
    if (!ReadWholeFile(JoinPath(CorpusRoot(), "bounces/expected.tsv"), text)) return rows;
    bool isHeading = true;
    for (const std::string_view line : Split(text, '\n')) {
        const auto cells = Split(line, '\t');
        if (!isHeading && cells.size() > 6)
            rows.push_back({std::string(cells[0]), std::string(cells[1]), std::string(cells[2]), std::string(cells[4]),
                            std::string(cells[5]), std::string(cells[6])});
        isHeading = false;
    }
    return rows;
}

bool Names(const CExpectedRow& row, const CBouncedRecipient& recipient) {
    return HasAny(row.addresses, recipient.address) || HasAny(row.alternatives, recipient.address) ||
           HasAny(row.addresses, recipient.original);
}

struct CTally {
    std::size_t rows = 0, rightClass = 0, named = 0, rightAddress = 0;
    std::vector<std::string> falseBounces;
};

// Those of the recipients that are of the row's; all when it is the file's only row.
CBounceReport PartOf(const CBounceReport& report, const CExpectedRow& row, bool isOnly) {
    CBounceReport part = report;
    if (!isOnly) std::erase_if(part.recipients, [&](const CBouncedRecipient& one) { return !Names(row, one); });
    return part;
}

void CountRow(const CExpectedRow& row, bool isOnly, const CBounceReport& whole, CTally& tally) {
    const CBounceReport report = PartOf(whole, row, isOnly);
    const bool isBounce = report.kind == NoticeKind::Bounce && !report.recipients.empty();
    ++tally.rows;
    const std::string got(isBounce ? BounceClassName(report.GetClass()) : "notbounce");
    const bool isRight = HasAny(row.accept, got);
    if (isRight) ++tally.rightClass;
    if (isBounce && !isRight && HasAny(row.accept, "notbounce")) tally.falseBounces.push_back(row.file);
    if (!isBounce || row.bounceClass == "notbounce") return;
    ++tally.named;
    const auto& recipients = report.recipients;
    const bool areNamed = std::all_of(recipients.begin(), recipients.end(), [&](const CBouncedRecipient& one) {
        return Names(row, one) || (row.addresses.empty() && one.address.empty());
    });
    if (areNamed && recipients.size() >= Split(row.addresses, ',').size()) ++tally.rightAddress;
}

TEST(BounceCorpus, ClassAndAddressAreRightAndNothingElseIsABounce) {
    const auto rows = ReadRows();
    if (rows.empty()) GTEST_SKIP() << "no corpus in " << CorpusRoot();
    std::map<std::string, int> rowsOf;
    for (const CExpectedRow& row : rows)
        ++rowsOf[row.file];
    CTally tally;
    for (const CExpectedRow& row : rows) {
        CMimeMessage message;
        ASSERT_TRUE(message.Load(JoinPath(CorpusRoot(), row.file))) << row.file;
        CountRow(row, rowsOf[row.file] == 1, ClassifyMessage(message), tally);
    }
    EXPECT_GE(static_cast<double>(tally.rightClass), 0.97 * static_cast<double>(tally.rows));
    EXPECT_GE(static_cast<double>(tally.rightAddress), 0.97 * static_cast<double>(tally.named));
    EXPECT_EQ(tally.falseBounces, std::vector<std::string>{});
}

// Whatever words are in it; what is a bounce there is a report.
TEST(BounceCorpus, OtherMailIsNoBounce) {
    std::vector<std::string> paths;
    CollectMessages(CorpusFolder(), paths);
    if (paths.empty()) GTEST_SKIP() << "no corpus in " << CorpusFolder();
    for (const std::string& path : paths) {
        CMimeMessage message;
        if (!message.Load(path) || !message.GetRoot()) continue;
        if (ClassifyMessage(message).kind != NoticeKind::Bounce) continue;
        EXPECT_EQ(message.GetRoot()->GetSubType(), "report") << path;
    }
}

// Cut, doubled, overwritten: nothing crashes, runs away, or gets a line end into a field.
TEST(BounceCorpus, MutilatedMessagesDoNoHarm) {
    std::vector<std::string> paths;
    CollectMessages(JoinPath(CorpusRoot(), "bounces"), paths);
    if (paths.empty()) GTEST_SKIP() << "no corpus in " << CorpusRoot();
    std::sort(paths.begin(), paths.end());
    std::mt19937 random(5321);
    const auto upTo = [&random](std::size_t limit) { return random() % std::max<std::size_t>(limit, 1); };
    for (int round = 0; round < 600; ++round) {
        std::string text;
        ASSERT_TRUE(ReadWholeFile(paths[upTo(paths.size())], text));
        for (std::size_t change = upTo(6) + 1; change > 0 && !text.empty(); --change) {
            const std::size_t at = upTo(text.size());
            const std::size_t kind = upTo(5);
            if (kind == 0) text.resize(at);
            if (kind == 1) text.insert(at, text.substr(upTo(text.size()), upTo(2000)));
            if (kind == 2) text[at] = static_cast<char>(upTo(256));
            if (kind == 3) text.erase(at, upTo(200));
            if (kind == 4) text.insert(at, upTo(3000), "@<:\n\r\0.5"[upTo(8)]);
        }
        CMimeMessage message;
        if (!message.LoadText(text)) continue;
        for (const CBouncedRecipient& one : ClassifyMessage(message).recipients) {
            const std::string all = one.address + one.original + one.status + one.evidence;
            EXPECT_EQ(all.find_first_of(std::string_view("\r\n\0", 3)), std::string::npos) << round;
            EXPECT_LE(one.evidence.size(), 500u) << round;
        }
    }
}

}  // namespace
