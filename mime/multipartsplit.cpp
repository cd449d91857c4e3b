#include "mime/multipartsplit.h"

#include <algorithm>

namespace {

constexpr std::string_view WhiteSpace = " \t\r\n";

struct CDelimiter {
    std::size_t position;
    std::size_t next;  // behind its line
    bool isClosing;
};

class CDelimiterScan {
public:
    CDelimiterScan(std::string_view body, std::string_view boundary) : m_body(body), m_boundary(boundary) {}

    // The first one at or behind "from", which is the start of a line.
    bool FindFrom(std::size_t from, CDelimiter& delimiter) const {
        while (from < m_body.size()) {
            if (IsDelimiter(from, delimiter)) return true;
            from = m_body.find('\n', from);
            if (from == std::string_view::npos) return false;
            ++from;
        }
        return false;
    }

private:
    bool IsDelimiter(std::size_t at, CDelimiter& delimiter) const {
        const std::string_view line = m_body.substr(at);
        if (line.size() < m_boundary.size() + 2 || line[0] != '-' || line[1] != '-' ||
            line.substr(2, m_boundary.size()) != m_boundary)
            return false;
        std::size_t end = at + 2 + m_boundary.size();
        const bool isClosing = m_body.substr(end, 2) == "--";
        if (isClosing) end += 2;
        end = std::min(m_body.find_first_not_of(" \t\r", end), m_body.size());
        if (end < m_body.size() && m_body[end] != '\n') return false;
        delimiter = {at, std::min(end + 1, m_body.size()), isClosing};
        return true;
    }

    std::string_view m_body;
    std::string_view m_boundary;
};

// The text up to a delimiter, without the line end that belongs to it.
std::string_view TextBefore(std::string_view body, std::size_t start, std::size_t delimiter) {
    if (delimiter <= start) return {};
    return body.substr(start, delimiter - start - 1);
}

bool IsBlank(std::string_view text) {
    return text.find_first_not_of(WhiteSpace) == std::string_view::npos;
}

}  // namespace

bool SplitMultipart(std::string_view body, std::string_view boundary, CMultipartPieces& pieces) {
    const CDelimiterScan scan(body, boundary);
    CDelimiter delimiter{};
    if (boundary.empty() || !scan.FindFrom(0, delimiter)) return false;
    pieces.preamble = TextBefore(body, 0, delimiter.position);
    while (!delimiter.isClosing) {
        const std::size_t start = delimiter.next;
        if (start >= body.size()) return false;
        const bool isFound = scan.FindFrom(start, delimiter);
        const std::string_view part = isFound ? TextBefore(body, start, delimiter.position) : body.substr(start);
        if (!IsBlank(part)) {
            pieces.parts.push_back(part);
        } else if (isFound && !delimiter.isClosing) {
            return false;  // the scan would stay where it is
        }
        if (!isFound) return true;
    }
    pieces.epilogue = body.substr(delimiter.next);
    return true;
}
