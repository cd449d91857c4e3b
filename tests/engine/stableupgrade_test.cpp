#include <array>
#include <atomic>
#include <filesystem>

#include "app/pumpmessages.h"
#include "app/settings.h"
#include "engine/stable.h"
#include "engine/textstore.h"
#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

// The second column is younger than the third, as in the catalogue.
constexpr std::array Columns = {
    CColumnDescription{ColumnType::Text, 7, 512, "text"},     CColumnDescription{ColumnType::Text, 1, 1792, "flag"},
    CColumnDescription{ColumnType::Text, 3, 1536, "short"},   CColumnDescription{ColumnType::Counter, 4, 512, "number"},
    CColumnDescription{ColumnType::StoredText, 1, 4096, "a"}, CColumnDescription{ColumnType::StoredText, 1, 8192, "b"},
};

std::string Number(std::uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<char>(value >> (8 * i)));
    return bytes;
}

std::string Text(const std::string& text, std::size_t size, char rest = '\0') {
    std::string bytes = text + '\0';
    bytes.resize(size + 1, rest);
    return bytes;
}

class CUpgradeTest : public CDataFolderTest {
protected:
    CUpgradeTest() { Reset(); }
    ~CUpgradeTest() override {
        SetMessagePump({});
        SetProgressWindowFactory({});
    }

    void Reset() {
        WriteSetting("Execution", "UpgradePause", 0);
        Platform::SetFlushEnabled(false);
    }

    // Bytes as a program of that time wrote them: text, number.
    static std::string Old512() {
        return "N" + Text("first", 7, '!') + Number(17) + "Y" + Text("gone", 7) + Number(40) + "N" +
               Text("1234567", 7) + Number(3);
    }
    // The same with the short text in between; no flag, no stored texts.
    static std::string Old1536() {
        return "N" + Text("first", 7) + Text("one", 3) + Number(17) + "Y" + Text("gone", 7) + Text("", 3) + Number(40) +
               "N" + Text("1234567", 7) + Text("2", 3) + Number(3);
    }

    void PutTable(const std::string& records, std::uint32_t version) const {
        for (const char* ending : {"", ".ver", ".new", ".new.ver", ".dat1", ".dat2"})
            std::filesystem::remove(PathOf("T") + ending);
        Put(PathOf("T"), records);
        if (version != 0) Put(PathOf("T.ver"), Number(version));
    }

    bool Open(CSTable& table, bool readOnly = false) const { return table.Open(PathOf("T"), Columns, readOnly, true); }

    static void ExpectRecords(CSTable& table, const std::array<std::string, 3>& shortTexts) {
        const std::array<std::string, 3> texts = {"first", "gone", "1234567"};
        const std::array<std::uint32_t, 3> numbers = {17, 40, 3};
        ASSERT_EQ(table.GetRecordCount(), 3);
        for (std::int32_t i = 0; i < 3; ++i) {
            const auto row = static_cast<std::size_t>(i);
            table.Go(i);
            EXPECT_EQ(table.IsDeleted(), i == 1);
            EXPECT_EQ(table.ReadText(1), texts[row]);
            EXPECT_EQ(table.ReadText(2), "");
            EXPECT_EQ(table.ReadText(3), shortTexts[row]);
            EXPECT_EQ(table.ReadCounter(4), numbers[row]);
            EXPECT_EQ(table.ReadText(5) + table.ReadText(6), "");
        }
    }
};

TEST_F(CUpgradeTest, ColumnsKeepTheirNumbers) {
    const struct {
        std::string records;
        std::uint32_t version;
        std::array<std::string, 3> shortTexts;
    } rows[] = {{Old512(), 0, {}}, {Old512(), 512, {}}, {Old1536(), 1536, {"one", "", "2"}}};
    for (const auto& row : rows) {
        PutTable(row.records, row.version);
        CSTable table;
        ASSERT_TRUE(Open(table, true));
        ExpectRecords(table, row.shortTexts);  // as it is
        EXPECT_FALSE(table.HasColumn(5));
        table.Close();
        EXPECT_EQ(Get(PathOf("T")), row.records);
        ASSERT_TRUE(Open(table));
        ExpectRecords(table, row.shortTexts);
        EXPECT_EQ(Get(PathOf("T.ver")), Number(0x2201));
        EXPECT_EQ(table.Append(), 3);
        EXPECT_EQ(table.ReadCounter(4), 41U);
        table.WriteText(5, "stored");
        EXPECT_EQ(table.ReadText(5), "stored");
        EXPECT_FALSE(Platform::FileIsThere(PathOf("T.new")));
        EXPECT_FALSE(Platform::FileIsThere(PathOf("T.new.ver")));
    }
    EXPECT_EQ(Get(PathOf("T")).find('!'), std::string::npos);
}

