#include "engine/repair.h"

#include <filesystem>

#include "engine/blockedaddresses.h"
#include "engine/memberrecord.h"
#include "platform/filestatus.h"
#include "tests/engine/memberfixture.h"
#include "utility/text.h"

namespace {

constexpr std::size_t RecordSize = CMemberRecord::Size;

class CRepairTest : public CDataFolderTest {
protected:
    CRepairTest() { Platform::SetFlushEnabled(false); }

    // Five members, numbered from 0, with two texts each.
    void MakeMembers() {
        CMemberStore store;
        store.Open(7);
        for (int i = 0; i < 5; ++i) {
            CMember member = MakeMember(std::to_string(i) + "@x.example");
            member.SetField(0, "text " + std::to_string(i));
            member.SetField(63, "last " + std::to_string(i));
            store.Add(member);
        }
    }

    // What repair said, without the folder.
    std::string Repair(bool expectClean = true) {
        std::string said;
        const bool clean = RepairDataFolder([&](const std::string& action) {
            const std::size_t at = action.find(PathOf(""));
            said += (at == 0 ? action.substr(PathOf("").size()) : action) + "\n";
        });
        EXPECT_EQ(clean, expectClean) << said;
        return said;
    }

    std::string Members() {
        CMemberStore store;
        store.Open(7);
        std::string all;
        store.ForEach(AllSlots, [&](std::int32_t at, const CMember& member) {
            EXPECT_EQ(store.Find(member.address), at);
            all += member.address.substr(0, 1) + "(" + std::string(member.GetField(0)) + "," +
                   std::string(member.GetField(63)) + ") ";
            return true;
        });
        return all;
    }

    void Overwrite(const std::string& name, std::size_t offset, const std::string& bytes) {
        std::string content = Get(PathOf(name));
        content.replace(offset, bytes.size(), bytes);
        Put(PathOf(name), content);
    }

