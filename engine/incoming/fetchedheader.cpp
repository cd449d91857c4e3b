#include "engine/incoming/fetchedheader.h"

#include <algorithm>

#include "engine/incoming/fetchedmessage.h"
#include "engine/incoming/mailfetch.h"
#include "utility/text.h"

namespace {

constexpr std::string_view LoopField = "X-ZQ-Loop";
constexpr std::size_t NameBytes = LoopField.size() + 1;

bool IsBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

bool IsControlField(std::string_view name) {
    if (StartsWithNoCase(name, "X-Lhv-")) return true;
    if (!StartsWithNoCase(name, "X-Zq-")) return false;
    const bool isLoop =
        StartsWithNoCase(name, LoopField) &&
        (name.size() == LoopField.size() || name[LoopField.size()] == ':' || IsBlank(name[LoopField.size()]));
    return !isLoop;
}

std::string ReceivedField(std::int64_t now) {
    return "X-Lhv-Received: " + std::to_string(now) + "\r\nX-Lhv-Server-Id: ";
}

}  // namespace

void CFetchedHeader::Keep(std::string_view bytes, std::string& text) {
    text.append(m_lineEnd).append(bytes);
    m_lineEnd = {};
}

void CFetchedHeader::BeginField(std::string& text) {
    m_isDropped = IsControlField(m_name);
    if (!m_isDropped) Keep(m_name, text);
    m_name.clear();
    m_place = Place::Rest;
}

void CFetchedHeader::Take(char c, std::string& text) {
    switch (m_place) {
        case Place::LineStart:
            if (IsBlank(c) && m_isBehindLineFeed) {
                m_place = Place::Rest;
                if (!m_isDropped) Keep({&c, 1}, text);
                return;
            }
            [[fallthrough]];
        case Place::Blanks:  // behind a lone CR: some would take it for the start of a field
            m_place = IsBlank(c) ? Place::Blanks : Place::Name;
            if (m_place == Place::Name) m_name = c;
            return;
        case Place::Name:
            m_name += c;
            if (m_name.size() == NameBytes) BeginField(text);
            return;
        case Place::Rest:
            if (!m_isDropped) text += c;
            return;
    }
}

void CFetchedHeader::EndLine(bool hasLineFeed, std::string& text) {
    if (m_place == Place::LineStart && hasLineFeed && m_isBehindLineFeed) {
        Keep("\r\n", text);
        m_isComplete = true;
        return;
    }
    if (m_place == Place::Name) BeginField(text);
    if (m_place == Place::Rest && !m_isDropped)
        m_lineEnd = hasLineFeed ? "\r\n" : "\r";
    else if (hasLineFeed && !m_lineEnd.empty())
        m_lineEnd = "\r\n";
    m_isBehindLineFeed = hasLineFeed;
    m_place = Place::LineStart;
}

void CFetchedHeader::Add(std::string_view block, std::string& text) {
    std::size_t at = 0;
    for (; at < block.size() && !m_isComplete; ++at) {
        const char c = block[at];
        if (c == '\n') {
            EndLine(true, text);
            m_isBehindCr = false;
        } else if (c == '\r') {
            m_isBehindCr = true;
        } else {
            if (m_isBehindCr) EndLine(false, text);
            m_isBehindCr = false;
            Take(c, text);
        }
    }
    text.append(block.substr(at));
}

void CFetchedHeader::Finish(std::string& text) {
    if (m_isComplete) return;
    if (m_place == Place::Name) BeginField(text);
    if (!m_lineEnd.empty()) Keep({}, text);
}

std::string MakeFetchedFields(std::int64_t now, std::string_view serverId, std::uint64_t tooLargeSize) {
    std::string fields = ReceivedField(now);
    fields += serverId.empty() ? std::string(ContentKeySize, '0') : OneLine(serverId);
    fields += "\r\n";
    if (tooLargeSize != 0) fields += "X-Lhv-Too-Large: " + std::to_string(tooLargeSize) + "\r\n";
    return fields;
}

std::size_t ServerIdOffset(std::int64_t now) {
    return ReceivedField(now).size();
}

std::string CleanFetchedHeader(std::string_view header, std::int64_t now, std::string_view serverId) {
    std::string text = MakeFetchedFields(now, serverId);
    CFetchedHeader cleaner;
    cleaner.Add(header, text);
    cleaner.Finish(text);
    return text;
}
