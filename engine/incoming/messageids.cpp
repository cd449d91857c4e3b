#include "engine/incoming/messageids.h"

#include <algorithm>
#include <vector>

#include "mime/mimeheader.h"

namespace {

constexpr std::size_t LongestId = 250;
constexpr std::size_t MostIds = 20;
constexpr std::size_t LongestValue = 65536;  // that is looked at

bool IsIdCharacter(char c) noexcept {
    return c > ' ' && c < 127 && std::string_view("()<>,;\"\\").find(c) == std::string_view::npos;
}

std::vector<std::string> MessageIds(std::string_view value, std::size_t most) {
    std::vector<std::string> ids;
    value = value.substr(0, LongestValue);
    for (std::size_t start = value.find('<'); start != std::string_view::npos && ids.size() < most;
         start = value.find('<', start + 1)) {
        const std::string_view rest = value.substr(start + 1, LongestId + 1);
        const std::string_view id = rest.substr(0, rest.find('>'));
        if (id.empty() || id.size() == rest.size() || !std::all_of(id.begin(), id.end(), IsIdCharacter)) continue;
        ids.push_back("<" + std::string(id) + ">");
    }
    return ids;
}

}  // namespace

std::string FirstMessageId(std::string_view value) {
    const std::vector<std::string> ids = MessageIds(value, 1);
    return ids.empty() ? std::string() : ids.front();
}

std::string ReferencesTo(const CMimeHeader& header) {
    std::vector<std::string> ids = MessageIds(header.FindStored("References"), LongestValue);
    if (ids.empty()) ids = MessageIds(header.FindStored("In-Reply-To"), 1);
    const std::string own = FirstMessageId(header.FindStored("Message-ID"));
    if (!own.empty() && (ids.empty() || ids.back() != own)) ids.push_back(own);
    std::string result;
    for (std::size_t i = 0; i < ids.size(); ++i) {
        if (i > 0 && ids.size() - i >= MostIds) continue;  // the first one names the thread
        if (!result.empty()) result += ' ';
        result += ids[i];
    }
    return result;
}
