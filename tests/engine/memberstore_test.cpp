#include "engine/memberstore.h"

#include <filesystem>
#include <map>
#include <random>
#include <thread>

#include "engine/memberindex.h"
#include "tests/engine/memberfixture.h"
#include "tests/platform/filespeed.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

class CMemberStoreTest : public CDataFolderTest {
protected:
    CMemberStoreTest() { Platform::SetFlushEnabled(false); }

    void ChangeIndex(const std::function<void(IndexChange&)>& change) const {
        CSSIndex file;
        file.Open(index, CSSIndex::Access::ReadWrite);
        IndexChange applied;
        file.ReadState(applied.state);
        change(applied);
        file.Apply(applied);
    }

    const std::string table = PathOf("7.MBR");
    const std::string index = PathOf("7.MBX");
};

// Everything of a member that is stored, as one text.
std::string Describe(const CMember& member) {
    std::string text = member.address + "|" + member.firstName + "|" + member.middleName + "|" + member.lastName + "|" +
                       member.name + "|" + std::string(DeliveryModeName(member.mode)) + "|" + member.properties;
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if (!member.GetField(slot).empty())
            text += "|" + std::to_string(slot) + "=" + std::string(member.GetField(slot));
    }
    return text;
}

std::string ReadAll(CMemberStore& store) {
    std::string all;
    store.ForEach(AllSlots, [&](std::int32_t at, const CMember& member) {
        all += std::to_string(at) + ": " + Describe(member) + "\n";
        return true;
    });
    return all;
}

