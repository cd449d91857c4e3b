#include "mime/headerscan.h"

#include <algorithm>

#include "mime/encodedword.h"
#include "platform/file.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"

namespace {

constexpr std::size_t LargestHeader = std::size_t{1} << 20;
constexpr std::size_t ReadStep = 16384;

// The length of the header with the empty line behind it, npos when no empty
// line is in sight.  CRs before a line's LF do not count.
std::size_t FindHeaderEnd(std::string_view text, std::size_t from) {
    const std::size_t first = text.find_first_not_of('\r');
    if (from == 0 && first != std::string_view::npos && text[first] == '\n') return first + 1;
    for (std::size_t lf = text.find('\n', from); lf != std::string_view::npos; lf = text.find('\n', lf + 1)) {
        const std::size_t next = text.find_first_not_of('\r', lf + 1);
        if (next != std::string_view::npos && text[next] == '\n') return next + 1;
    }
    return std::string_view::npos;
}

// The file as far as its header reaches; "" when the header is too large.
bool ReadHeader(std::string_view path, std::string& header) {
    header.clear();
    Platform::CFile file;
    if (!file.Open(path, Platform::FileMode::Read)) return false;
    std::size_t searched = 0;
    while (header.size() < LargestHeader) {
        const std::size_t size = header.size();
        header.resize(size + ReadStep);
        std::size_t got = 0;
        const bool whole = file.ReadAt(size, header.data() + size, ReadStep, &got);
        if (!whole && Platform::LastSystemError() != 0) return false;
        header.resize(size + got);
        const std::size_t end = FindHeaderEnd(header, searched);
        if (end != std::string::npos) {
            header.resize(end);
            return true;
        }
        if (!whole) return true;  // a message without body
        const std::size_t lastLf = header.rfind('\n');
        searched = lastLf == std::string::npos ? 0 : lastLf;
    }
    header.clear();
    return true;
}

}  // namespace

void ScanHeaderFields(std::string_view text, std::span<const std::string_view> names, CHeaderValues& values,
                      HeaderForm form) {
    values.clear();
    const std::size_t headerEnd = FindHeaderEnd(text, 0);
    if (headerEnd != std::string_view::npos) text = text.substr(0, headerEnd);
    if (text.size() > LargestHeader) return;
    std::string* current = nullptr;  // the field that a line without name continues
    while (!text.empty()) {
        const std::size_t lf = std::min(text.find('\n'), text.size());
        const std::string_view line = TrimRight(text.substr(0, lf));
        text.remove_prefix(std::min(lf + 1, text.size()));
        if (line.empty()) continue;
        const std::size_t colon = line.front() == ' ' || line.front() == '\t' ? std::string_view::npos : line.find(':');
        if (colon == std::string_view::npos) {
            if (current != nullptr) current->append(" ").append(TrimLeft(line));
            continue;
        }
        current = nullptr;
        const std::string_view name = Trim(line.substr(0, colon));
        const auto wanted =
            std::find_if(names.begin(), names.end(), [&](std::string_view n) { return EqualNoCase(n, name); });
        if (wanted == names.end()) continue;
        const auto [entry, isFirst] = values.try_emplace(std::string(*wanted), Trim(line.substr(colon + 1)));
        if (isFirst) current = &entry->second;
    }
    if (form == HeaderForm::Stored) return;
    for (auto& [name, value] : values)
        value = DecodeHeaderText(value);
}

bool ReadHeaderFields(std::string_view path, std::span<const std::string_view> names, CHeaderValues& values,
                      HeaderForm form) {
    values.clear();
    std::string header;
    if (!ReadHeader(path, header)) {
        SetLastErrorFromSystem();
        return false;
    }
    ScanHeaderFields(header, names, values, form);
    return true;
}
