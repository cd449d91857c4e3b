#include "platform/characterset.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

#include "platform/sevenbittext.h"
#include "platform/win32/systempath.h"

namespace Platform {

namespace {

constexpr wchar_t Replacement = 0xFFFD;

// How a set's bytes become those of a code page, or text at once.
enum class Form : std::uint8_t { CodePage, Iso2022Jp, Iso2022Kr, Hz, Utf7, Utf16, Utf32 };
enum class Order : std::uint8_t { Marked, Little, Big };  // Marked: little unless a mark says otherwise

struct Set {
    std::string_view mail;  // in lower case
    Form form;
    UINT codePage = 0;
    Order order = Order::Marked;
};

constexpr std::array Sets = {
    Set{"ks_c_5601-1987", Form::CodePage, 949},
    Set{"euc-kr", Form::CodePage, 949},
    Set{"iso-2022-kr", Form::Iso2022Kr, 949},
    Set{"gb2312", Form::CodePage, 936},
    Set{"gbk", Form::CodePage, 936},
    Set{"gb18030", Form::CodePage, 54936},
    Set{"hz-gb-2312", Form::Hz, 936},
    Set{"big5", Form::CodePage, 950},
    Set{"big5-hkscs", Form::CodePage, 950},
    Set{"shift_jis", Form::CodePage, 932},
    Set{"shift-jis", Form::CodePage, 932},
    Set{"windows-31j", Form::CodePage, 932},
    Set{"euc-jp", Form::CodePage, 20932},
    Set{"iso-2022-jp", Form::Iso2022Jp, 20932},
    Set{"koi8-r", Form::CodePage, 20866},
    Set{"koi8-u", Form::CodePage, 21866},
    Set{"tis-620", Form::CodePage, 874},
    Set{"macintosh", Form::CodePage, 10000},
    Set{"utf-7", Form::Utf7},
    Set{"utf-16", Form::Utf16},
    Set{"utf-16le", Form::Utf16, 0, Order::Little},
    Set{"utf-16be", Form::Utf16, 0, Order::Big},
    Set{"utf-32", Form::Utf32},
    Set{"windows-874", Form::CodePage, 874},
    Set{"iso-8859-11", Form::CodePage, 874},  // which has all its characters
};

std::string Lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return result;
}

std::optional<Set> FindSet(std::string_view characterSet) {
    const std::string name = Lower(characterSet);
    for (const Set& one : Sets) {
        if (name == one.mail) return one;
    }
    for (const std::string_view start : {"iso-8859-", "windows-125", "cp125"}) {
        if (!name.starts_with(start)) continue;
        const std::string digits = name.substr(start.size());
        const std::size_t most = start.ends_with('-') ? 2 : 1;
        if (digits.empty() || digits.size() > most || digits.find_first_not_of("0123456789") != std::string::npos)
            continue;
        const UINT base = start.ends_with('-') ? 28590U : 1250U;
        return Set{{}, Form::CodePage, base + static_cast<UINT>(std::stoul(digits))};
    }
    return std::nullopt;
}

int Decode(UINT codePage, const char* text, std::size_t size, wchar_t* to, std::size_t room) {
    return MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, text, static_cast<int>(size), to,
                               static_cast<int>(room));
}

// Most text is good as a whole; else character by character.
void DecodeCodePage(UINT codePage, std::string_view text, std::wstring& wide) {
    constexpr std::size_t LongestCharacter = 4;
    if (text.empty()) return;
    const std::size_t before = wide.size();
    wide.resize(before + text.size() * 2);
    const int whole = Decode(codePage, text.data(), text.size(), wide.data() + before, text.size() * 2);
    wide.resize(before + static_cast<std::size_t>(std::max(whole, 0)));
    if (whole > 0) return;
    while (!text.empty()) {
        std::array<wchar_t, 4> character{};
        int units = 0;
        std::size_t size = 0;
        while (units == 0 && size < std::min(LongestCharacter, text.size()))
            units = Decode(codePage, text.data(), ++size, character.data(), character.size());
        if (units == 0) {
            character[0] = Replacement;
            units = 1;
            size = 1;
        }
        wide.append(character.data(), static_cast<std::size_t>(units));
        text.remove_prefix(size);
    }
}

