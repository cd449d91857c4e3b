#include "mime/transferencoding.h"

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <list>
#include <string>
#include <vector>

namespace {

std::string Base64(std::string_view bytes) {
    std::string out;
    EncodeBase64(bytes.data(), bytes.data() + bytes.size(), out);
    return out;
}

// All texts over the alphabet up to that length.
void ForEachText(std::string_view alphabet, std::size_t length, const std::function<void(const std::string&)>& visit,
                 const std::string& start = {}) {
    visit(start);
    if (start.size() == length) return;
    for (const char c : alphabet)
        ForEachText(alphabet, length, visit, start + c);
}

std::string WithoutLoneCr(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' || (i + 1 < text.size() && text[i + 1] == '\n')) result += text[i];
    }
    return result;
}

// Every slice size, through pointers and through iterators that are none.
template <template <class, class> class Coder>
void ExpectSlicingDoesNotMatter(const std::string& text) {
    const auto code = [&text](std::size_t slice) {
        Coder<const char*, char*> coder;
        std::string out(Coder<const char*, char*>::MaxOutput(text.size()), '\0');
        char* to = out.data();
        for (std::size_t i = 0; i < text.size(); i += slice) {
            const char* const from = text.data() + i;
            to = coder.Process(from, from + std::min(slice, text.size() - i), to);
        }
        out.resize(static_cast<std::size_t>(coder.Finish(to) - out.data()));
        return out;
    };
    const std::string whole = code(text.size());
    for (std::size_t slice = 1; slice < text.size(); ++slice)
        ASSERT_EQ(code(slice), whole) << slice;
    using In = std::list<char>::const_iterator;
    using Out = std::back_insert_iterator<std::string>;
    const std::list<char> list(text.begin(), text.end());
    std::string out;
    Coder<In, Out> coder;
    coder.Finish(coder.Process(list.begin(), list.end(), std::back_inserter(out)));
    EXPECT_EQ(out, whole);
}

TEST(Base64, Encodes) {
    EXPECT_EQ(Base64(""), "");
    EXPECT_EQ(Base64("a"), "YQ==");
    EXPECT_EQ(Base64("ab"), "YWI=");
    EXPECT_EQ(Base64("abc"), "YWJj");
    EXPECT_EQ(Base64("\xFB\xFF\xBE"), "+/++");
    std::string line;
    for (int i = 0; i < 18; ++i)
        line += "YWFh";
    EXPECT_EQ(Base64(std::string(53, 'a')), line.substr(0, 70) + "E=");
    EXPECT_EQ(Base64(std::string(54, 'a')), line + "\r\n");
    EXPECT_EQ(Base64(std::string(55, 'a')), line + "\r\nYQ==");
    EXPECT_EQ(Base64(std::string(108, 'a')), line + "\r\n" + line + "\r\n");
}

TEST(Base64, DecodesWhatIsThere) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"QUJD", "ABC"},
        {"Q U*J\tD", "ABC"},
        {"QUJDQU", "ABC"},
        {"QQ==", "A"},
        {"QUI=", "AB"},
        {"QQ=x", "A"},
        {"=QUJ", ""},
        {"Q=UJ", ""},
        {"", ""},
        {"QQ==QUI=", "AAB"},
        {"QQ==\r\nQUJD", "AABC"},
        {"====", ""},
        {"QUJD====", "ABC"},
    };
    for (const auto& [text, bytes] : table)
        EXPECT_EQ(DecodeBase64Text(text), bytes) << text;
    std::vector<std::uint8_t> bytes = {7};
    DecodeBase64("AAEA", bytes);
    EXPECT_EQ(bytes, (std::vector<std::uint8_t>{7, 0, 1, 0}));
}

TEST(Base64, GivesBackWhatItEncoded) {
    ForEachText(std::string_view("\0a\xFF\n", 4), 4,
                [](const std::string& text) { ASSERT_EQ(DecodeBase64Text(Base64(text)), text); });
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += static_cast<char>(i * 7 % 256);
    for (std::size_t size = 900; size < text.size(); size += 31)
        ASSERT_EQ(DecodeBase64Text(Base64(text.substr(0, size))), text.substr(0, size)) << size;
}

TEST(QuotedPrintable, Encodes) {
    const std::string line(100, 'a');
    const std::vector<std::pair<std::string, std::string>> table = {
        {"", ""},
        {"abc", "abc=\n"},
        {"a \n", "a =\n\n"},
        {"a\t\n", "a\t=\n\n"},
        {"a \r\nb\r\n", "a =\r\n\r\nb\r\n"},
        {"a\r\nb\n", "a\r\nb\n"},
        {"a\rb\n", "ab\n"},
        {".\n..\n", "=2E\n=2E.\n"},
        {"a=b\n", "a=3Db\n"},
        {"\x01\x7F\x80\xFF\t\n", "=01=7F=80=FF\t=\n\n"},
        {line, std::string(73, 'a') + "=\n" + std::string(27, 'a') + "=\n"},
        {std::string(73, 'a') + "\n", std::string(73, 'a') + "=\n\n"},
        {std::string(72, 'a') + "=.\n", std::string(72, 'a') + "=3D=\n=2E\n"},
        {std::string(73, 'a') + ".\n", std::string(73, 'a') + "=\n=2E\n"},
    };
    for (const auto& [text, encoded] : table)
        EXPECT_EQ(EncodeQuotedPrintable(text), encoded) << text;
}

TEST(QuotedPrintable, Decodes) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"=41=4a=4A", "AJJ"},
        {"=0D=0A", "\n"},
        {"a=\nb", "ab"},
        {"a=\r\nb", "ab"},
        {"=ZZ", "\xFF"},
        {"abc=4", "abc"},
        {"==41",
         "\xF4"
         "1"},
        {"=00", std::string(1, '\0')},
    };
    for (const auto& [text, decoded] : table)
        EXPECT_EQ(DecodeQuotedPrintable(text), decoded) << text;
}

TEST(QuotedPrintable, GivesBackWhatItEncoded) {
    ForEachText("a =.\r\n\xE9", 4, [](const std::string& text) {
        ASSERT_EQ(DecodeQuotedPrintable(EncodeQuotedPrintable(text)), WithoutLoneCr(text))
            << testing::PrintToString(text);
        // At the end of a line that is full, too.
        const std::string late = std::string(71, 'x') + text;
        ASSERT_EQ(DecodeQuotedPrintable(EncodeQuotedPrintable(late)), WithoutLoneCr(late))
            << testing::PrintToString(text);
    });
}

TEST(Coders, SlicingDoesNotMatter) {
    std::string text =
        "A line. \r\nA line that is long enough to be broken, caf\xE9 and = and more and more and more\t\n.\r\r\n";
    text += text;
    ExpectSlicingDoesNotMatter<Base64Encoder>(text);
    ExpectSlicingDoesNotMatter<QpEncoder>(text);
    ExpectSlicingDoesNotMatter<Base64Decoder>("QQ==*" + Base64(text) + "=QU=JDQ");
    ExpectSlicingDoesNotMatter<QpDecoder>(EncodeQuotedPrintable(text) + "==4=\r\n=0D=zz=4");
}

}  // namespace
