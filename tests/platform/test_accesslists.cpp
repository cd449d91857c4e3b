#include <windows.h>
// after windows.h
#include <aclapi.h>
#include <gtest/gtest.h>

#include "platform/filemode.h"
#include "temporaryfolder.h"

using namespace Platform;

namespace {

// Every user of the machine, by one of the groups that all are in.
bool IsForEveryone(const std::string& path) {
    PACL list = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    std::wstring name = std::filesystem::path(path).wstring();
    EXPECT_EQ(GetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                    nullptr, &descriptor),
              DWORD{ERROR_SUCCESS});
    bool isFound = list == nullptr;
    for (DWORD at = 0; list && at < list->AceCount; ++at) {
        void* entry = nullptr;
        EXPECT_TRUE(GetAce(list, at, &entry));
        for (const auto group : {WinWorldSid, WinBuiltinUsersSid, WinAuthenticatedUserSid})
            isFound = isFound || IsWellKnownSid(&static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart, group);
    }
    LocalFree(descriptor);
    return isFound;
}

}  // namespace

TEST(AccessLists, SecretsAreNotForEveryUserOfTheMachine) {
    const CTemporaryFolder folder;
    CFile secret, open;
    ASSERT_TRUE(secret.Open(folder / "secret", FileMode::CreateNew, FileAccess::Private) && secret.Write("s"));
    ASSERT_TRUE(open.Open(folder / "open", FileMode::CreateNew) && secret.Close() && open.Close());
    EXPECT_FALSE(IsForEveryone(folder / "secret"));
    EXPECT_EQ(Get(folder / "secret"), "s");
    EXPECT_TRUE(CopyFileMode(folder / "secret", folder / "open"));
    EXPECT_FALSE(IsForEveryone(folder / "open"));
}

// The folder of the system lets every user read what is made in it.
TEST(AccessLists, DataIsNotForEveryUserOfTheMachine) {
    const std::string data = CommonApplicationDataFolder() + "/lhv" + std::to_string(NewGuid().data1);
    ASSERT_TRUE(MakeFolder(data));
    EXPECT_FALSE(IsForEveryone(data));
    EXPECT_TRUE(RemoveEmptyFolder(data));
}
