#include <gtest/gtest.h>

#include <filesystem>

#include "app/datafolder.h"
#include "platform/knownfolders.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

TEST(DataFolder, IsMadeWithItsParentsAndHoldsTheFiles) {
    const CTemporaryFolder folder;
    UseDataFolder(folder / "a/b");
    const std::string path = Platform::CanonicalFolder(folder / "a/b");
    EXPECT_EQ(GetDataFolder(), WithSeparator(path));
    EXPECT_TRUE(std::filesystem::is_directory(folder / "a/b"));
    EXPECT_EQ(GetConfigFileName(), JoinPath(path, "Lhv.cfg"));
    UseDataFolder(folder / "a/../a/./b/");  // names of mutexes hold the path
    EXPECT_EQ(GetDataFolder(), WithSeparator(path));
    EXPECT_TRUE(std::filesystem::is_directory(GetLogFolder()));
    EXPECT_THROW(SetDataFolder(folder / "c"), CLhvException);  // in use by now

    // One that could not be made is made once the reason has gone.
    Put(folder / "file", "x");
    UseDataFolder(folder / "file/data");
    EXPECT_FALSE(std::filesystem::exists(GetDataFolder()));
    std::filesystem::remove(folder / "file");
    EXPECT_TRUE(std::filesystem::is_directory(GetDataFolder()));
}
