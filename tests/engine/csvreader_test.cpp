#include "engine/csvreader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/faultplan.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

class CCsvReaderTest : public testing::Test {
protected:
    // "LINE:cell|cell" of each row, "LINE!" of a faulty one.
    std::vector<std::string> ReadRows(const std::string& path) {
        CCsvReader reader;
        std::vector<std::string> rows;
        if (!reader.Open(path)) return {"cannot be opened"};
        CCsvRow row;
        CCsvReader::Step step = reader.Next(row);
        for (; step == CCsvReader::Step::Row; step = reader.Next(row)) {
            std::string text = std::to_string(row.line) + (row.fault != nullptr ? "!" : ":");
            for (std::size_t i = 0; i < row.cells.size(); ++i) {
                text.append(i > 0 ? "|" : "").append(row.cells[i]);
            }
            rows.push_back(text);
        }
        if (step == CCsvReader::Step::Failed) rows.emplace_back("failed");
        return rows;
    }

    std::vector<std::string> RowsOf(const std::string& content) {
        EXPECT_TRUE(WriteFileAtomically(m_path, content));
        return ReadRows(m_path);
    }

    CTemporaryFolder m_folder;
    const std::string m_path = m_folder / "rows.csv";
};

TEST_F(CCsvReaderTest, SplitsRows) {
    struct Example {
        std::string content;
        std::vector<std::string> rows;
    };
    const std::vector<Example> examples = {
        {"", {}},
        {"\r\n\n  \n", {}},
        {"a,b\nc,d", {"1:a|b", "2:c|d"}},
        {"a,b\r\n\r\nc,\r\n", {"1:a|b", "3:c|"}},
        {"a\rb\r", {"1:a", "2:b"}},
        {"a;b,c;d\n1;2\n", {"1:a|b,c|d", "2:1|2"}},
        {"a\tb c\n\t\n\td", {"1:a|b c", "3:|d"}},
        {"\"a,b\";c\n", {"1:a,b|c"}},
        {"sep=;\na,b\n", {"2:a,b"}},
        {"\xEF\xBB\xBF\"a\",b\n", {"1:a|b"}},
        {" a , \" b \" ,c d\n", {"1:a| b |c d"}},
        {"a,\"x\"\"y\",\"\"\"\",\"\"\n", {"1:a|x\"y|\"|"}},
        {"a,\"one\r\ntwo\n\",b\nc,d,e", {"1:a|one\r\ntwo\n|b", "4:c|d|e"}},
        {"12\" pipe,a\"b\n", {"1:12\" pipe|a\"b"}},
        {"M\xF6we,\x80\nM\xC3\xB6we,x\n", {"1:M\xC3\xB6we|\xE2\x82\xAC", "2:M\xC3\xB6we|x"}},
        {std::string("a,b\nc\0,d\ne,f", 12), {"1:a|b", "2!", "3:e|f"}},
        // A closing quote that is missing costs its line only.
        {"a,\"b\nc,d\ne,\"f\"\ng,h\n", {"1!", "2:c|d", "3:e|f", "4:g|h"}},
        {"a,\"b\nc,d\n", {"1!", "2:c|d"}},
        {"a,\"b \"x\" c\"\nd,e\n", {"1!", "2:d|e"}},
        {"a,\"b\"c\nd", {"1!", "2:d"}},
        {"\"", {"1!"}},
        {"a,\"b\"", {"1:a|b"}},
        {"a,\"b\"\r\n", {"1:a|b"}},
    };
    for (const Example& example : examples)
        EXPECT_EQ(RowsOf(example.content), example.rows) << example.content;
}

TEST_F(CCsvReaderTest, PassesOverWhatIsTooLong) {
    const std::string fits(CCsvReader::RowLimit - 10, 'x');
    const std::string huge(10 * CCsvReader::RowLimit, 'y');
    const std::vector<std::string> rows =
        RowsOf("a\n" + fits + "\nb\n" + huge + "\nc\n\"" + fits + "\n" + fits + "\nd\n");
    ASSERT_EQ(rows.size(), 8u);
    EXPECT_EQ(rows[1], "2:" + fits);
    EXPECT_EQ(rows[3], "4!");
    EXPECT_EQ(rows[4], "5:c");
    EXPECT_EQ(rows[5], "6!");  // the quote is not closed within the limit
    EXPECT_EQ(rows[7], "8:d");
}

// The edge of a reading step may fall anywhere: between CR and LF, between two quotes.
TEST_F(CCsvReaderTest, ReadsTheSameAcrossSteps) {
    const std::string rest = "\"a\"\"b\",\"c\r\nd\"\r\n\"e\",f\r\n";
    for (std::size_t padding = (256 << 10) - rest.size() - 3; padding < (256 << 10); ++padding) {
        const std::vector<std::string> rows = RowsOf("\"" + std::string(padding, 'x') + "\",y\n" + rest);
        ASSERT_EQ(rows.size(), 3u) << padding;
        EXPECT_EQ(rows[1], "2:a\"b|c\r\nd");
        EXPECT_EQ(rows[2], "4:e|f");
    }
}

TEST_F(CCsvReaderTest, SaysWhatCannotBeRead) {
    EXPECT_EQ(RowsOf(std::string("\xFF\xFE"
                                 "a\0",
                                 4)),
              std::vector<std::string>{"cannot be opened"});
    EXPECT_NE(GetLastErrorText().find("UTF-16"), std::string::npos);
    EXPECT_EQ(ReadRows(m_path + "x"), std::vector<std::string>{"cannot be opened"});
    ASSERT_TRUE(WriteFileAtomically(m_path, std::string(1 << 20, '\n') + "a"));
    const Platform::CFaultPlan plan(Platform::Operation::Read, 3);
    EXPECT_EQ(ReadRows(m_path), std::vector<std::string>{"failed"});
}

}  // namespace
