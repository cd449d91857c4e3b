// What only POSIX systems have: permissions of files (Windows' access lists come
// from the folder), and the files behind named objects (Windows' have none).

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <thread>

#include "platform/file.h"
#include "platform/mailslot.h"
#include "platform/namedmutex.h"
#include "platform/posix/renamebylink.h"
#include "platform/profilefile.h"
#include "platform/systemerror.h"
#include "temporaryfolder.h"

using namespace Platform;

// A kill in between must not leave a message twice, nor a name that is written in two ways take it away.
TEST(PosixFiles, AFileWithBothNamesIsMoved) {
    const CTemporaryFolder folder;
    Put(folder / "first", "text");
    Put(folder / "other", "other");
    ASSERT_TRUE(LinkFile(folder / "first", folder / "third"));
    const auto move = [&](const std::string& from, const std::string& to) {
        return RenameByLink((folder / from).c_str(), (folder / to).c_str());
    };
    for (const char* to : {"first", "./first", "../", "other"}) {
        EXPECT_FALSE(move("first", to)) << to;
        EXPECT_TRUE(IsAlreadyThere(LastSystemError())) << to;
    }
    EXPECT_EQ(Get(folder / "first") + Get(folder / "other"), "textother");
    EXPECT_TRUE(move("first", "third"));
    EXPECT_FALSE(move("first", "third"));
    EXPECT_TRUE(IsNotFound(LastSystemError()));
    EXPECT_TRUE(move("third", "last"));
    EXPECT_EQ(Get(folder / "last"), "text");
}

TEST(PosixModes, FilesAreForOwnerAndGroupOnly) {
    const CTemporaryFolder folder;
    const mode_t before = umask(0);
    const auto mode = [](const std::string& path) {
        struct stat status;
        return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777U : 0U;
    };
    CFile file;
    EXPECT_TRUE(file.Open(folder / "shared", FileMode::CreateNew));
    EXPECT_TRUE(file.Open(folder / "private", FileMode::CreateNew, FileAccess::Private));
    EXPECT_TRUE(MakeFolder(folder / "folder"));
    SetNamedObjectFolder(folder / "l", folder / "s", NamedObjectScope::Folder);
    const CNamedMutex mutex("m");
    CMailslot slot;
    EXPECT_TRUE(slot.Create("log"));
    EXPECT_TRUE(WriteProfileText(folder / "new.ini", "S", "k", "v"));
    Put(folder / "old.ini", "");
    chmod((folder / "old.ini").c_str(), 0640);
    EXPECT_TRUE(WriteProfileText(folder / "old.ini", "S", "k", "v"));
    SetNamedObjectFolder("", "", NamedObjectScope::Machine);
    umask(before);
    EXPECT_EQ(mode(folder / "shared"), 0660U);
    EXPECT_EQ(mode(folder / "private"), 0600U);
    EXPECT_EQ(mode(folder / "folder"), 0770U);
    EXPECT_EQ(mode(folder / "l"), 0770U);
    EXPECT_EQ(mode(folder / "l/m.lock"), 0660U);
    EXPECT_EQ(mode(folder / "s/log"), 0660U);
    EXPECT_EQ(mode(folder / "new.ini"), 0660U);
    EXPECT_EQ(mode(folder / "old.ini"), 0640U);
}

// Without folder, and in one that cannot be made.
TEST(PosixObjects, MutexWithoutFileExcludesThreads) {
    const CTemporaryFolder folder;
    Put(folder / "file", "");
    for (const std::string& locks : {std::string(), folder / "file"}) {
        SetNamedObjectFolder(locks, "", NamedObjectScope::Folder);
        CNamedMutex mutex("m");
        EXPECT_FALSE(mutex.IsShared());
        mutex.Lock();
        std::thread([] { EXPECT_FALSE(CNamedMutex("m").TryLockFor(std::chrono::milliseconds(10))); }).join();
        mutex.Unlock();
    }
}

TEST(PosixObjects, MutexOutlivesTheRemovalOfItsFile) {
    const CTemporaryFolder folder;
    SetNamedObjectFolder(folder / "locks", "", NamedObjectScope::Folder);
    CNamedMutex mutex("m");
    std::filesystem::remove_all(folder / "locks");
    std::filesystem::create_directory(folder / "locks");
    mutex.Lock();
    EXPECT_FALSE(std::filesystem::is_empty(folder / "locks"));
    mutex.Unlock();
    SetNamedObjectFolder("", "", NamedObjectScope::Machine);
}
