#include "utility/paths.h"

#include <algorithm>
#include <array>

#include "platform/knownfolders.h"
#include "utility/text.h"

namespace {

// Both on every system, as the file functions take them.
bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

std::size_t FindLastSeparator(std::string_view path) {
    for (std::size_t i = path.size(); i-- > 0;) {
        if (IsSeparator(path[i])) return i;
    }
    return std::string_view::npos;
}

std::string_view CutSeparators(std::string_view path) {
    while (path.size() > 1 && IsSeparator(path.back()))
        path.remove_suffix(1);
    return path;
}

bool IsDeviceName(std::string_view name) {
    constexpr std::array<std::string_view, 6> Plain = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
    const std::string_view stem = TrimRight(name.substr(0, name.find('.')));
    for (const std::string_view device : Plain) {
        if (EqualNoCase(stem, device)) return true;
    }
    return stem.size() == 4 && (StartsWithNoCase(stem, "COM") || StartsWithNoCase(stem, "LPT")) && stem[3] >= '0' &&
           stem[3] <= '9';
}

// Not within a UTF-8 character.
std::string_view CutBytes(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return text;
    while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80)
        --limit;
    return text.substr(0, limit);
}

}  // namespace

std::string JoinPath(std::string_view folder, std::string_view name) {
    if (folder.empty()) return std::string(name);
    std::string result(CutSeparators(folder));
    if (!IsSeparator(result.back())) result += Platform::PathSeparator();
    while (!name.empty() && IsSeparator(name.front()))
        name.remove_prefix(1);
    return result.append(name);
}

std::string WithSeparator(std::string_view folder) {
    if (folder.empty()) return {};
    return JoinPath(folder, "");
}

std::string WithoutSeparator(std::string_view folder) {
    return std::string(CutSeparators(folder));
}

std::string LastPathComponent(std::string_view path) {
    path = CutSeparators(path);
    const std::size_t separator = FindLastSeparator(path);
    return std::string(separator == std::string_view::npos ? path : path.substr(separator + 1));
}

std::string ParentFolder(std::string_view path) {
    path = CutSeparators(path);
    const std::size_t separator = FindLastSeparator(path);
    if (separator == std::string_view::npos || path.size() == 1) return {};
    return std::string(CutSeparators(path.substr(0, separator == 0 ? 1 : separator)));
}

bool SamePath(std::string_view a, std::string_view b) {
    a = CutSeparators(a);
    b = CutSeparators(b);
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        if (IsSeparator(x) || IsSeparator(y)) return IsSeparator(x) && IsSeparator(y);
        return x == y || (Platform::PathsIgnoreCase() && ToLowerAscii(x) == ToLowerAscii(y));
    });
}

std::string SafeFileName(std::string_view name) {
    constexpr std::size_t LongestName = 200;
    constexpr std::string_view Forbidden = "<>:\"|?*";
    const std::size_t separator = name.find_last_of("/\\");
    if (separator != std::string_view::npos) name = name.substr(separator + 1);
    std::string result;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 32 || byte == 127) continue;
        result += Forbidden.find(c) == std::string_view::npos ? c : '_';
    }
    result.erase(0, result.find_first_not_of(". "));
    if (IsDeviceName(result)) result.insert(0, 1, '_');
    std::string_view kept = CutBytes(result, LongestName);
    while (!kept.empty() && (kept.back() == '.' || kept.back() == ' '))
        kept.remove_suffix(1);
    return kept.empty() ? "unnamed" : std::string(kept);
}