TEST_F(CUpgradeTest, TextsAreCarriedOver) {
    PutTable("", 0x2201);
    CTextStore store;
    store.Open(PathOf("T"), CTextStore::Access::ReadWrite);
    const auto reference = static_cast<std::uint32_t>(store.Add("a long text"));
    store.Close();
    Put(PathOf("T"), "N" + Text("x", 7) + Text("1", 1) + Text("s", 3) + Number(9) + Number(reference));
    Put(PathOf("T.ver"), Number(4096));
    CSTable table;
    ASSERT_TRUE(Open(table));
    EXPECT_EQ(table.ReadText(5), "a long text");
    EXPECT_EQ(table.ReadText(6), "");
}

TEST_F(CUpgradeTest, AnEmptyTableOfAnOldVersionGetsTheNewColumns) {
    PutTable("", 512);
    CSTable table;
    ASSERT_TRUE(Open(table));
    table.Append();
    table.WriteText(3, "new");
    EXPECT_EQ(Get(PathOf("T.ver")), Number(0x2201));
    EXPECT_EQ(Get(PathOf("T")).size(), static_cast<std::size_t>(table.GetRecordSize()));
    EXPECT_EQ(table.GetRecordSize(), 1 + 8 + 2 + 4 + 4 + 4 + 4);
}

TEST_F(CUpgradeTest, AWrongGuessAtTheVersionIsNotMade) {
    std::string current;
    for (int i = 0; i < 5; ++i)
        current += "N" + Text("x", 7) + Text("1", 1) + Text("s", 3) + Number(1) + Number(0) + Number(0);
    for (const std::string& records : {current, current + "torn"}) {
        PutTable(records, 0);
        CSTable table;
        EXPECT_THROW(Open(table), CLhvException);
        EXPECT_THROW(Open(table, true), CLhvException);
        EXPECT_EQ(Get(PathOf("T")), records);
        EXPECT_FALSE(Platform::FileIsThere(PathOf("T.ver")));
    }
}

// Every operation of the upgrade fails in turn, alone or with all that follow:
// what is found afterwards is the whole table.
TEST_F(CUpgradeTest, AFailureAtAnyPointLeavesAWholeTable) {
    Platform::SetFlushEnabled(true);
    for (const auto after : {Platform::CFaultPlan::After::Recovers, Platform::CFaultPlan::After::Stays}) {
        bool wasHit = true;
        for (unsigned n = 1; wasHit; ++n) {
            PutTable(Old1536(), 1536);
            {
                const Platform::CFaultPlan plan(Platform::Operation::Any, n, after);
                try {
                    CSTable table;
                    Open(table);
                } catch (const CLhvException&) {
                }
                wasHit = plan.WasHit();
            }
            for (const bool readOnly : {true, false}) {
                CSTable table;
                ASSERT_TRUE(Open(table, readOnly)) << n;
                ExpectRecords(table, {"one", "", "2"});
                EXPECT_EQ(Get(PathOf("T.ver")), Number(table.GetVersion()));
            }
            EXPECT_EQ(Get(PathOf("T.ver")), Number(0x2201));
            EXPECT_FALSE(Platform::FileIsThere(PathOf("T.new")) || Platform::FileIsThere(PathOf("T.new.ver")));
            ASSERT_LT(n, 200U);
        }
    }
}

TEST_F(CUpgradeTest, TheUserSeesItAndCanStopIt) {
    struct CWindow : IProgressWindow {
        explicit CWindow(std::atomic<int>& count) : steps(count) {}
        void Step() override { ++steps; }
        std::atomic<int>& steps;
    };
    std::atomic<int> steps = 0;
    std::string caption;
    SetProgressWindowFactory([&](const std::string& text, std::uint32_t range) {
        caption = text + " " + std::to_string(range);
        return std::make_unique<CWindow>(steps);
    });
    PutTable(Old512(), 512);
    CSTable table;
    SetMessagePump([&] { return steps < 1; });
    EXPECT_THROW(Open(table), CLhvException);
    EXPECT_EQ(Get(PathOf("T")), Old512());
    EXPECT_FALSE(Platform::FileIsThere(PathOf("T.new")));
    steps = 0;
    SetMessagePump([] { return true; });
    ASSERT_TRUE(Open(table));
    EXPECT_EQ(steps, 3);
    EXPECT_EQ(caption, "Upgrading database table to current version 3");
}

}  // namespace