    static std::size_t ReferenceAt(std::size_t record, std::size_t slot) {
        return record * RecordSize + CMemberRecord::ReferencesAt + 4 * slot;
    }
};

TEST_F(CRepairTest, MendsWhatACrashLeaves) {
    const std::string whole = "0(text 0,last 0) 1(text 1,last 1) 2(text 2,last 2) 3(text 3,last 3) 4(text 4,last 4) ";
    const struct {
        const char* what;
        std::function<void()> harm;
        std::string said;
        std::string members;
    } cases[] = {
        {"half a record", [&] { Put(PathOf("7.MBR"), Get(PathOf("7.MBR")) + std::string(100, 'N')); },
         "7.MBR: Half a record at its end (100 bytes) was dropped.\n", whole},
        {"zeros at the end", [&] { Put(PathOf("7.MBR"), Get(PathOf("7.MBR")) + std::string(RecordSize, '\0')); },
         "7.MBR: Record 5 was damaged and is now a deleted one.\n", whole},
        {"a reference to nothing", [&] { Overwrite("7.MBR", ReferenceAt(2, 0), std::string("\x40\x42\x0F\0", 4)); },
         "7.MBR: The text of record 2, column 7 was lost and is now empty.\n"
         "7.MBR: 1 texts that belonged to no record were freed.\n",
         "0(text 0,last 0) 1(text 1,last 1) 2(,last 2) 3(text 3,last 3) 4(text 4,last 4) "},
        {"a negative reference", [&] { Overwrite("7.MBR", ReferenceAt(0, 1), "\xFE\xFF\xFF\xFF"); },
         "7.MBR: The text of record 0, column 8 was lost and is now empty.\n", whole},
        {"a shared reference",
         [&] { Overwrite("7.MBR", ReferenceAt(4, 0), Get(PathOf("7.MBR")).substr(ReferenceAt(3, 0), 4)); },
         "7.MBR: Record 4, column 7 shared a text and has its own copy now.\n"
         "7.MBR: 1 texts that belonged to no record were freed.\n",
         "0(text 0,last 0) 1(text 1,last 1) 2(text 2,last 2) 3(text 3,last 3) 4(text 3,last 4) "},
        {"a short version file", [&] { Put(PathOf("7.MBR.ver"), "\x01\x22\x00"); },
         "7.MBR: The version file was too short and is written anew for version 8705.\n", whole},
        {"no version file", [&] { std::filesystem::remove(PathOf("7.MBR.ver")); },
         "7.MBR: The version file was missing and is written anew for version 8705.\n", whole},
        {"no index", [&] { std::filesystem::remove(PathOf("7.MBX")); }, "", whole},
        {"a damaged index", [&] { Put(PathOf("7.MBX"), "this is none"); }, "", whole},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        EmptyFolder();
        MakeMembers();
        CBlockedAddresses().Add("*@spam.example");
        c.harm();
        EXPECT_EQ(Repair(), c.said);
        EXPECT_EQ(Members(), c.members);
        EXPECT_EQ(Repair(), "");
        EXPECT_TRUE(CBlockedAddresses().IsBlocked("a@spam.example"));
    }
}

// Nobody removed them: their list waits until they are there again, or the operator does not want them.
TEST_F(CRepairTest, LostMembersAreRemembered) {
    const auto lost = [&] {
        CMemberStore store;
        store.Open(7, CMemberStore::Access::ReadOnly);
        return Join(store.FindLost(), " ");
    };
    const std::string all = "0@x.example 1@x.example 2@x.example 3@x.example 4@x.example";
    const struct {
        const char* what;
        std::function<void()> harm;
        std::string lost;
    } cases[] = {
        {"a bad flag", [&] { Overwrite("7.MBR", RecordSize, "x"); }, "1@x.example"},
        {"other bytes", [&] { Overwrite("7.MBR", 0, std::string(2 * RecordSize, '.')); }, "0@x.example 1@x.example"},
        {"no index to tell whose",
         [&] {
             Overwrite("7.MBR", 2 * RecordSize, "x");
             std::filesystem::remove(PathOf("7.MBX"));
         },
         "record 2"},
        {"cut", [&] { Put(PathOf("7.MBR"), Get(PathOf("7.MBR")).substr(0, 3 * RecordSize)); },
         "3@x.example 4@x.example"},
        {"emptied", [&] { Put(PathOf("7.MBR"), ""); }, all},
        {"removed", [&] { std::filesystem::remove(PathOf("7.MBR")); }, all},
        {"all are other bytes", [&] { Put(PathOf("7.MBR"), std::string(5 * RecordSize, '.')); }, all},
    };
    for (const auto& c : cases) {
        for (const bool isRestored : {true, false}) {
            SCOPED_TRACE(c.what);
            EmptyFolder();
            MakeMembers();
            c.harm();
            for (int i = 0; i < 2; ++i)
                EXPECT_NE(Repair(false).find("accept-loss"), std::string::npos);
            EXPECT_EQ(lost(), c.lost);
            if (c.lost == all) std::filesystem::remove(PathOf("7.MBR"));
            CMemberStore().Open(7);
            EXPECT_EQ(lost(), c.lost) << "remembered by whoever makes the index anew";
            if (isRestored && !c.lost.starts_with("record")) {
                CMemberStore store;
                store.Open(7);
                for (const std::string_view address : Split(c.lost, ' '))
                    store.Add(MakeMember(std::string(address)));
            } else {
                EXPECT_TRUE(RepairDataFolder([](const std::string&) {}, LostMembers::Accepted));
            }
            EXPECT_EQ(lost(), "");
            EXPECT_EQ(Repair().find("lost"), std::string::npos);
            EXPECT_FALSE(std::filesystem::exists(PathOf("7.MBR.lost")));
        }
    }
}

TEST_F(CRepairTest, TouchesNothingItIsNotSureOf) {
    MakeMembers();
    std::filesystem::remove(PathOf("7.MBR.ver"));
    Put(PathOf("7.MBR"), Get(PathOf("7.MBR")) + "tail");
    std::string before = Get(PathOf("7.MBR"));
    EXPECT_NE(Repair(false).find("fits no version"), std::string::npos);
    EXPECT_EQ(Get(PathOf("7.MBR")), before);
    EXPECT_FALSE(std::filesystem::exists(PathOf("7.MBR.ver")));

    Put(PathOf("7.MBR.ver"), std::string("\x01\x22\0\0", 4));
    before = "This is something else." + std::string(5 * RecordSize, '.');
    Put(PathOf("7.MBR"), before);
    EXPECT_NE(Repair(false).find("left as it is"), std::string::npos);
    EXPECT_EQ(Get(PathOf("7.MBR")), before);
}

TEST_F(CRepairTest, NamesAddressesThatAreThereTwice) {
    MakeMembers();
    Put(PathOf("7.MBR"), Get(PathOf("7.MBR")) + Get(PathOf("7.MBR")).substr(0, CMemberRecord::ReferencesAt) +
                             std::string(4 * CMemberRecord::TextCount, '\xFF'));
    EXPECT_EQ(Repair(false), "7.MBR: Records 0 and 5 have the same address, 0@x.example.\n");
    CMemberStore store;
    store.Open(7);
    EXPECT_EQ(store.Find("0@x.example"), 0);
    EXPECT_TRUE(store.Remove(0));
    EXPECT_EQ(store.Find("0@x.example"), 5);
}

// A copy of an unfinished broadcast has a passing name too.
TEST_F(CRepairTest, RemovesOnlyWhatNobodyIsWriting) {
    const struct {
        const char* name;
        bool isOld;
        bool staysWithBroadcast;
        bool stays;
    } cases[] = {
        {"7.tmp", true, false, false},
        {"1.tmp", false, true, true},
        {"Lhv.cfg.123.new", true, false, false},
        {"Lhv.cfg.new", true, true, true},
        {"readme.txt", true, true, true},
        {"Inbox/7/9.tmp", true, false, false},
        {"Inbox/7/8.tmp", true, true, true},  // a mail cycle will deal with it
        {"Inbox/7/9.eml", true, true, true},
        {"SendDaemon/7/4/12.tmp", true, true, false},
        {"SendDaemon/7/4/13.tmp", false, true, true},
    };
    for (const bool isUnfinished : {true, false}) {
        for (const auto& c : cases) {
            std::filesystem::create_directories(std::filesystem::path(PathOf(c.name)).parent_path());
            Put(PathOf(c.name), "x");
            Platform::FileTimes times;
            times.created = times.modified = Platform::NanosecondsSince1970() - std::int64_t{7200} * 1'000'000'000;
            ASSERT_TRUE(!c.isOld || Platform::SetFileTimes(PathOf(c.name), times));
        }
        Put(PathOf("Inbox/7/.preparing"), "Inbox/7/8.tmp\n");
        std::filesystem::create_directories(PathOf("Broadcasts/1"));
        Put(PathOf("Broadcasts/1/job.cfg"),
            isUnfinished ? "[Broadcast]\r\nState=running\r\n" : "[Broadcast]\r\nState=done\r\n");
        Repair();
        for (const auto& c : cases) {
            EXPECT_EQ(std::filesystem::exists(PathOf(c.name)), isUnfinished ? c.staysWithBroadcast : c.stays)
                << c.name << (isUnfinished ? ", unfinished" : "");
        }
    }
}

}  // namespace
