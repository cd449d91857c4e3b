#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <thread>

#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/files.h"
#include "utility/flushfiles.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/uniquename.h"

namespace {

std::set<std::string> NamesIn(const std::string& folder) {
    std::set<std::string> names;
    EXPECT_TRUE(ListFolder(folder, "*", [&](const std::string& name, bool) { return names.insert(name).second; }));
    return names;
}

using Platform::CFaultPlan;
using Platform::Operation;

// Lets the n-th operation of step() fail, for every n until none does; check()
// looks at what is there then.
template <class F, class G>
void UnderEveryFault(CFaultPlan::After after, F step, G check) {
    for (unsigned n = 1;; ++n) {
        ASSERT_LT(n, 100U);
        bool wasHit = false;
        bool isDone = false;
        {
            const CFaultPlan plan(Operation::Any, n, after);
            isDone = step();
            wasHit = plan.WasHit();
        }
        EXPECT_TRUE(isDone || wasHit);
        check(isDone);
        if (!wasHit) return;
        if (testing::Test::HasFailure()) FAIL() << "at operation " << n;
    }
}

}  // namespace

TEST(WholeFiles, AReplacedFileIsAlwaysTheOldOrTheNewOne) {
    const CTemporaryFolder folder;
    const std::string path = folder / "Lhv.cfg";
    const std::string before(100000, 'o');
    const std::string after(50000, 'n');
    Put(path, before);
    UnderEveryFault(
        CFaultPlan::After::Recovers, [&] { return WriteFileAtomically(path, after); },
        [&](bool done) {
            const std::string content = Get(path);
            EXPECT_TRUE(content == after || (!done && content == before));
            EXPECT_TRUE(done || !GetLastErrorText().empty());
            EXPECT_EQ(NamesIn(folder.GetPath()).size(), 1U);
            ClearLastErrorText();
            Put(path, before);
        });
    Put(folder / "source", after);
    UnderEveryFault(
        CFaultPlan::After::Recovers, [&] { return CopyWholeFile(folder / "source", path); },
        [&](bool done) {
            const std::string content = Get(path);
            EXPECT_TRUE(content == after || (!done && content == before));
            EXPECT_EQ(NamesIn(folder.GetPath()).size(), 2U);
            Put(path, before);
        });
}

TEST(Folders, AreMadeWithTheirParentsAndRemovedWhole) {
    const CTemporaryFolder folder;
    const std::string deep = folder / "a/b/c/";
    ASSERT_TRUE(EnsureFolder(deep));
    ASSERT_TRUE(EnsureFolder(deep));
    EXPECT_TRUE(FolderIsEmpty(deep));
    Put(folder / "a/file", "x");
    EXPECT_FALSE(EnsureFolder(folder / "a/file"));
    EXPECT_FALSE(EnsureFolder(folder / "a/file/below"));
    EXPECT_FALSE(RemoveFolderTree(folder / "a/file"));

    EXPECT_TRUE(RemoveFolderTree(folder / "a"));
    EXPECT_TRUE(NamesIn(folder.GetPath()).empty());
    EXPECT_TRUE(RemoveFolderTree(folder / "a"));
}

TEST(Folders, AreRemovedWithoutWhatLinksInThemLeadTo) {
    const CTemporaryFolder folder;
    ASSERT_TRUE(EnsureFolder(folder / "outside") && EnsureFolder(folder / "a/b"));
    Put(folder / "outside/kept", "x");
    std::error_code fault;
    std::filesystem::create_directory_symlink(folder / "outside", folder / "a/b/link", fault);
    if (fault == std::errc::function_not_supported) GTEST_SKIP() << "the C++ library makes no links on this system";
    ASSERT_FALSE(fault) << fault.message();
    std::filesystem::create_symlink(folder / "outside/kept", folder / "a/filelink");
    EXPECT_TRUE(RemoveFolderTree(folder / "a"));
    EXPECT_EQ(NamesIn(folder.GetPath()), std::set<std::string>{"outside"});
    EXPECT_EQ(Get(folder / "outside/kept"), "x");
}

