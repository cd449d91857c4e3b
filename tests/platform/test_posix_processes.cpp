// What takes a second process: locks and mailslots of one that is killed,
// writers that share a file.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "platform/childprocess.h"
#include "platform/file.h"
#include "platform/mailslot.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "platform/profilefile.h"
#include "temporaryfolder.h"

using namespace Platform;
using namespace std::chrono_literals;

namespace {

// Runs work in a child, which says with ready() that it got there and then
// stays until it is killed, unless work returns.  Its named objects must be
// new: what was open before the fork would be shared.
class CForked {
public:
    explicit CForked(const std::function<bool(const std::function<void()>& ready)>& work) {
        int ends[2];
        if (pipe(ends) != 0) throw std::runtime_error("pipe");
        m_pid = fork();
        if (m_pid == 0) {
            const bool good = work([&] {
                if (write(ends[1], "r", 1) != 1) _exit(2);
                for (;;)
                    pause();
            });
            _exit(good ? 0 : 1);
        }
        close(ends[1]);
        m_fromChild = ends[0];
    }
    CForked(const CForked&) = delete;
    CForked& operator=(const CForked&) = delete;
    ~CForked() {
        Kill();
        close(m_fromChild);
    }

    bool IsReady() const {
        char c = 0;
        return read(m_fromChild, &c, 1) == 1;  // or the child ended
    }
    void Kill() {
        if (m_pid <= 0) return;
        kill(m_pid, SIGKILL);
        Wait();
    }
    pid_t Pid() const { return m_pid; }
    int Wait() {
        int status = -1;
        waitpid(m_pid, &status, 0);
        m_pid = -1;
        return status;
    }

private:
    pid_t m_pid = -1;
    int m_fromChild = -1;
};

class CProcesses : public testing::Test {
protected:
    CProcesses() { SetNamedObjectFolder(m_folder / "locks", m_folder / "slots", NamedObjectScope::Folder); }
    ~CProcesses() override { SetNamedObjectFolder("", "", NamedObjectScope::Folder); }

    CTemporaryFolder m_folder;
};

}  // namespace

using Processes = CProcesses;

TEST_F(Processes, MutexOfAKilledOneIsFree) {
    CForked child([](const auto& ready) {
        CNamedMutex mutex("m");
        mutex.Lock();
        ready();
        return false;
    });
    ASSERT_TRUE(child.IsReady());
    CNamedMutex mutex("m");
    EXPECT_FALSE(mutex.TryLockFor(20ms));
    child.Kill();
    ASSERT_TRUE(mutex.TryLockFor(10s));
    mutex.Unlock();
}

