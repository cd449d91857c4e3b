#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "platform/errorcodes.h"
#include "platform/systemerror.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"

namespace {

std::string Thrown(const std::function<void()>& action) {
    try {
        action();
    } catch (const CLhvException& exception) {
        return exception.GetDescription();
    }
    return "nothing was thrown";
}

}  // namespace

TEST(Errors, ExceptionsDescribeThemselves) {
    const auto code = Platform::NoSpaceError();
    EXPECT_EQ(CLhvException("Disk full").GetDescription(), "Disk full");
    EXPECT_EQ(CLhvException("Error saving 100%s", code).GetDescription(),
              "Error saving 100%s : (0x" + FormatText("%x", code) + ") " + Platform::SystemErrorText(code));
    const std::string plain = Thrown([] { ThrowInternalError("Shared/Engine/stable", 176); });
    EXPECT_EQ(plain.find("Shared/Engine/stable(176) : An internal error has occurred. Please contact"), 0U) << plain;
    const std::string arguments = InternalErrorText("x", 1, InternalErrorKind::InvalidArguments);
    EXPECT_EQ(
        arguments.find("x(1) : An internal error has occurred. Invalid arguments have been passed to the function. "),
        0U);
}

TEST(Errors, TextsAreCutToOneLinePerThread) {
    SetLastErrorText("mine");
    std::thread other([] {
        EXPECT_EQ(DescribeLastError(), "No error description available");
        SetLastErrorText("a\r\nb\nc");
        EXPECT_EQ(GetLastErrorText(), "a b c");
        SetLastErrorText(std::string(3000, 'x'));
        EXPECT_EQ(GetLastErrorText().size(), 1024U);
    });
    other.join();
    EXPECT_EQ(GetLastErrorText(), "mine");
    Platform::SetLastSystemError(Platform::NoSpaceError());
    SetLastErrorFormat("%s: %d", "count", 7);
    EXPECT_EQ(GetLastErrorText(), "count: 7");
    EXPECT_TRUE(Platform::IsNoSpace(Platform::LastSystemError()));
    ClearLastErrorText();
    EXPECT_EQ(GetLastErrorText(), "");
    const std::string large(5000, 'y');
    EXPECT_EQ(FormatText("<%s>", large.c_str()), "<" + large + ">");
}
