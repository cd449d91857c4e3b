// Inputs that a stranger makes to hang or to break a parser.  The bound of
// each is a hundred times what it takes, and far below what quadratic work
// would.

#include <gtest/gtest.h>

#include <string>

#include "mime/createentity.h"
#include "mime/mimemessage.h"
#include "mime/mimemultipart.h"
#include "mime/mimewalk.h"
#include "platform/clock.h"
#include "tests/utility/repeat.h"

namespace {

constexpr std::uint32_t Bound = 20000;  // milliseconds, for slow machines with checks on

enum class Again { Same, Differs };

CSharedPointer<CMimeEntity> ParseInTime(std::string text, Again again = Again::Same) {
    const std::uint32_t start = Platform::ClockMilliseconds();
    const auto entity = CreateEntity(std::move(text));
    const std::string written = entity->GetText();
    EXPECT_EQ(CreateEntity(written)->GetText() == written, again == Again::Same);
    EXPECT_LT(Platform::ClockMilliseconds() - start, Bound);
    return entity;
}

TEST(HostileMime, HeaderOverTheLimitIsKeptAsBody) {
    for (const char* line : {"X-Line: value\n", " continued and continued\n", "no colon at all in here\n"}) {
        const std::string text = "Subject: x\n" + Repeat(line, 1000000) + "\nbody\n";
        const auto entity = ParseInTime(text);
        EXPECT_EQ(entity->GetHeader().GetFieldCount(), 0u);
        EXPECT_EQ(entity->GetText(), text);
    }
}

TEST(HostileMime, LargestHeaderThatIsRead) {
    const std::string line = "a:\n";
    const auto entity = ParseInTime(Repeat(line, 340000) + "\nbody");
    EXPECT_EQ(entity->GetHeader().GetFieldCount(), 340000u);
    CMimeHeader copy;
    copy.CopyMissingFields(entity->GetHeader());
    EXPECT_EQ(copy.GetFieldCount(), 340000u);
    ParseInTime("Subject: " + Repeat("=?x?Q?", 150000) + "\n\nbody");
    ParseInTime("Content-Type: " + Repeat("multipart/mixed;boundary=", 40000) + "\n\nbody");
}

TEST(HostileMime, DeepNestingIsKept) {
    for (const std::string subType : {"mixed", "alternative", "digest"}) {
        std::string text;
        for (int i = 0; i < 10000; ++i) {
            const std::string boundary = "B" + std::to_string(i);
            text += "Content-Type: multipart/" + subType + "; boundary=" + boundary + "\n\n--" + boundary + "\n";
        }
        text += "\nthe innermost text";
        const std::string written = ParseInTime(text, Again::Differs)->GetText();
        EXPECT_NE(written.find("the innermost text"), std::string::npos);
        EXPECT_NE(written.find("boundary=B9999"), std::string::npos);
    }
}

TEST(HostileMime, ManyParts) {
    const std::string head = "Content-Type: multipart/mixed; boundary=B\n\n";
    const auto attachments = ParseInTime(head + Repeat("--B\nContent-Type: image/png\n\nx\n", 100000) + "--B--\n");
    EXPECT_EQ(attachments.As<CMimeMultipart>()->GetPartCount(), 100000u);
    const auto texts = ParseInTime(
        head + Repeat("--B\nContent-Type: image/png\n\nx\n", 50000) + Repeat("--B\n\nsome text\n", 50000) + "--B--\n",
        Again::Differs);
    EXPECT_EQ(texts.As<CMimeMultipart>()->GetPartCount(), 50001u);
    for (const std::string type : {"text/html", "text/plain\nContent-Transfer-Encoding: base64", "x/y"})
        ParseInTime("Content-Type: multipart/alternative; boundary=B\n\n" +
                    Repeat("--B\nContent-Type: " + type + "\n\nQUJD\n", 100000) + "--B--\n");
    // Texts that cannot be joined.
    ParseInTime("Content-Type: multipart/alternative; boundary=B\n\n" +
                Repeat("--B\nContent-Transfer-Encoding: base64\n\nQQBB\n", 50000) + Repeat("--B\n\nx\n", 50000) +
                "--B--\n");
}

TEST(HostileMime, BoundariesWithoutEnd) {
    ParseInTime("Content-Type: multipart/mixed; boundary=\"" + std::string(1000000, 'b') + "\n\n" +
                Repeat("--" + std::string(1000, 'b') + "\n", 2000));
    ParseInTime("Content-Type: multipart/mixed; boundary=-\n\n" + Repeat("---\n", 500000));
    ParseInTime("Content-Type: multipart/mixed; boundary=B\n\n" + Repeat("--B\n\n", 500000));
    ParseInTime("Content-Type: multipart/mixed; boundary=B\n\n" + std::string(5000000, '\n') + "--B");
    ParseInTime("Content-Type: multipart/mixed; boundary=B\n\n--B\n\n" + Repeat("--B x\n", 500000) + "--B--");
}

TEST(HostileMime, OddBytes) {
    ParseInTime(std::string(1000000, '\0'));
    ParseInTime(std::string(3000000, '\r'));
    ParseInTime(std::string(3000000, '\r') + "\n");
    ParseInTime("Subject: x\r" + Repeat("\r\n", 1000000));
    ParseInTime(std::string(1000000, ':') + "\n\n" + std::string(1000000, '='));
    for (int c = 0; c < 256; ++c) {
        for (const std::string& text :
             {std::string(1, static_cast<char>(c)), std::string("A:\n\n") + static_cast<char>(c)})
            ParseInTime(text);
    }
}

}  // namespace
