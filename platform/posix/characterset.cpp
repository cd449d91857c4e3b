#include "platform/characterset.h"

#include <iconv.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>

#include "platform/sevenbittext.h"

namespace Platform {

namespace {

constexpr std::string_view Replacement = "\xEF\xBF\xBD";  // U+FFFD

// In lower case, and what the system calls it.
struct Name {
    std::string_view mail;
    const char* system;
};

constexpr std::array Names = {
    Name{"ks_c_5601-1987", "CP949"},
    Name{"euc-kr", "CP949"},
    Name{"iso-2022-kr", "ISO-2022-KR"},
    Name{"gb2312", "GB18030"},
    Name{"gbk", "GB18030"},
    Name{"gb18030", "GB18030"},
    Name{"hz-gb-2312", "GB18030"},
    Name{"big5", "BIG5"},
    Name{"big5-hkscs", "BIG5-HKSCS"},
    Name{"shift_jis", "CP932"},
    Name{"shift-jis", "CP932"},
    Name{"windows-31j", "CP932"},
    Name{"euc-jp", "EUC-JP"},
    Name{"iso-2022-jp", "ISO-2022-JP-2"},
    Name{"koi8-r", "KOI8-R"},
    Name{"koi8-u", "KOI8-U"},
    Name{"tis-620", "CP874"},
    Name{"macintosh", "MACINTOSH"},
    Name{"utf-7", "UTF-7"},
    Name{"utf-16", "UTF-16"},
    Name{"utf-16le", "UTF-16LE"},
    Name{"utf-16be", "UTF-16BE"},
    Name{"utf-32", "UTF-32"},
    Name{"windows-874", "CP874"},
};

std::string Lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; });
    return result;
}

// "" for a set that is not in the list.
std::string SystemName(std::string_view characterSet) {
    const std::string name = Lower(characterSet);
    for (const Name& one : Names) {
        if (name == one.mail) return one.system;
    }
    const auto isNumber = [](std::string_view text, std::size_t most) {
        return !text.empty() && text.size() <= most && text.find_first_not_of("0123456789") == std::string_view::npos;
    };
    const std::string_view view = name;
    if (view.starts_with("iso-8859-") && isNumber(view.substr(9), 2)) return "ISO-8859-" + name.substr(9);
    if (view.starts_with("windows-125") && isNumber(view.substr(11), 1)) return "CP125" + name.substr(11);
    if (view.starts_with("cp125") && isNumber(view.substr(5), 1)) return "CP125" + name.substr(5);
    return {};
}

class CConverter {
public:
    explicit CConverter(const std::string& name) : m_handle(iconv_open("UTF-8", name.c_str())) {}
    CConverter(const CConverter&) = delete;
    CConverter& operator=(const CConverter&) = delete;
    ~CConverter() {
        if (IsOpen()) iconv_close(m_handle);
    }

    bool IsOpen() const noexcept { return m_handle != reinterpret_cast<iconv_t>(-1); }

    void Convert(std::string_view text, std::string& utf8) {
        std::string input(text);  // the call wants to be able to change it
        char* from = input.data();
        std::size_t left = input.size();
        while (left > 0) {
            std::array<char, 4096> buffer;
            char* to = buffer.data();
            std::size_t room = buffer.size();
            const std::size_t result = iconv(m_handle, &from, &left, &to, &room);
            const int error = errno;
            utf8.append(buffer.data(), buffer.size() - room);
            if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
            utf8.append(Replacement);
            if (error == EINVAL) return;  // the text ends within a character
            ++from;
            --left;
        }
    }

private:
    iconv_t m_handle;
};

}  // namespace

bool ConvertToUtf8(std::string_view characterSet, std::string_view text, std::string& utf8) {
    const std::string name = SystemName(characterSet);
    if (name.empty()) return false;
    CConverter converter(name);
    if (!converter.IsOpen()) return false;
    utf8.clear();
    converter.Convert(Lower(characterSet) == "hz-gb-2312" ? WithEighthBit(SevenBitSet::Hz, text) : std::string(text),
                      utf8);
    return true;
}

}  // namespace Platform
