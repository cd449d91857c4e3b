// What takes a second process: locks and mailslots of one that is killed,
// writers that share a file, starting and stopping.

#include <gtest/gtest.h>

#include "otherprocess.h"
#include "platform/file.h"
#include "platform/mailslot.h"
#include "platform/namedmutex.h"
#include "platform/profilefile.h"
#include "platform/systemclaim.h"
#include "temporaryfolder.h"

using namespace Platform;
using namespace std::chrono_literals;

namespace {

constexpr int Killed = 256 + 9;
constexpr int Interrupted = 256 + 2;

class CProcesses : public testing::Test {
protected:
    CProcesses() { SetNamedObjectFolder(m_folder / "locks", m_folder / "slots", NamedObjectScope::Folder); }
    ~CProcesses() override { SetNamedObjectFolder("", "", NamedObjectScope::Machine); }

    CTemporaryFolder m_folder;
};

}  // namespace

using Processes = CProcesses;

TEST_F(Processes, MutexOfAKilledOneIsFree) {
    // Opened before and after: a system may treat a mutex nobody else has open in another way.
    for (const bool isOpenBefore : {true, false}) {
        COtherProcess other("mutex", m_folder.GetPath());
        ASSERT_TRUE(other.IsThere());
        if (isOpenBefore) {
            CNamedMutex mutex("m");
            EXPECT_FALSE(mutex.TryLockFor(20ms));
            EXPECT_TRUE(other.child.Kill());
            ASSERT_TRUE(mutex.TryLockFor(10s));
            mutex.Unlock();
            continue;
        }
        EXPECT_TRUE(other.child.Kill());
        CNamedMutex mutex("m");
        ASSERT_TRUE(mutex.TryLockFor(10s));
        mutex.Unlock();
    }
}

TEST_F(Processes, ChildOfAKilledOneEnds) {
    COtherProcess other("child", m_folder.GetPath(), {LISTHAVEN_OTHER_PROCESS});
    ASSERT_TRUE(other.IsThere("ready"));
    CNamedMutex mutex("m");
    EXPECT_FALSE(mutex.TryLockFor(20ms));
    EXPECT_TRUE(other.child.Kill());
    ASSERT_TRUE(mutex.TryLockFor(30s));
    mutex.Unlock();
}

TEST_F(Processes, PresenceEndsWithItsProcess) {
    COtherProcess other("presence", m_folder.GetPath());
    ASSERT_TRUE(other.IsThere());
    CPresence presence;
    EXPECT_TRUE(CPresence::IsHeld("p"));
    EXPECT_EQ(presence.Acquire("p"), CPresence::Result::AlreadyHeld);
    EXPECT_TRUE(other.child.Kill());
    EXPECT_FALSE(CPresence::IsHeld("p"));
    EXPECT_EQ(presence.Acquire("p"), CPresence::Result::Acquired);
}