TEST_F(CMemberStoreTest, StoresWhatCanBeStoredAndRefusesTheRest) {
    CMemberStore store;
    store.Open(7);
    EXPECT_EQ(store.Count(), 0);
    EXPECT_EQ(store.Find("a@x.example"), CMemberStore::None);

    CMember member = MakeMember("  Zo\xC3\xAB@x.example ");
    member.firstName = std::string(29, 'a') + "\xC3\xAB";  // the limit falls into a character
    member.middleName = "X\r\nBcc: a@b";
    member.name = std::string(600, 'n');
    member.mode = DeliveryMode::Digest;
    member.SetField(0, std::string("one\0two", 7));
    member.SetField(63, std::string(100'000, 'f') + "\nend");
    member.SetProperty("Subscribed", "1700000000");
    member.SetProperty("inactive", "asked\nto leave");
    ASSERT_EQ(store.Add(member), 0);

    CMember read = MakeMember("left over");
    read.SetField(5, "left over");
    ASSERT_TRUE(store.Read(0, read, SlotMask{1}));
    EXPECT_EQ(Describe(read), "Zo\xC3\xAB@x.example|" + std::string(29, 'a') + "|X  Bcc: a@b||" +
                                  std::string(512, 'n') +
                                  "|digest|Subscribed: 1700000000\ninactive: asked to leave\n|0=one two");
    ASSERT_TRUE(store.Read(0, read));
    EXPECT_EQ(read.GetField(63), std::string(100'000, 'f') + " end");
    EXPECT_EQ(read.GetProperty("SUBSCRIBED"), "1700000000");
    EXPECT_TRUE(read.IsInactive());
    read.SetProperty("Inactive", "");
    EXPECT_FALSE(read.IsInactive());
    EXPECT_EQ(read.properties, "Subscribed: 1700000000\n");

    for (const std::string& address : {std::string("a@b\r\nRCPT TO:<c@d>"), std::string("no address"), std::string(),
                                       std::string(299, 'a') + "@x.example", "a@" + std::string(127, 'd'),
                                       std::string("ZO\xC3\xAB@X.EXAMPLE"), std::string("a\0@x.example", 12)}) {
        EXPECT_THROW(store.Add(MakeMember(address)), CLhvException) << address;
    }
    EXPECT_EQ(store.Find(std::string(2000, 'k')), CMemberStore::None);  // longer than any key
    EXPECT_EQ(store.Count(), 1);
    EXPECT_EQ(store.GetRecordCount(), 1);
    EXPECT_FALSE(store.Read(1, read));
    EXPECT_FALSE(store.Read(-1, read));
}

TEST_F(CMemberStoreTest, UpdatesOnlyTheGivenParts) {
    CMemberStore store;
    store.Open(7);
    CMember member = MakeMember("a@x.example");
    member.name = "Ann Berg";
    member.SetField(1, "one");
    member.SetField(2, "two");
    store.Add(member);
    store.Add(MakeMember("b@x.example"));

    CMember change = MakeMember("A@x.example");
    change.mode = DeliveryMode::Both;
    change.SetField(2, "TWO");
    change.SetField(3, "three");
    MemberParts parts{.firstName = false, .middleName = false, .lastName = false, .name = false};
    parts.slots = SlotMask{1} << 2 | SlotMask{1} << 4;
    EXPECT_TRUE(store.Update(0, change, parts));
    EXPECT_EQ(ReadAll(store), "0: A@x.example||||Ann Berg|both||1=one|2=TWO\n1: b@x.example|||||regular|\n");

    change.address = "B@x.example";
    EXPECT_THROW(store.Update(0, change, parts), CLhvException);
    change.address = "c@x.example";
    EXPECT_TRUE(store.Update(0, change, parts));
    EXPECT_EQ(store.Find("a@x.example"), CMemberStore::None);
    EXPECT_EQ(store.Find("c@x.example"), 0);
    EXPECT_FALSE(store.Update(2, change, parts));
}

TEST_F(CMemberStoreTest, AKeepSeesItsOwnChanges) {
    CMemberStore store;
    store.Open(7);
    CMember member = MakeMember("a@x.example");
    store.Add(member);
    {
        const CMemberStore::CKeep keep(store);
        const std::int32_t at = store.Find("a@x.example");
        member.address = "b@x.example";
        EXPECT_TRUE(store.Update(at, member));
        EXPECT_EQ(store.Find("a@x.example"), CMemberStore::None);
        EXPECT_EQ(store.Find("b@x.example"), at);
        EXPECT_TRUE(store.Remove(at));
        EXPECT_FALSE(store.Read(at, member));
        EXPECT_EQ(store.Find("b@x.example"), CMemberStore::None);
    }
    CMemberStore other;
    other.Open(7);
    const std::int32_t added = other.Add(MakeMember("c@x.example"));
    EXPECT_EQ(store.Find("c@x.example"), added);
}

TEST_F(CMemberStoreTest, LeavesNoFilesWithoutMembers) {
    CMemberStore one;
    CMemberStore other;
    one.Open(7);
    other.Open(7);
    EXPECT_FALSE(std::filesystem::exists(table));
    const std::int32_t at = one.Add(MakeMember("a@x.example"));
    EXPECT_EQ(other.Find("a@x.example"), at);
    other.Remove(at);
    other.Pack();
    EXPECT_FALSE(std::filesystem::exists(table));
    EXPECT_FALSE(std::filesystem::exists(index));
    EXPECT_EQ(one.Count(), 0);
    one.Add(MakeMember("b@x.example"));  // the one whose files have gone goes on
    EXPECT_EQ(other.Count(), 1);
    other.Close();
    EXPECT_EQ(one.Find("b@x.example"), 0);
}

TEST_F(CMemberStoreTest, TellsAWalkThatTheListWasPacked) {
    CMemberStore store;
    CMemberStore other;
    store.Open(7);
    other.Open(7);
    std::vector<CMember> many;
    for (int i = 0; i < 600; ++i)
        many.push_back(MakeMember(std::to_string(i) + "@x.example"));
    store.AddMany(many, ExistingMember::Skip);
    const auto walk = [&](bool pack) {
        int visited = 0;
        store.ForEach(NoSlots, [&](std::int32_t at, const CMember&) {
            if (at == 3) store.Remove(300);  // not seen by the walk any more
            if (at == 4 && pack) other.Pack();
            ++visited;
            return true;
        });
        return visited;
    };
    EXPECT_EQ(walk(false), 599);
    EXPECT_THROW(walk(true), CLhvException);
    EXPECT_EQ(walk(false), 598);  // after packing, 300 was another member
}

// What makes an index useless, and that every member is found nevertheless.
TEST_F(CMemberStoreTest, RebuildsAnIndexThatDoesNotFit) {
    CMemberStore store;
    store.Open(7);
    for (const char* address : {"a@x.example", "b@x.example", "c@x.example"})
        store.Add(MakeMember(address));
    store.Close();
    std::filesystem::copy_file(index, PathOf("older"));
    store.Open(7);
    store.Add(MakeMember("d@x.example"));
    store.Remove(0);
    const auto check = [&](const char* what) {
        EXPECT_EQ(store.Find("a@x.example"), CMemberStore::None) << what;
        EXPECT_EQ(store.Find("B@x.example"), 1) << what;
        EXPECT_EQ(store.Find("d@x.example"), 3) << what;
        EXPECT_EQ(store.Count(), 3) << what;
    };
    check("untouched");
    const auto useIndex = [&](const std::function<void(IndexChange&)>& change) {
        return [this, change] { ChangeIndex(change); };
    };
    const struct {
        const char* what;
        std::function<void()> harm;
    } cases[] = {
        {"removed", [&] { std::filesystem::remove(index); }},
        {"empty", [&] { Put(index, ""); }},
        {"garbage", [&] { Put(index, std::string(20'000, '\xA5')); }},
        {"short", [&] { std::filesystem::resize_file(index, 5000); }},
        {"older", [&] { Put(index, Get(PathOf("older"))); }},
        {"unsettled", useIndex([](IndexChange& c) { c.clear = true, c.state.settled = false; })},
        {"of another file", useIndex([](IndexChange& c) { c.clear = true, ++c.state.tableIdentity; })},
        {"wrong count", useIndex([](IndexChange& c) { c.clear = true, ++c.state.recordCount; })},
        {"stale hits", useIndex([](IndexChange& c) {
             c.added = {{"b@x.example", 0}, {"a@x.example", 2}, {"d@x.example", 99}};
         })},
    };
    for (const auto& c : cases) {
        for (const bool isOpen : {true, false}) {
            if (!isOpen) store.Close();
            c.harm();
            if (!isOpen) store.Open(7);
            check(c.what);
        }
    }
}

// While the index is not on the disk a note beside it says so; one that nobody
// stands for any more means that the index may have been ruined.
TEST_F(CMemberStoreTest, NotesThatTheIndexIsNotOnTheDisk) {
    Platform::SetFlushEnabled(true);
    const std::string note = index + "-unsynced";
    std::vector<CMember> many;
    for (int i = 0; i < 200; ++i)
        many.push_back(MakeMember(std::to_string(i) + "@x.example"));
    CMemberStore store;
    CMemberStore other;
    store.Open(7);
    store.AddMany(many, ExistingMember::Skip);
    EXPECT_TRUE(std::filesystem::exists(note));
    other.Open(7);
    EXPECT_EQ(other.Find("5@x.example"), 5);
    other.Close();
    EXPECT_TRUE(std::filesystem::exists(note));
    many.assign(1, MakeMember("single@x.example"));
    store.AddMany(many, ExistingMember::Skip);
    EXPECT_FALSE(std::filesystem::exists(note));
    store.Close();

    Put(note, "");
    ChangeIndex([](IndexChange& c) { c.clear = true; });
    store.Open(7);
    EXPECT_EQ(store.Find("5@x.example"), 5);
    EXPECT_FALSE(std::filesystem::exists(note));
}

TEST_F(CMemberStoreTest, ReadsWithoutWritingAnything) {
    CMemberStore store;
    store.Open(7);
    store.Add(MakeMember("a@x.example"));
    store.Close();
    for (const bool hasIndex : {true, false}) {
        if (!hasIndex) std::filesystem::remove(index);
        store.Open(7, CMemberStore::Access::ReadOnly);
        EXPECT_EQ(store.Find("A@x.example"), 0);
        EXPECT_EQ(store.Count(), 1);
        EXPECT_THROW(store.Add(MakeMember("b@x.example")), CLhvException);
        EXPECT_THROW(store.Remove(0), CLhvException);
        store.Close();
        EXPECT_EQ(std::filesystem::exists(index), hasIndex);
    }
}

// Two stores on one list against a map, over thousands of random operations.
class CModel {
public:
    explicit CModel(std::uint32_t seed) : m_random(seed) {
        for (CMemberStore& store : m_stores)
            store.Open(7);
    }

    void Step() {
        CMemberStore& store = m_stores[Number(2)];
        switch (Number(12)) {
            case 0:
                store.Close();
                store.Open(7);
                break;
            case 1:
                if (Number(20) == 0) Pack(store);
                break;
            case 2:
            case 3:
                Remove(store);
                break;
            case 4:
            case 5:
                Update(store);
                break;
            case 6:
                AddMany(store);
                break;
            default:
                Add(store);
        }
        const std::string address = Address();
        const auto known = m_members.find(address);
        const std::int32_t at = store.Find(address);
        ASSERT_EQ(at == CMemberStore::None, known == m_members.end()) << address;
        CMember read;
        if (at != CMemberStore::None) {
            ASSERT_TRUE(store.Read(at, read));
            ASSERT_EQ(Describe(read), Describe(known->second));
        }
        ASSERT_EQ(store.Count(), static_cast<std::int32_t>(m_members.size()));
    }

    void Compare() {
        std::size_t seen = 0;
        m_stores[0].ForEach(AllSlots, [&](std::int32_t at, const CMember& member) {
            ++seen;
            const auto known = m_members.find(LowerAscii(member.address));
            EXPECT_TRUE(known != m_members.end() && Describe(known->second) == Describe(member)) << member.address;
            EXPECT_EQ(m_stores[1].Find(member.address), at);
            return true;
        });
        EXPECT_EQ(seen, m_members.size());
    }

private:
    std::uint32_t Number(std::uint32_t below) { return static_cast<std::uint32_t>(m_random() % below); }
    std::string Address() { return "m" + std::to_string(Number(60)) + "@x.example"; }

    CMember Member() {
        CMember member;
        member.address = Address();
        if (Number(2) == 0) member.address[0] = 'M';
        member.name = std::string(Number(40), 'n');
        member.mode = DeliveryModeOfNumber(static_cast<std::int32_t>(Number(3)));
        for (int i = 0; i < 3; ++i)
            member.SetField(static_cast<int>(Number(64)), std::string(Number(3) * Number(300), 'f'));
        if (Number(3) == 0) member.SetProperty("Bounces", std::to_string(Number(9)));
        return member;
    }

    void Add(CMemberStore& store) {
        const CMember member = Member();
        const bool isNew = !m_members.contains(LowerAscii(member.address));
        bool added = true;
        try {
            store.Add(member);
        } catch (const CLhvException&) {
            added = false;
        }
        ASSERT_EQ(added, isNew);
        m_members.emplace(LowerAscii(member.address), member);
    }

    void AddMany(CMemberStore& store) {
        std::vector<CMember> group(Number(8));
        for (CMember& member : group)
            member = Member();
        const bool update = Number(2) == 0;
        const auto outcomes = store.AddMany(group, update ? ExistingMember::Update : ExistingMember::Skip);
        for (std::size_t i = 0; i < group.size(); ++i) {
            const auto [known, isNew] = m_members.emplace(LowerAscii(group[i].address), group[i]);
            ASSERT_EQ(outcomes[i].kind == MemberOutcome::Kind::Added, isNew);
            if (isNew || !update) continue;
            const std::string address = known->second.address;
            known->second = group[i];
            known->second.address = address;
        }
    }

    void Update(CMemberStore& store) {
        const CMember member = Member();
        const std::string old = Address();
        const bool isTaken = old != LowerAscii(member.address) && m_members.contains(LowerAscii(member.address));
        const std::int32_t at = store.Find(old);
        if (at == CMemberStore::None || isTaken) return;
        ASSERT_TRUE(store.Update(at, member));
        m_members.erase(old);
        m_members.emplace(LowerAscii(member.address), member);
    }

    void Remove(CMemberStore& store) {
        const std::string address = Address();
        ASSERT_EQ(store.Remove(store.Find(address)), m_members.erase(address) == 1);
    }

    void Pack(CMemberStore& store) {
        store.Pack();
        ASSERT_EQ(store.GetRecordCount(), static_cast<std::int32_t>(m_members.size()));
    }

    std::mt19937 m_random;
    CMemberStore m_stores[2];
    std::map<std::string, CMember> m_members;  // by address in lower case
};

TEST_F(CMemberStoreTest, BehavesAsAMap) {
    const int steps = ByFileSpeed(1500, 200);
    for (const std::uint32_t seed : {1u, 2u, 3u}) {
        EmptyFolder();
        CModel model(seed);
        for (int step = 0; step < steps; ++step) {
            model.Step();
            if (HasFatalFailure()) FAIL() << "seed " << seed << ", step " << step;
        }
        model.Compare();
    }
}

}  // namespace