TEST(NewFile, IsPublishedWholeOrNotThereAtAll) {
    const CTemporaryFolder folder;
    for (const auto after : {CFaultPlan::After::Recovers, CFaultPlan::After::Stays}) {
        std::size_t published = 0;
        UnderEveryFault(
            after,
            [&] {
                CNewFile file;
                return file.Create(folder.GetPath(), "eml") && file.Write("first ") && file.Write("second") &&
                       file.Publish();
            },
            [&](bool done) {
                published += done;
                // When removing fails too, a .tmp file may stay, but nothing that looks like a message.
                std::size_t messages = 0;
                for (const std::string& name : NamesIn(folder.GetPath())) {
                    EXPECT_TRUE(after == CFaultPlan::After::Stays || !name.ends_with(".tmp")) << name;
                    if (!name.ends_with(".eml")) continue;
                    ++messages;
                    EXPECT_EQ(Get(folder / name), "first second");
                }
                EXPECT_EQ(messages, published);
            });
        ASSERT_TRUE(RemoveFolderTree(folder.GetPath()) && EnsureFolder(folder.GetPath()));
    }
}

TEST(NewFile, OutlivesItsObjectOnlyWhenKept) {
    const CTemporaryFolder folder;
    std::string kept;
    std::string finalPath;
    {
        CNewFile dropped;
        CNewFile file;
        ASSERT_TRUE(dropped.Create(folder.GetPath(), "eml") && file.Create(folder.GetPath(), "eml"));
        CNewFile moved(std::move(file));
        ASSERT_TRUE(moved.Write("x") && moved.FinishWriting());
        kept = moved.GetTemporaryPath();
        finalPath = moved.GetFinalPath();
        moved.Keep();
    }
    EXPECT_EQ(NamesIn(folder.GetPath()), std::set<std::string>{LastPathComponent(kept)});
    Put(finalPath, "somebody else's");
    EXPECT_FALSE(CNewFile::PublishAs(kept, finalPath));
    EXPECT_TRUE(Platform::IsAlreadyThere(Platform::LastSystemError()));
    EXPECT_EQ(Get(finalPath), "somebody else's");
    ASSERT_TRUE(Platform::RemoveFile(finalPath));
    EXPECT_TRUE(CNewFile::PublishAs(kept, finalPath));
    EXPECT_FALSE(CNewFile::PublishAs(kept, finalPath));
}

TEST(FlushTogether, FailsWhereverOneOfThemDoes) {
    using Platform::Operation;
    const CTemporaryFolder folder;
    std::vector<std::string> files;
    for (int i = 0; i < 40; ++i) {
        files.push_back(folder / (std::to_string(i) + ".tmp"));
        Put(files.back(), "x");
    }
    const std::vector<std::string> folders = {folder.GetPath(), folder / "gone"};
    for (const Operation operation : {Operation::Open, Operation::Flush}) {
        for (unsigned n = 1; n <= files.size() + 1; n += 8) {
            const Platform::CFaultPlan plan(operation, n);
            EXPECT_EQ(FlushTogether(files, {}), n > files.size()) << n;
            EXPECT_TRUE(!plan.WasHit() || Platform::IsNoSpace(Platform::LastSystemError())) << n;
        }
    }
    EXPECT_TRUE(FlushFoldersThatAreThere(folders));
    EXPECT_FALSE(FlushTogether(files, folders));
    EXPECT_NE(GetLastErrorText().find(folders[1]), std::string::npos);
}

TEST(UniqueNames, AreUniqueAmongThreads) {
    const CTemporaryFolder folder;
    constexpr int Threads = 4;
    constexpr int Each = 100;
    const std::string queue = folder / "queue";
    ASSERT_TRUE(EnsureFolder(queue) && EnsureFolder(folder / "sources"));
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < Each; ++i) {
                const std::string content = std::to_string(t) + "-" + std::to_string(i);
                const std::string source = folder / ("sources/" + content);
                Put(source, content);
                std::string path;
                EXPECT_TRUE(MoveToUniqueName(source, queue, "eml", path)) << GetLastErrorText();
                EXPECT_EQ(Get(path), content);
                EXPECT_FALSE(Platform::FileIsThere(source));
                EXPECT_TRUE(MakeUniqueFolder(queue, path));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(NamesIn(queue).size(), 2U * Threads * Each);
    EXPECT_TRUE(FolderIsEmpty(folder / "sources"));

    std::string path = "unchanged";
    EXPECT_FALSE(MoveToUniqueName(folder / "none", queue, "eml", path));
    EXPECT_EQ(path, "unchanged");
}
