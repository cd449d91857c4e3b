#include "programs/listhaven/jsonoutput.h"

#include <cstdio>
#include <string>

#include "utility/formattext.h"
#include "utility/terminaltext.h"
#include "utility/text.h"

namespace {

unsigned CodePointOf(std::string_view character) {
    const auto bits = [character](std::size_t i, unsigned mask) {
        return static_cast<unsigned char>(character[i]) & mask;
    };
    if (character.size() == 1) return bits(0, 0x7F);
    if (character.size() == 2) return bits(0, 0x1F) << 6 | bits(1, 0x3F);
    return bits(0, 0x0F) << 12 | bits(1, 0x3F) << 6 | bits(2, 0x3F);
}

}  // namespace

boost::json::string JsonText(std::string_view text) {
    if (IsValidUtf8(text)) return boost::json::string(text);
    return boost::json::string(Latin1ToUtf8(text));
}

std::string SerializedJson(const boost::json::value& document) {
    const std::string text = boost::json::serialize(document);
    std::string result;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t harmful = HarmfulLength(rest);  // only ever within a string
        if (harmful == 0)
            result += rest.front();
        else
            result += FormatText("\\u%04x", CodePointOf(rest.substr(0, harmful)));
        rest.remove_prefix(harmful == 0 ? 1 : harmful);
    }
    return result;
}

void PrintJson(const boost::json::value& document) {
    const std::string text = SerializedJson(document) + "\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
}
