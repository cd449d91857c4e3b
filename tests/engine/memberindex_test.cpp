#include "engine/memberindex.h"

#include "tests/engine/memberfixture.h"

namespace {

class CMemberIndexTest : public CDataFolderTest {
protected:
    std::vector<std::int32_t> Find(CSSIndex& index, const std::string& key) {
        std::vector<std::int32_t> records;
        index.Find(key, records);
        return records;
    }

    const std::string path = PathOf("7.MBX");
};

// Two objects on one file stand for two processes.
TEST_F(CMemberIndexTest, GrowsAndOthersFollow) {
    Platform::SetFlushEnabled(false);
    CSSIndex first;
    CSSIndex second;
    first.Open(path, CSSIndex::Access::ReadWrite);
    second.Open(path, CSSIndex::Access::ReadWrite);
    const std::string padding(200, 'p');
    constexpr std::int32_t Total = 150'000;  // more than twice the first map
    IndexChange change;
    for (std::int32_t i = 0; i < Total; ++i) {
        change.added.push_back({std::to_string(i) + padding, i});
        if (change.added.size() < 10'000) continue;
        first.Apply(change);
        change.added.clear();
    }
    EXPECT_EQ(Find(second, std::to_string(Total - 1) + padding), std::vector<std::int32_t>{Total - 1});
    change.added = {{"late", 9}};
    second.Apply(change);
    EXPECT_EQ(Find(first, "late"), std::vector<std::int32_t>{9});
    change.clear = true;
    change.added = {{"only", 1}};
    second.Apply(change);
    EXPECT_EQ(Find(first, "late"), std::vector<std::int32_t>{});
    EXPECT_EQ(Find(first, "only"), std::vector<std::int32_t>{1});
    EXPECT_TRUE(first.IsCurrent());
}

}  // namespace
