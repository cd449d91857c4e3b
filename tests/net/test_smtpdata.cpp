// Messages as they go over the wire, cut into blocks at every place.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "net/smtpdata.h"

using namespace Net;

namespace {

std::string Encode(std::string_view message, const std::vector<std::size_t>& cuts) {
    CSmtpDataEncoder encoder;
    std::string wire;
    std::size_t begin = 0;
    for (const std::size_t cut : cuts) {
        encoder.Add(message.substr(begin, cut - begin), wire);
        begin = cut;
    }
    encoder.Add(message.substr(begin), wire);
    encoder.Finish(wire);
    return wire;
}

}  // namespace

TEST(SmtpData, EveryLineEndsOnceAndDotsAreDoubled) {
    const std::pair<std::string, std::string> Cases[] = {
        {"", ".\r\n"},
        {"a", "a\r\n.\r\n"},
        {"a\nb\n", "a\r\nb\r\n.\r\n"},
        {"a\r\nb\r\n", "a\r\nb\r\n.\r\n"},
        {"a\r\r\nb", "a\r\nb\r\n.\r\n"},
        {"a\r\r\r\nb", "a\r\n\r\nb\r\n.\r\n"},
        {"a\rb\r", "a\r\nb\r\n.\r\n"},
        {"a\r\rb", "a\r\n\r\nb\r\n.\r\n"},
        {"\n\n", "\r\n\r\n.\r\n"},
        {"\n\r\n\r", "\r\n\r\n\r\n.\r\n"},
        {".\n..\n.a\nb.\n", "..\r\n...\r\n..a\r\nb.\r\n.\r\n"},
        {".", "..\r\n.\r\n"},
        // Ends of data that only some servers see.
        {"a\n.\nMAIL", "a\r\n..\r\nMAIL\r\n.\r\n"},
        {"a\r.\rMAIL", "a\r\n..\r\nMAIL\r\n.\r\n"},
        {"a\r\n.\rMAIL", "a\r\n..\r\nMAIL\r\n.\r\n"},
        {"a\n.\r\nMAIL", "a\r\n..\r\nMAIL\r\n.\r\n"},
        {"a\r\r\n.\r\r\nMAIL", "a\r\n..\r\nMAIL\r\n.\r\n"},
        {std::string("\0\xff\t\n", 4), std::string("\0\xff\t\r\n.\r\n", 8)},
    };
    for (const auto& [message, wire] : Cases)
        for (std::size_t first = 0; first <= message.size(); ++first)
            for (std::size_t second = first; second <= message.size(); ++second)
                EXPECT_EQ(Encode(message, {first, second}), wire) << message << " cut at " << first << ", " << second;
}

TEST(SmtpData, NoMessageCanEndItself) {
    std::mt19937 random(4711);
    for (int round = 0; round < 3000; ++round) {
        std::string message(random() % 40, ' ');
        for (char& c : message)
            c = "\r\n.a"[random() % 4];
        const std::string wire = Encode(message, {message.size() / 2});
        ASSERT_TRUE(wire.ends_with(".\r\n"));
        const std::string text = "\r\n" + wire.substr(0, wire.size() - 3);
        ASSERT_EQ(text.find("\r\n.\r\n"), std::string::npos) << message;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '\r') {
                ASSERT_EQ(text.substr(i, 2), "\r\n") << message;
            }
            if (text[i] == '\n') {
                ASSERT_TRUE(i > 0 && text[i - 1] == '\r') << message;
            }
        }
    }
}
