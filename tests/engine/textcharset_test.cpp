#include "engine/textcharset.h"

#include <gtest/gtest.h>

#include <string>

#include "mime/mimemessage.h"

TEST(TextCharset, TextsWithDataFieldsBecomeUtf8) {
    const struct {
        const char* contentType;
        const char* text;
        const char* expectedType;
        const char* expectedText;
    } cases[] = {
        {"text/plain; charset=us-ascii", "Dear $(Name)", "text/plain; charset=\"utf-8\"", "Dear $(Name)"},
        {"text/plain", "Dear $(Name)", "text/plain; charset=\"utf-8\"", "Dear $(Name)"},
        {"text/plain; charset=\"iso-8859-1\"; format=flowed", "Caf\xE9 $(Name)",
         "text/plain; charset=\"utf-8\"; format=flowed", "Caf\xC3\xA9 $(Name)"},
        {"text/html; CHARSET=Windows-1252", "\x80 5 $(Name)", "text/html; charset=\"utf-8\"", "\xE2\x82\xAC 5 $(Name)"},
        {"text/plain", "Caf\xC3\xA9 $(Name)", "text/plain; charset=\"utf-8\"", "Caf\xC3\xA9 $(Name)"},
        {"text/plain; charset=koi8-r", "\xF0 $(Name)", "text/plain; charset=koi8-r", "\xF0 $(Name)"},
        {"text/plain; charset=koi8-r", "Dear $(Name)", "text/plain; charset=\"utf-8\"", "Dear $(Name)"},
        {"text/plain; charset=us-ascii", "Dear all", "text/plain; charset=us-ascii", "Dear all"},
        {"text/plain; charset=UTF-8", "$(Name)", "text/plain; charset=UTF-8", "$(Name)"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::string(test.contentType) + ": " + test.text);
        CMimeMessage message;
        ASSERT_TRUE(message.LoadText("From: a@example.net\nContent-Type: " + std::string(test.contentType) +
                                     "\nContent-Transfer-Encoding: 8bit\n\n" + test.text + "\n"));
        UseUtf8ForDataFields(message);
        EXPECT_EQ(message.GetRoot()->GetField("Content-Type"), test.expectedType);
        EXPECT_EQ(message.GetRoot()->GetBody(), test.expectedText);
    }
}

TEST(TextCharset, HeaderLinesWithDataFieldsBecomeUtf8) {
    const struct {
        const char* stored;
        const char* expected;
    } cases[] = {
        {"=?iso-8859-1?Q?f=FCr?= $(Name)", "f\xC3\xBCr $(Name)"},
        {"f\xFCr $(Name)", "f\xC3\xBCr $(Name)"},
        {"=?utf-8?Q?f=C3=BCr?= $(Name)", "f\xC3\xBCr $(Name)"},
        {"=?koi8-r?Q?=F0?= $(Name)", "\xF0 $(Name)"},
        {"=?iso-8859-1?Q?f=FCr?= all", "f\xFCr all"},
    };
    for (const auto& test : cases) {
        CMimeMessage message;
        ASSERT_TRUE(message.LoadText("Subject: " + std::string(test.stored) + "\n\nx\n"));
        UseUtf8ForDataFields(message);
        EXPECT_EQ(message.GetRoot()->GetField("Subject"), test.expected) << test.stored;
    }
}
