#include <windows.h>
// after windows.h
#include <aclapi.h>
#include <gtest/gtest.h>

#include <array>

#include "platform/file.h"
#include "platform/filemode.h"
#include "platform/guid.h"
#include "platform/knownfolders.h"
#include "temporaryfolder.h"

using namespace Platform;

namespace {

bool IsWellKnown(PSID who, WELL_KNOWN_SID_TYPE type) {
    return IsWellKnownSid(who, type) != 0;
}

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
        PSID const who = &static_cast<ACCESS_ALLOWED_ACE*>(entry)->SidStart;
        isFound = isFound || IsWellKnown(who, WinWorldSid) || IsWellKnown(who, WinBuiltinUsersSid) ||
                  IsWellKnown(who, WinAuthenticatedUserSid);
    }
    LocalFree(descriptor);
    return isFound;
}

void Create(const std::string& path, FileAccess access) {
    CFile file;
    ASSERT_TRUE(file.Open(path, FileMode::CreateNew, access) && file.Write(path));
}

}  // namespace

TEST(AccessLists, SecretsAreForTheirOwner) {
    const CTemporaryFolder folder;
    Create(folder / "secret", FileAccess::Private);
    Create(folder / "replaced", FileAccess::Private);
    EXPECT_FALSE(IsForEveryone(folder / "secret"));
    EXPECT_EQ(Get(folder / "secret"), folder / "secret");
    Create(folder / "next", FileAccess::Group);
    const bool wasForEveryone = IsForEveryone(folder / "next");
    EXPECT_TRUE(CopyFileMode(folder / "secret", folder / "next"));
    EXPECT_FALSE(IsForEveryone(folder / "next"));
    Create(folder / "another", FileAccess::Group);
    EXPECT_TRUE(CopyFileMode(folder / "another", folder / "secret"));
    EXPECT_EQ(IsForEveryone(folder / "secret"), wasForEveryone);
}

// The folder of the system lets every user read what is made in it.  That
// files inherit the list is up to the file system, and not looked at.
TEST(AccessLists, DataIsNotForEveryUserOfTheMachine) {
    const std::string data = CommonApplicationDataFolder() + "/lhv" + std::to_string(NewGuid().data1);
    ASSERT_TRUE(MakeFolder(data));
    EXPECT_FALSE(IsForEveryone(data));
    Create(data + "/file", FileAccess::Group);
    EXPECT_EQ(Get(data + "/file"), data + "/file");
    RemoveTemporaryTree(data);
}