TEST_F(Processes, MailslotOfAKilledOneIsTakenOver) {
    CForked child([](const auto& ready) {
        CMailslot slot;
        if (slot.Create("\\\\.\\mailslot\\log")) ready();
        return false;
    });
    ASSERT_TRUE(child.IsReady());
    CMailslot slot;
    EXPECT_FALSE(slot.Create("\\\\.\\mailslot\\log"));
    // A reader that never reads: writing fails in the end, and never waits.
    int written = 0;
    while (written < 100'000 && WriteToMailslot("\\\\.\\mailslot\\log", std::string(1000, 'x')))
        ++written;
    EXPECT_GT(written, 0);
    EXPECT_LT(written, 100'000);
    child.Kill();
    EXPECT_FALSE(WriteToMailslot("\\\\.\\mailslot\\log", "late"));
    ASSERT_TRUE(slot.Create("\\\\.\\mailslot\\log"));
    ASSERT_TRUE(WriteToMailslot("\\\\.\\mailslot\\log", "new"));
    std::string message;
    EXPECT_TRUE(slot.Read(message));
    EXPECT_EQ(message, "new");
}

// Each adds one under the mutex, by reading and writing again.
TEST_F(Processes, LoseNothingInSharedFiles) {
    constexpr int Times = 100;
    const std::string counter = m_folder / "counter";
    const std::string profile = m_folder / "p.ini";
    Put(counter, std::string(1, '\0') + '\0');
    const auto work = [&](const std::string& name) {
        SetFlushEnabled(false);
        CFile file;
        bool good = file.Open(counter, FileMode::ReadWrite);
        for (int time = 0; good && time < Times; ++time) {
            CNamedMutex mutex("counter");
            mutex.Lock();
            unsigned char bytes[2];
            good = file.ReadAt(0, bytes, 2);
            const int sum = bytes[0] + 256 * bytes[1] + 1;
            bytes[0] = static_cast<unsigned char>(sum % 256);
            bytes[1] = static_cast<unsigned char>(sum / 256);
            good = good && file.WriteAt(0, bytes, 2);
            mutex.Unlock();
            good = good && WriteProfileText(profile, "S", name + std::to_string(time), "x");
        }
        SetFlushEnabled(true);
        return good;
    };
    CForked first([&](const auto&) { return work("a"); });
    CForked second([&](const auto&) { return work("b"); });
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
    const std::string bytes = Get(counter);
    EXPECT_EQ(static_cast<unsigned char>(bytes[0]) + 256 * static_cast<unsigned char>(bytes[1]), 2 * Times);
    EXPECT_EQ(ReadProfileKeys(profile, "S").size(), 2U * Times);
}

TEST_F(Processes, FilesAreForOwnerAndGroupOnly) {
    const mode_t before = umask(0);
    const auto mode = [](const std::string& path) {
        struct stat status;
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0U;
    };
    CFile file;
    EXPECT_TRUE(file.Open(m_folder / "shared", FileMode::CreateNew));
    EXPECT_TRUE(file.Open(m_folder / "private", FileMode::CreateNew, FileAccess::Private));
    EXPECT_TRUE(MakeFolder(m_folder / "folder"));
    SetNamedObjectFolder(m_folder / "l", m_folder / "s", NamedObjectScope::Folder);
    const CNamedMutex mutex("m");
    CMailslot slot;
    EXPECT_TRUE(slot.Create("log"));
    EXPECT_TRUE(WriteProfileText(m_folder / "new.ini", "S", "k", "v"));
    Put(m_folder / "old.ini", "");
    chmod((m_folder / "old.ini").c_str(), 0640);
    EXPECT_TRUE(WriteProfileText(m_folder / "old.ini", "S", "k", "v"));
    umask(before);
    EXPECT_EQ(mode(m_folder / "shared"), 0660U);
    EXPECT_EQ(mode(m_folder / "private"), 0600U);
    EXPECT_EQ(mode(m_folder / "folder"), 0770U);
    EXPECT_EQ(mode(m_folder / "l"), 0770U);
    EXPECT_EQ(mode(m_folder / "l/m.lock"), 0660U);
    EXPECT_EQ(mode(m_folder / "s/log"), 0660U);
    EXPECT_EQ(mode(m_folder / "new.ini"), 0660U);
    EXPECT_EQ(mode(m_folder / "old.ini"), 0640U);
}

TEST_F(Processes, FirstStopSignalOnlySetsAFlagTheSecondEnds) {
    CForked child([](const auto& ready) {
        CatchStopSignals();
        raise(SIGINT);
        if (StopSignalled()) ready();
        return false;
    });
    ASSERT_TRUE(child.IsReady());
    ASSERT_EQ(kill(child.Pid(), SIGINT), 0);
    const int status = child.Wait();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT);
}

TEST_F(Processes, ChildrenAreStartedWaitedForAndKilled) {
    CChildProcess child;
    int status = -1;
    ASSERT_TRUE(
        child.Start("/bin/sh", {"-c", "echo \"$NAME $0\"; exit 3", "a b"}, {{"NAME=value"}, m_folder / "output", {}}));
    ASSERT_TRUE(child.WaitFor(10s, status));
    EXPECT_EQ(status, 3);
    EXPECT_EQ(Get(m_folder / "output"), "value a b\n");
    ASSERT_TRUE(child.Start("/bin/sleep", {"1000"}));
    EXPECT_TRUE(child.IsRunning());
    EXPECT_TRUE(child.Kill());
    ASSERT_TRUE(child.WaitFor(0s, status));
    EXPECT_EQ(status, 256 + SIGKILL);
    EXPECT_FALSE(child.Start(m_folder / "missing", {}));
}
