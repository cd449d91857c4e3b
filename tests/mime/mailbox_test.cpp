#include "mime/mailbox.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <string>

#include "mime/htmlconversion.h"
#include "sourcefolder.h"
#include "utility/text.h"

namespace {

// "name|address" of each mailbox.
std::string Listed(const std::vector<CMailbox>& mailboxes) {
    std::vector<std::string> parts;
    for (const CMailbox& mailbox : mailboxes)
        parts.push_back(mailbox.displayName + "|" + mailbox.address);
    return Join(parts, " & ");
}

struct Example {
    std::string value;
    std::string expected;
};

TEST(ParseMailboxes, ReadsWhatMailHolds) {
    const std::array<Example, 28> examples = {{
        {"", ""},
        {"a@b.example", "|a@b.example"},
        {"Anna Berg <a@b.example>", "Anna Berg|a@b.example"},
        {"\"Berg, \\\"Anna\\\"\" <a@b.example>, c@d.example", "Berg, \"Anna\"|a@b.example & |c@d.example"},
        {"a@b.example (Anna (the elder) Berg)", "Anna (the elder) Berg|a@b.example"},
        {"Crew: a@b.example, C <c@d.example>; e@f.example", "|a@b.example & C|c@d.example & |e@f.example"},
        {"undisclosed-recipients:;", ""},
        {"<@r.example,@s.example:a@b.example>", "|a@b.example"},
        {"a . b @ c . example", "|a.b@c.example"},
        {"\"a b\"@c.example", "|\"a b\"@c.example"},
        {"\"a@b\"@c.example", "|\"a@b\"@c.example"},
        {"X <\"a>b\"@c.example>", "X|\"a>b\"@c.example"},
        {"a@[IPv6:2001:db8::1], b@c.example", "|a@[IPv6:2001:db8::1] & |b@c.example"},
        {"Berg, Anna <a@b.example>", "Berg, Anna|a@b.example"},
        {"a@b.example, Berg, Anna <c@d.example>", "|a@b.example & Berg, Anna|c@d.example"},
        {"postmaster", ""},
        {"a@b.example <c@d.example>", "a@b.example|c@d.example"},
        {"Anna Berg a@b.example", "Anna Berg|a@b.example"},
        {"<a@b.example", "|a@b.example"},
        {"<a@b.example, <c@d.example>", "|a@b.example & |c@d.example"},
        {"\"Anna <a@b.example>", "\"Anna|a@b.example"},
        {"Anna <>, b@c.example", "|b@c.example"},
        {"(unfinished a@b.example", ""},
        {"M\xC3\xB6we <m\xC3\xB6we@b.example>", "M\xC3\xB6we|m\xC3\xB6we@b.example"},
        {"Anna\r\n\tBerg <a@\r\n b.example>", "Anna   Berg|a@b.example"},
        {"O'Neill & Co. [x] <a@b.example>", "O'Neill & Co. [x]|a@b.example"},
        {"=?utf-8?Q?a=40evil.example=2C?= <a@b.example>", "=?utf-8?Q?a=40evil.example=2C?=|a@b.example"},
        {"\"\\", ""},
    }};
    for (const Example& example : examples) {
        EXPECT_EQ(Listed(ParseMailboxes(example.value)), example.expected) << example.value;
    }
}

TEST(ParseMailboxes, TakesLinearTime) {
    for (const std::string_view piece :
         {"a@[", "a,", "\"", "\"\\", "(", "<", "<@", "a@b,", ":", "x ", "\"a\"@", ";<a"}) {
        std::string value = "x@y";
        while (value.size() < 1000000)
            value += piece;
        const std::size_t count = ParseMailboxes(value).size();
        EXPECT_LE(count, 250002u) << piece;
    }
}

TEST(FormatMailbox, IsReadBack) {
    const std::array<CMailbox, 5> mailboxes = {{{"", "a@b.example"},
                                                {"Anna", "a@b.example"},
                                                {"Berg, \"A\" \\ <x@y>; (z)", "a@b.example"},
                                                {"M\xC3\xB6we", "\"a b\"@c.example"},
                                                {"'x'", "a@[192.0.2.1]"}}};
    for (const CMailbox& mailbox : mailboxes) {
        EXPECT_EQ(ParseMailboxes(FormatMailbox(mailbox)), std::vector<CMailbox>{mailbox});
    }
    EXPECT_EQ(FormatMailbox({"A\r\nBcc: x@y", std::string("a@b\nc\0d", 7)}), "\"A  Bcc: x@y\" <a@b c d>");
}

// Between bars.
std::vector<std::string> Addresses(std::string_view list) {
    std::vector<std::string> addresses;
    for (const std::string_view address : Split(list, '|'))
        addresses.emplace_back(address);
    return addresses;
}

TEST(IsPlausibleAddress, Table) {
    const std::string local64(64, 'a');
    const std::string label63(63, 'b');
    std::vector<std::string> good = Addresses(
        "a@b|a.b+c@d-e.example|o'neill@b.example|\"a b\"@c.example|\"a@b\\\"\"@c.example|\"\"@c.example|a@[192.0.2.1]|"
        "a@[IPv6:2001:db8::1]|a@[ipv6:::ffff:192.0.2.1]|a@[IPv6:1:2:3:4:5:6:7:8]|m\xC3\xB6we@m\xC3\xB6we.example|"
        "a@1.example|a@xn--mwe-sna.example|{$x}=?^`~@b.example|a@b_c.example");
    good.push_back(local64 + "@b.example");
    good.push_back("a@" + label63 + "." + std::string(62, 'c'));
    for (const std::string& address : good)
        EXPECT_TRUE(IsPlausibleAddress(address)) << address;
    std::vector<std::string> bad = Addresses(
        "|@|a|a@|@b|a@b@c|a b@c| a@b|a@b |a@b c|.a@b|a.@b|a..b@c|a@.b|a@b.|a@b..c|a@-b|a@b-|a@b,c|<a@b>|a(x)@b|"
        "a@b\r\nRCPT TO:<c@d>|a@b\n|a\x7F@b|\"a@b|\"a\"b@c|\"a\\\"@b|\"a\"\"@b|a\"b\"@c|a@[192.0.2.256]|a@[1.2.3]|"
        "a@[IPv6:1::2::3]|a@[x]|a@[]|m\xF6we@b");
    bad.push_back(std::string("a@b\0", 4));
    bad.push_back(local64 + "a@b");
    bad.push_back("a@" + label63 + "b");
    bad.push_back("a@" + label63 + "." + std::string(63, 'c'));
    for (const std::string& address : bad) {
        std::string reason;
        EXPECT_FALSE(IsPlausibleAddress(address, &reason)) << address;
        EXPECT_TRUE(reason.ends_with('.')) << address;
    }
}

std::string Between(std::string_view line, std::string_view start, std::string_view end) {
    const std::size_t from = line.find(start);
    const std::size_t to = from == std::string_view::npos ? from : line.find(end, from);
    return to == std::string_view::npos ? "" : std::string(line.substr(from + start.size(), to - from - start.size()));
}

TEST(IsPlausibleAddress, CorpusOfDoubtfulAddresses) {
    const char* given = std::getenv("LISTHAVEN_CORPUS");
    const std::string path =
        std::string(given ? given : LISTHAVEN_SOURCE_DIR "/../shared/corpus") + "/import/isemail/tests.xml";
    std::ifstream file(path);
    if (!file) GTEST_SKIP() << "there is no " << path << "; set LISTHAVEN_CORPUS";
    std::string address;
    for (std::string line; std::getline(file, line);) {
        if (line.find("<address>") != std::string::npos) {
            address = DecodeEntities(Between(line, "<address>", "</address>"));
            for (char c = 0; c < 0x20; ++c) {  // written as the symbol for the control character
                ReplaceAll(address, std::string("\xE2\x90") + static_cast<char>(0x80 + c), std::string(1, c));
            }
        }
        const std::string category = Between(line, "<category>", "</category>");
        if (category == "ISEMAIL_ERR") {
            EXPECT_FALSE(IsPlausibleAddress(address)) << address;
        }
        if (category == "ISEMAIL_VALID_CATEGORY" || category == "ISEMAIL_DNSWARN" || category == "ISEMAIL_RFC5321") {
            EXPECT_EQ(IsPlausibleAddress(address), address.size() <= 128) << address;
        }
    }
}

}  // namespace