int Base64Value(char c) {
    constexpr std::string_view Digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t at = Digits.find(c);
    return at == Digits.npos ? -1 : static_cast<int>(at);
}

// RFC 2152.
void DecodeUtf7(std::string_view text, std::wstring& wide) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '+') {
            wide += text[i] & '\x80' ? Replacement : static_cast<wchar_t>(text[i]);
            continue;
        }
        if (i + 1 < text.size() && text[i + 1] == '-') {
            wide += L'+';
            ++i;
            continue;
        }
        std::uint32_t bits = 0;
        int count = 0;
        int value = 0;
        while (i + 1 < text.size() && (value = Base64Value(text[i + 1])) >= 0) {
            bits = bits << 6 | static_cast<std::uint32_t>(value);
            count += 6;
            if (count >= 16) wide += static_cast<wchar_t>(bits >> (count -= 16) & 0xFFFF);
            ++i;
        }
        if (i + 1 < text.size() && text[i + 1] == '-') ++i;
    }
}

// Units of the given number of bytes.
std::uint32_t UnitAt(std::string_view bytes, std::size_t size, bool isBig) {
    std::uint32_t unit = 0;
    for (std::size_t i = 0; i < size; ++i)
        unit = unit << 8 | static_cast<unsigned char>(bytes[isBig ? i : size - 1 - i]);
    return unit;
}

void AppendCharacter(std::uint32_t character, std::wstring& wide) {
    if (character > 0x10FFFF || (character >= 0xD800 && character < 0xE000)) character = Replacement;
    if (character >= 0x10000) {
        wide += static_cast<wchar_t>(0xD800 + ((character - 0x10000) >> 10));
        character = 0xDC00 + (character & 0x3FF);
    }
    wide += static_cast<wchar_t>(character);
}

void DecodeUnits(std::string_view text, std::size_t size, Order order, std::wstring& wide) {
    bool isBig = order == Order::Big;
    if (order == Order::Marked && text.size() >= size) {
        isBig = UnitAt(text, size, true) == 0xFEFF;
        if (isBig || UnitAt(text, size, false) == 0xFEFF) text.remove_prefix(size);
    }
    for (; text.size() >= size; text.remove_prefix(size)) {
        const std::uint32_t unit = UnitAt(text, size, isBig);
        if (size == 2)
            wide += static_cast<wchar_t>(unit);  // halves of pairs are looked at when they become UTF-8
        else
            AppendCharacter(unit, wide);
    }
    if (!text.empty()) wide += Replacement;
}

}  // namespace

bool ConvertToUtf8(std::string_view characterSet, std::string_view text, std::string& utf8) {
    const std::optional<Set> set = FindSet(characterSet);
    if (!set || (set->codePage != 0 && !IsValidCodePage(set->codePage))) return false;
    std::wstring wide;
    switch (set->form) {
        case Form::CodePage:
            DecodeCodePage(set->codePage, text, wide);
            break;
        case Form::Iso2022Jp:
            DecodeCodePage(set->codePage, WithEighthBit(SevenBitSet::Iso2022Jp, text), wide);
            break;
        case Form::Iso2022Kr:
            DecodeCodePage(set->codePage, WithEighthBit(SevenBitSet::Iso2022Kr, text), wide);
            break;
        case Form::Hz:
            DecodeCodePage(set->codePage, WithEighthBit(SevenBitSet::Hz, text), wide);
            break;
        case Form::Utf7:
            DecodeUtf7(text, wide);
            break;
        case Form::Utf16:
            DecodeUnits(text, 2, set->order, wide);
            break;
        case Form::Utf32:
            DecodeUnits(text, 4, set->order, wide);
            break;
    }
    utf8 = FromWide(wide);
    return true;
}

}  // namespace Platform
