#include <gtest/gtest.h>

#include "platform/characterset.h"

using namespace Platform;

TEST(CharacterSet, SetsOfMailBecomeUtf8) {
    struct Row {
        const char* set;
        std::string bytes;
        const char* text;
        bool isEverywhere = true;
    };
    const Row rows[] = {
        {"ISO-8859-1", "caf\xE9", "café"},
        {"iso-8859-2", "\xB1\xEA", "ąę"},
        {"iso-8859-15", "\xA4", "€"},
        {"Windows-1251", "\xCF\xF0\xE8", "При"},
        {"windows-1252", "\x80\x93", "€“"},
        {"koi8-r", "\xF0\xD2\xC9", "При"},
        {"macintosh", "\x8E", "é"},
        {"tis-620", "\xA1", "ก"},
        {"shift_jis", "\x93\xFA\x96\x7B\xB1", "日本ｱ"},
        {"euc-jp", "\xC6\xFC\xCB\xDC", "日本"},
        {"iso-2022-jp", "a \x1B$BF|K\\\x1B(B b\n~", "a 日本 b\n~"},
        {"gb2312", "\xD6\xD0\xCE\xC4", "中文"},
        {"hz-gb-2312", "a~~ ~{VPND~} b\n~{VP\n.", "a~ 中文 b\n中\n."},
        {"gb18030", "\xD6\xD0\x81\x30\x81\x30", "中\xC2\x80", false},
        {"big5", "\xA4\xA4\xA4\xE5", "中文"},
        {"euc-kr", "\xC7\xD1", "한"},
        {"iso-2022-kr", "\x1B$)C\x0EGQ\x0F!", "한!"},
        {"utf-7", "a+AOQ- +2D3crA +-1", "aä 💬 +1"},
        {"utf-16", std::string("\xFE\xFF\x00\xE4\xD8\x3D\xDC\xEC", 8), "ä📬"},
        {"utf-16le", std::string("\xE4\x00", 2), "ä"},
        {"utf-16be", std::string("\x00\xE4", 2), "ä"},
        {"utf-32", std::string("\xFF\xFE\x00\x00\xEC\xF4\x01\x00", 8), "📬"},
        {"gb2312", "\xD6\xD0\xFF!", "中\xEF\xBF\xBD!"},
        {"shift_jis", "\x93\xFA\x93", "日\xEF\xBF\xBD"},
        {"big5", "", ""},
    };
    for (const Row& row : rows) {
        std::string text;
        const bool isKnown = ConvertToUtf8(row.set, row.bytes, text);
        if (isKnown || row.isEverywhere) {
            EXPECT_EQ(text, row.text) << row.set;
        }
    }
    std::string text;
    for (const char* set : {"", "utf-9", "iso-8859-", "iso-8859-1x", "../../etc/passwd", "windows-125"})
        EXPECT_FALSE(ConvertToUtf8(set, "a", text)) << set;
}
