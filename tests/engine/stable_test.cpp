#include "engine/stable.h"

#include <array>
#include <future>
#include <random>
#include <thread>

#include "app/stoplist.h"
#include "engine/textstore.h"
#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

constexpr std::array Columns = {
    CColumnDescription{ColumnType::Text, 8, 512, "text"},
    CColumnDescription{ColumnType::Counter, 4, 512, "number"},
    CColumnDescription{ColumnType::Binary, 3, 512, "binary"},
    CColumnDescription{ColumnType::StoredText, 1, 512, "long"},
    CColumnDescription{ColumnType::Text, 0, 512, "the end"},
    CColumnDescription{ColumnType::Text, 9, 512, "never"},
};
constexpr int RecordSize = 1 + 9 + 4 + 3 + 4;

class CSTableTest : public CDataFolderTest {
protected:
    CSTableTest() { Platform::SetFlushEnabled(false); }
    ~CSTableTest() override { ClearThreadStop(Platform::CurrentThreadId()); }

    bool Open(CSTable& table, bool readOnly = false, bool create = true) const {
        return table.Open(PathOf("T"), Columns, readOnly, create);
    }
    std::string Contents() const { return Get(PathOf("T")); }
    bool IsThere(const std::string& name) const { return Platform::FileIsThere(PathOf(name)); }
};

TEST_F(CSTableTest, RecordsHaveTheseBytes) {
    CSTable table;
    ASSERT_TRUE(Open(table));
    EXPECT_EQ(table.GetRecordSize(), RecordSize);
    EXPECT_EQ(table.GetColumnCount(), 5);
    EXPECT_EQ(table.Append(), 0);
    table.WriteText(1, "password");
    table.WriteText(1, "longer than eight");
    table.WriteColumn(3, std::as_bytes(std::span("xyz", 3)));
    EXPECT_EQ(table.Append(), 1);
    table.WriteText(1, "password");
    table.WriteText(1, "new");
    table.Delete();
    EXPECT_EQ(Contents(), std::string("Nlonger t\0\x01\0\0\0xyz\xFF\xFF\xFF\xFF"
                                      "Ynew\0word\0\x02\0\0\0\0\0\0\xFF\xFF\xFF\xFF",
                                      2 * RecordSize));
    table.WriteTextInFull(1, "no");
    EXPECT_EQ(Contents().substr(RecordSize + 1, 9), std::string("no\0\0\0\0\0\0\0", 9));
    EXPECT_EQ(table.ReadText(1), "no");
    EXPECT_TRUE(table.IsDeleted());
    table.Undelete();
    EXPECT_FALSE(table.IsDeleted());
}

TEST_F(CSTableTest, FilesThatAreNotWhole) {
    const auto make = [&](std::size_t bytes, const std::string& version) {
        Put(PathOf("T"), std::string(bytes, 'N'));
        Put(PathOf("T.ver"), version);
    };
    const std::string current("\x01\x22\0\0", 4);
    CSTable table;
    make(3 * RecordSize + 5, current);
    ASSERT_TRUE(Open(table));
    EXPECT_EQ(table.GetRecordCount(), 3);
    EXPECT_EQ(table.AppendRecords(std::span<std::byte>()), 3);
    EXPECT_EQ(table.Append(), 3);  // in the place of the torn one
    EXPECT_EQ(table.ReadText(1), "");
    table.Go(17);
    EXPECT_THROW(table.ReadText(1), CLhvException);
    EXPECT_THROW(table.WriteText(1, "x"), CLhvException);
    table.Close();
    const struct {
        const char* what;
        std::string version;
        std::string inMessage;
    } rows[] = {{"short", "\x01\x22", "stable(903)"},
                {"none has columns", std::string("\xFF\0\0\0", 4), "stable(176)"},
                {"newer", std::string("\x02\x22\0\0", 4), "newer version"}};
    for (const auto& row : rows) {
        make(RecordSize, row.version);
        try {
            Open(table);
            ADD_FAILURE() << row.what;
        } catch (const CLhvException& e) {
            EXPECT_NE(e.GetText().find(row.inMessage), std::string::npos) << e.GetText();
            EXPECT_NE(e.GetText().find(PathOf("T")), std::string::npos) << e.GetText();
        }
        EXPECT_FALSE(table.IsOpen());
        EXPECT_EQ(Contents().size(), static_cast<std::size_t>(RecordSize));
    }
}

// What a table of texts should do, done on a vector.
struct CModel {
    struct Row {
        std::string text;
        std::string stored;
        std::uint32_t number = 0;
        bool isDeleted = false;
    };
    std::vector<Row> rows;
    std::uint32_t counter = 0;

    void ExpectIn(CSTable& table) const {
        ASSERT_EQ(table.GetRecordCount(), static_cast<std::int32_t>(rows.size()));
        for (std::size_t i = 0; i < rows.size(); ++i) {
            table.Go(static_cast<std::int32_t>(i));
            ASSERT_EQ(table.IsDeleted(), rows[i].isDeleted);
            ASSERT_EQ(table.ReadText(1), rows[i].text);
            ASSERT_EQ(table.ReadText(4), rows[i].stored);
            ASSERT_EQ(table.ReadCounter(2), rows[i].number);
        }
    }
};

