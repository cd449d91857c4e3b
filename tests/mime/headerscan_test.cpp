#include "mime/headerscan.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <string>

#include "platform/faultplan.h"
#include "utility/files.h"
#include "utility/lasterror.h"

namespace {

constexpr std::array<std::string_view, 3> Names = {"To", "Subject", "X-Lhv-Recipient-Override"};

// "Name=value" of each found field.
std::string Scanned(std::string_view text, HeaderForm form = HeaderForm::Decoded) {
    CHeaderValues values;
    ScanHeaderFields(text, Names, values, form);
    std::string result;
    for (const auto& [name, value] : values)
        result += name + "=" + value + ";";
    return result;
}

TEST(ScanHeaderFields, Table) {
    const std::array<std::array<std::string_view, 2>, 11> cases = {{
        {"To: a@b\nFrom: c@d\n\nTo: e@f\n", "To=a@b;"},
        {"to: a@b\r\nSUBJECT:  x \r\n\r\nbody", "Subject=x;To=a@b;"},
        {"To: a@b,\r\n\tc@d\r\n  , e@f\r\nFrom: x\r\n y\r\n\r\n", "To=a@b, c@d , e@f;"},
        {"To: a@b\nTo: c@d\n e@f\n\n", "To=a@b;"},
        {"\nTo: a@b\n\n", ""},
        {"\r\r\nTo: a@b\n\n", ""},
        {"From: x\r\r\nTo: a@b\r\r\n\r\r\nSubject: y", "To=a@b;"},
        {"From: x\n\r\nTo: a@b\n\n", ""},
        {" To: x\nTo : a@b", "To=a@b;"},
        {"To: a@b,\nc@d\n\n", "To=a@b, c@d;"},
        {"Subject: =?utf-8?Q?M=C3=B6we?=\n\n", "Subject=M\xC3\xB6we;"},
    }};
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(Scanned(text), expected) << text;
    EXPECT_EQ(Scanned("To: =?utf-8?Q?a=2C?=\n <b@c>\n\n", HeaderForm::Stored), "To==?utf-8?Q?a=2C?= <b@c>;");
}

TEST(ReadHeaderFields, ReadsOnlyTheHeaderOfAFile) {
    const std::string path = (std::filesystem::path(testing::TempDir()) / "headerscan.eml").string();
    CHeaderValues values;
    // Paddings around the step of reading: the empty line may be cut anywhere.
    for (std::size_t padding = 16384 - 40; padding < 16384 + 4; ++padding) {
        const std::string text =
            "X: " + std::string(padding, 'x') + "\r\nSubject: s\r\nTo: a@b\r\n\r\nX-Lhv-Recipient-Override: no";
        ASSERT_TRUE(WriteFileAtomically(path, text));
        ASSERT_TRUE(ReadHeaderFields(path, Names, values));
        EXPECT_EQ(values, (CHeaderValues{{"Subject", "s"}, {"To", "a@b"}}));
    }
    ASSERT_TRUE(WriteFileAtomically(path, "To: a@b\r\nX: " + std::string(1100000, 'x') + "\r\n\r\n"));
    EXPECT_TRUE(ReadHeaderFields(path, Names, values));
    EXPECT_TRUE(values.empty());
    {
        const Platform::CFaultPlan plan(Platform::Operation::Read, 3);
        EXPECT_FALSE(ReadHeaderFields(path, Names, values));
    }
    std::filesystem::remove(path);
    ClearLastErrorText();
    EXPECT_FALSE(ReadHeaderFields(path, Names, values));
    EXPECT_FALSE(GetLastErrorText().empty());
}

}  // namespace
