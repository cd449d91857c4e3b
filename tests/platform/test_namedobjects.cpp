#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/mailslot.h"
#include "platform/namedmutex.h"
#include "temporaryfolder.h"

using namespace Platform;
using namespace std::chrono_literals;

namespace {

class CNamedObjects : public testing::Test {
protected:
    CNamedObjects() { SetNamedObjectFolder(m_folder / "locks", m_folder / "slots", NamedObjectScope::Folder); }
    ~CNamedObjects() override { SetNamedObjectFolder("", "", NamedObjectScope::Folder); }

    CTemporaryFolder m_folder;
};

constexpr const char* Slot = "\\\\.\\mailslot\\Vantorel\\Listhaven\\Log";

bool OtherThreadGets(const std::string& name) {
    bool got = false;
    std::thread([&] {
        CNamedMutex mutex(name);
        got = mutex.TryLockFor(10ms);
        if (got) mutex.Unlock();
    }).join();
    return got;
}

}  // namespace

using NamedMutex = CNamedObjects;
using Presence = CNamedObjects;
using Mailslot = CNamedObjects;

TEST_F(NamedMutex, IsOnePerNameAndRecursive) {
    const std::string names[] = {"plain",
                                 "Global\\{0-1}",
                                 "Listhaven.SSArray/var/lib/a b/1/members.dat",
                                 std::string(3000, 'x') + "1",
                                 std::string(3000, 'x') + "2",
                                 ".",
                                 ""};
    for (const std::string& held : names) {
        CNamedMutex first(held);
        EXPECT_TRUE(first.IsShared()) << held;
        first.Lock();
        {
            CNamedMutex second(held);
            second.Lock();
            second.Unlock();
        }
        for (const std::string& name : names)
            EXPECT_EQ(OtherThreadGets(name), name != held) << name << " while " << held;
        first.Unlock();
        EXPECT_TRUE(OtherThreadGets(held));
    }
}

TEST_F(Presence, OneHolderAtATime) {
    CPresence first, second;
    EXPECT_FALSE(CPresence::IsHeld("here"));
    EXPECT_EQ(first.Acquire("here"), CPresence::Result::Acquired);
    EXPECT_TRUE(CPresence::IsHeld("here"));
    EXPECT_EQ(second.Acquire("here"), CPresence::Result::AlreadyHeld);
    EXPECT_EQ(second.Acquire("there"), CPresence::Result::Acquired);
    EXPECT_TRUE(OtherThreadGets("here"));  // a mutex of the same name is another thing
    first.Release();
    EXPECT_FALSE(CPresence::IsHeld("here"));
    EXPECT_EQ(first.Acquire("here"), CPresence::Result::Acquired);
}

TEST_F(Presence, NamesBelongToOneFolder) {
    CPresence presence;
    EXPECT_EQ(presence.Acquire("here"), CPresence::Result::Acquired);
    const auto isHeldIn = [&](const std::string& folder) {
        SetNamedObjectFolder(folder + "/locks", folder + "/slots", NamedObjectScope::Folder);
        return CPresence::IsHeld("here");
    };
    std::filesystem::create_directory(m_folder / "other");
    EXPECT_FALSE(isHeldIn(m_folder / "other"));
    EXPECT_TRUE(isHeldIn(m_folder.GetPath()));
    EXPECT_TRUE(isHeldIn(m_folder / "other/../."));
}

TEST_F(Presence, AskingDoesNotKeepAnyoneOut) {
    std::atomic<bool> stop{false};
    std::atomic<int> asked{0};
    std::thread asking([&] {
        for (; !stop; ++asked)
            CPresence::IsHeld("here");
    });
    while (asked == 0)
        std::this_thread::yield();
    for (int time = 0; time < 200; ++time) {
        CPresence presence;
        EXPECT_EQ(presence.Acquire("here"), CPresence::Result::Acquired);
    }
    stop = true;
    asking.join();
}

TEST_F(Mailslot, KeepsMessagesApart) {
    CMailslot slot;
    EXPECT_FALSE(WriteToMailslot(Slot, "nobody"));
    ASSERT_TRUE(slot.Create(Slot));
    std::size_t size = 0, waiting = 1;
    std::string message;
    EXPECT_TRUE(slot.GetInfo(size, waiting));
    EXPECT_EQ(waiting, 0U);
    EXPECT_FALSE(slot.WaitFor(0ms));
    EXPECT_FALSE(slot.Read(message));
    const std::string messages[] = {"one", "", std::string("\0\n\r", 3), std::string(50'000, 'x')};
    for (const std::string& text : messages)
        ASSERT_TRUE(WriteToMailslot(Slot, text)) << text.size();
    for (const std::string& text : messages) {
        EXPECT_TRUE(slot.WaitFor(10s));
        ASSERT_TRUE(slot.GetInfo(size, waiting));
        EXPECT_EQ(size, text.size());
        EXPECT_GE(waiting, 1U);
        ASSERT_TRUE(slot.Read(message));
        EXPECT_EQ(message, text);
    }
    EXPECT_FALSE(slot.WaitFor(0ms));
}

TEST_F(Mailslot, WorksInADeepFolder) {
    std::string deep = m_folder.GetPath();
    for (int level = 0; level < 8; ++level)
        deep += "/a folder with a rather long name";
    SetNamedObjectFolder(deep + "/locks", deep + "/slots", NamedObjectScope::Folder);
    CMailslot slot;
    ASSERT_TRUE(slot.Create(Slot));
    std::thread writer([] { EXPECT_TRUE(WriteToMailslot(Slot, "hello")); });
    std::string message;
    EXPECT_TRUE(slot.WaitFor(10s));
    EXPECT_TRUE(slot.Read(message));
    EXPECT_EQ(message, "hello");
    writer.join();
}