TEST_F(Processes, MailslotOfAKilledOneIsTakenOver) {
    COtherProcess other("mailslot", m_folder.GetPath());
    ASSERT_TRUE(other.IsThere());
    CMailslot slot;
    EXPECT_FALSE(slot.Create("\\\\.\\mailslot\\log"));
    // Nobody reads these: writing may fail in the end, but never waits.
    int written = 0;
    while (written < 2'000 && WriteToMailslot("\\\\.\\mailslot\\log", std::string(1000, 'x')))
        ++written;
    EXPECT_GT(written, 0);
    EXPECT_TRUE(other.child.Kill());
    EXPECT_FALSE(WriteToMailslot("\\\\.\\mailslot\\log", "late"));
    ASSERT_TRUE(slot.Create("\\\\.\\mailslot\\log"));
    ASSERT_TRUE(WriteToMailslot("\\\\.\\mailslot\\log", "new"));
    std::string message;
    EXPECT_TRUE(slot.Read(message));
    EXPECT_EQ(message, "new");
}

TEST_F(Processes, LoseNothingInSharedFiles) {
    constexpr int Times = 100;
    Put(m_folder / "counter", std::string(2, '\0'));
    COtherProcess first("count", m_folder.GetPath(), {"a", std::to_string(Times)});
    COtherProcess second("count", m_folder.GetPath(), {"b", std::to_string(Times)});
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    const std::string bytes = Get(m_folder / "counter");
    EXPECT_EQ(static_cast<unsigned char>(bytes[0]) + 256 * static_cast<unsigned char>(bytes[1]), 2 * Times);
    EXPECT_EQ(ReadProfileKeys(m_folder / "p.ini", "S").size(), 2U * Times);
}

TEST_F(Processes, FirstStopRequestOnlySetsAFlagTheSecondEnds) {
    COtherProcess other("stop", m_folder.GetPath());
    ASSERT_TRUE(other.IsThere());
    EXPECT_TRUE(other.child.AskToStop());
    ASSERT_TRUE(other.IsThere("stopped"));
    EXPECT_TRUE(other.child.AskToStop());
    EXPECT_EQ(other.Wait(), Interrupted);
    COtherProcess deaf("stay", m_folder.GetPath());  // catches nothing
    ASSERT_TRUE(deaf.IsThere());
    EXPECT_TRUE(deaf.child.AskToStop());
    EXPECT_EQ(deaf.Wait(), Interrupted);
}

TEST_F(Processes, GetTheirArgumentsAsTheyAre) {
    const std::vector<std::string> texts = {"",          "a b",    "say \"x y\"", "c:\\new folder\\", "\\\\host\\\\\"",
                                            "*.cpp",     "%PATH%", "a\tb",        "^&|<>'$HOME`",     "日本 äöü",
                                            "-n /x ~ #", "\\",     "\"",          "\xF0\x9F\x93\xAC"};
    std::string expected = "a=b \"ä\"\n";
    for (const std::string& text : texts)
        expected += '[' + text + "]\n";
    Put(m_folder / "output", "before\n");
    COtherProcess other("print", m_folder.GetPath(), texts,
                        {{"LISTHAVEN_TEST=a=b \"ä\""}, m_folder / "output", m_folder / "errors"});
    EXPECT_EQ(other.Wait(), 3);
    EXPECT_EQ(Get(m_folder / "output"), "before\n" + expected);
    EXPECT_EQ(Get(m_folder / "errors"), "errors\n");
}

TEST_F(Processes, AreKilledAndTheirEndIsTold) {
    COtherProcess other("stay", m_folder.GetPath());
    ASSERT_TRUE(other.IsThere());
    int status = -1;
    EXPECT_TRUE(other.child.IsRunning());
    EXPECT_FALSE(other.child.WaitFor(1ms, status));
    EXPECT_TRUE(other.child.Kill());
    ASSERT_TRUE(other.child.WaitFor(0s, status));
    EXPECT_EQ(status, Killed);
    EXPECT_FALSE(other.child.AskToStop());
    EXPECT_FALSE(other.child.Start(m_folder / "missing", {}));
}

// Of one system any number use a folder; the other system is kept out by the
// first of them and let in after the last.
TEST_F(Processes, ShareAClaimWithinASystem) {
    CSystemClaim own, foreign;
    COtherProcess other("claim", m_folder.GetPath());
    ASSERT_TRUE(other.IsThere());
    EXPECT_EQ(foreign.Take(m_folder / "claim", CSystemClaim::OwnParty() + 1), CSystemClaim::Result::OtherSystem);
    EXPECT_EQ(own.Take(m_folder / "claim"), CSystemClaim::Result::Taken);
    EXPECT_TRUE(other.child.Kill());
    EXPECT_EQ(foreign.Take(m_folder / "claim", CSystemClaim::OwnParty() + 1), CSystemClaim::Result::OtherSystem);
    own.Release();
    EXPECT_EQ(foreign.Take(m_folder / "claim", CSystemClaim::OwnParty() + 1), CSystemClaim::Result::Taken);
    EXPECT_EQ(own.Take(m_folder / "claim"), CSystemClaim::Result::OtherSystem);
    EXPECT_EQ(own.Take(m_folder / "missing/claim"), CSystemClaim::Result::Failed);
}
