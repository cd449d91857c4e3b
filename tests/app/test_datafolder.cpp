#include <gtest/gtest.h>

#include <filesystem>

#include "app/datafolder.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

TEST(DataFolder, IsMadeWithItsParentsAndHoldsTheFiles) {
    const CTemporaryFolder folder;
    UseDataFolder(folder / "a/b");
    EXPECT_EQ(GetDataFolder(), WithSeparator(folder / "a/b"));
    EXPECT_TRUE(std::filesystem::is_directory(folder / "a/b"));
    EXPECT_EQ(GetConfigFileName(), JoinPath(folder / "a/b", "Lhv.cfg"));
    EXPECT_TRUE(std::filesystem::is_directory(GetLogFolder()));
    EXPECT_THROW(SetDataFolder(folder / "c"), CLhvException);  // in use by now

    // One that could not be made is made once the reason has gone.
    Put(folder / "file", "x");
    UseDataFolder(folder / "file/data");
    EXPECT_FALSE(std::filesystem::exists(GetDataFolder()));
    std::filesystem::remove(folder / "file");
    EXPECT_TRUE(std::filesystem::is_directory(GetDataFolder()));
}
