#include <windows.h>

#include <gtest/gtest.h>

#include "platform/profilefile.h"
#include "temporaryfolder.h"

using namespace Platform;

namespace {

std::wstring Wide(const std::string& path) {
    return std::filesystem::path(path).wstring();
}

std::string SystemRead(const std::string& path, const wchar_t* section, const wchar_t* key) {
    wchar_t value[300];
    const DWORD length = GetPrivateProfileStringW(section, key, L"default", value, 300, Wide(path).c_str());
    return std::string(value, value + length);
}

}  // namespace

// Other programs, and earlier versions, use the functions of the system.
TEST(SystemProfile, ReadsWhatWeWriteAndTheOtherWayRound) {
    const CTemporaryFolder folder;
    const std::string path = folder / "Lhv.cfg";
    const char* values[] = {"12", "", "a=b;c", "two words", "\"quoted\"", "'single'", "C:\\folder\\", "-5"};
    for (const char* value : values) {
        SCOPED_TRACE(value);
        ASSERT_TRUE(WriteProfileText(path, "General", "Ours", value));
        EXPECT_EQ(SystemRead(path, L"general", L"OURS"), ReadProfileText(path, "General", "Ours", ""));
        const std::wstring wide(value, value + std::string_view(value).size());
        ASSERT_TRUE(WritePrivateProfileStringW(L"Execution", L"Theirs", wide.c_str(), Wide(path).c_str()));
        EXPECT_EQ(ReadProfileText(path, "Execution", "Theirs", "default"), SystemRead(path, L"Execution", L"Theirs"));
        if (wide.empty()) continue;  // as a number it is 0 for us, and the default for some systems
        EXPECT_EQ(ReadProfileNumber(path, "execution", "theirs", 7),
                  static_cast<int>(GetPrivateProfileIntW(L"Execution", L"Theirs", 7, Wide(path).c_str())));
    }
    ASSERT_TRUE(WritePrivateProfileStringW(L"Execution", L"Theirs", nullptr, Wide(path).c_str()));
    EXPECT_EQ(ReadProfileText(path, "Execution", "Theirs", "default"), "default");
    ASSERT_TRUE(RemoveProfileKey(path, "General", "Ours"));
    EXPECT_EQ(SystemRead(path, L"General", L"Ours"), "default");
}
