#include "engine/memberindex.h"

#include <filesystem>

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

TEST_F(CMemberIndexTest, KeepsEntriesAndStateOverOpening) {
    IndexChange change;
    change.added = {{"b@x", 300}, {"a@x", 1}, {"b@x", 2}, {"", 3}};
    change.state = {0x123456789ABCDEF0, 4, 3, true};
    {
        CSSIndex index;
        index.Open(path, CSSIndex::Access::ReadWrite);
        IndexState none;
        EXPECT_FALSE(index.ReadState(none));
        index.Apply(change);
    }
    for (const auto access : {CSSIndex::Access::ReadOnly, CSSIndex::Access::ReadWrite}) {
        CSSIndex index;
        index.Open(path, access);
        IndexState state;
        ASSERT_TRUE(index.ReadState(state));
        EXPECT_EQ(state, change.state);
        EXPECT_EQ(Find(index, "b@x"), (std::vector<std::int32_t>{2, 300}));
        EXPECT_EQ(Find(index, "c@x"), std::vector<std::int32_t>{});
        EXPECT_EQ(Find(index, std::string(2000, 'k')), std::vector<std::int32_t>{});
    }
    CSSIndex index;
    index.Open(path, CSSIndex::Access::ReadWrite);
    change.added.clear();
    change.removed = {{"b@x", 2}, {"b@x", 77}, {"nobody", 1}};
    index.Apply(change);
    EXPECT_EQ(Find(index, "b@x"), std::vector<std::int32_t>{300});
}

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

TEST_F(CMemberIndexTest, TellsDamage) {
    IndexChange change;
    for (std::int32_t i = 0; i < 20'000; ++i)
        change.added.push_back({std::to_string(i) + "@example.com", i});
    const auto write = [&] {
        std::filesystem::remove(path);
        CSSIndex index;
        index.Open(path, CSSIndex::Access::ReadWrite);
        index.Apply(change);
    };
    const auto use = [&] {
        CSSIndex index;
        index.Open(path, CSSIndex::Access::ReadWrite);
    };
    write();
    EXPECT_NO_THROW(use());
    Put(path, std::string(100'000, 'z'));
    EXPECT_THROW(use(), CIndexDamaged);
    write();
    std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
    EXPECT_THROW(use(), CIndexDamaged);

    write();
    CSSIndex index;
    index.Open(path, CSSIndex::Access::ReadWrite);
    EXPECT_TRUE(index.IsCurrent());
    std::filesystem::resize_file(path, 4096);
    EXPECT_THROW(index.IsCurrent(), CIndexDamaged);
    write();  // another file of that name
    EXPECT_FALSE(index.IsCurrent());
}

}  // namespace