TEST_F(CSTableTest, RandomWorkAgreesWithAModel) {
    std::mt19937 random(3);
    CModel model;
    CSTable table;
    ASSERT_TRUE(Open(table));
    for (int step = 0; step < 3000; ++step) {
        const std::size_t count = model.rows.size();
        const std::size_t at = count > 0 ? random() % count : 0;
        table.Go(static_cast<std::int32_t>(at));
        const auto choice = random() % 40;
        if (choice == 0) {
            table.Pack();
            std::erase_if(model.rows, [](const CModel::Row& row) { return row.isDeleted; });
        } else if (choice == 1 && count > 0) {
            const std::size_t removed = random() % (count - at + 1) % 20;
            table.RemoveRange(static_cast<std::int32_t>(removed));
            model.rows.erase(model.rows.begin() + static_cast<std::ptrdiff_t>(at),
                             model.rows.begin() + static_cast<std::ptrdiff_t>(at + removed));
        } else if (choice < 15 || count == 0) {
            table.Append();
            model.rows.push_back({"", "", ++model.counter, false});
        } else if (choice < 25) {
            const std::string text(random() % 300, static_cast<char>('a' + random() % 26));
            table.WriteText(1, text);
            table.WriteText(4, text);
            model.rows[at].text = text.substr(0, 8);
            model.rows[at].stored = text;
        } else {
            model.rows[at].isDeleted = choice < 38;
            choice < 38 ? table.Delete() : table.Undelete();
        }
        if (step % 100 == 0) model.ExpectIn(table);
    }
    model.ExpectIn(table);
    table.Flush();
    std::vector<std::int32_t> inUse;
    for (std::int32_t i = 0; i < table.GetRecordCount(); ++i) {
        table.Go(i);
        inUse.push_back(table.ReadReference(4));
    }
    const TextStoreReport report = table.GetTextStore()->Check(inUse);
    EXPECT_TRUE(report.IsSound());
    EXPECT_EQ(report.unused, 0);
}

TEST_F(CSTableTest, AFailureWhilePackingLosesNothing) {
    for (unsigned n = 1;; ++n) {
        std::string before;
        {
            CSTable table;
            ASSERT_TRUE(Open(table));
            table.RemoveAll();
            for (int i = 0; i < 6; ++i) {
                table.Append();
                table.WriteNumber(1, i);
                table.WriteText(4, std::string(100, 'x'));
                if (i % 2 == 0) table.Delete();
            }
            table.Flush();
        }
        bool wasHit = false;
        {
            const Platform::CFaultPlan plan(Platform::Operation::Any, n, Platform::CFaultPlan::After::Stays);
            try {
                CSTable table;
                if (Open(table)) table.Pack();
            } catch (const CLhvException&) {
            }
            wasHit = plan.WasHit();
        }
        CSTable table;
        ASSERT_TRUE(Open(table, false, false));
        std::string live;
        for (std::int32_t i = 0; i < table.GetRecordCount(); ++i) {
            table.Go(i);
            if (table.IsDeleted()) continue;
            live += table.ReadText(1);
            EXPECT_EQ(table.ReadText(4).size(), 100U);
        }
        ASSERT_EQ(live, "135") << n;
        if (!wasHit) break;
    }
}

TEST_F(CSTableTest, AStopReachesOnlyCancellableTables) {
    CSTable table;
    ASSERT_TRUE(Open(table));
    table.Append();
    RequestThreadStop(Platform::CurrentThreadId());
    table.Append();
    table.SetCancellable(true);
    EXPECT_THROW(table.Append(), CLhvException);
    EXPECT_THROW(table.ReadText(1), CLhvException);
    EXPECT_THROW(table.Pack(), CLhvException);
    EXPECT_THROW(Open(table), CLhvException);
    ClearThreadStop(Platform::CurrentThreadId());
    ASSERT_TRUE(Open(table));
    EXPECT_EQ(table.Append(), 2);
}

// The files of an empty table go only when nobody holds its mutex, and whoever
// has it open makes them anew.
TEST_F(CSTableTest, RemovingAnEmptyTableWaitsForItsReaders) {
    Platform::CNamedMutex mutex(TableMutexName(PathOf("T")));
    CSTable reader;
    ASSERT_TRUE(Open(reader));
    std::promise<void> isHeld;
    std::promise<void> isEnough;
    std::thread holder([&] {
        mutex.Lock();
        isHeld.set_value();
        isEnough.get_future().wait();
        mutex.Unlock();
    });
    isHeld.get_future().wait();
    CSTable table;
    ASSERT_TRUE(Open(table));
    table.Close();
    EXPECT_TRUE(IsThere("T"));
    isEnough.set_value();
    holder.join();
    ASSERT_TRUE(Open(table));
    table.Close();
    EXPECT_FALSE(IsThere("T"));
    EXPECT_FALSE(reader.IsCurrent());
    EXPECT_EQ(reader.Append(), 0);
    EXPECT_EQ(Contents().size(), static_cast<std::size_t>(RecordSize));
}

}  // namespace
