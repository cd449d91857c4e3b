#include "senddaemon/wireentities.h"

#include <algorithm>
#include <utility>

#include "mime/mimemultipart.h"
#include "senddaemon/wireheader.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t LongestBoundary = LongestWireLine - 4;  // its delimiters are lines

WireEncoding EncodingOf(std::string_view value) {
    const std::string_view name = value.substr(0, value.find_first_of(" \t;("));
    if (name.empty()) return WireEncoding::None;
    if (EqualNoCase(name, "7bit")) return WireEncoding::SevenBit;
    if (EqualNoCase(name, "8bit")) return WireEncoding::EightBit;
    if (EqualNoCase(name, "binary")) return WireEncoding::Binary;
    if (EqualNoCase(name, "quoted-printable")) return WireEncoding::QuotedPrintable;
    return EqualNoCase(name, "base64") ? WireEncoding::Base64 : WireEncoding::Other;
}

bool IsDelimiter(std::string_view line, std::string_view boundary, bool& isClosing) noexcept {
    if (boundary.empty() || !line.starts_with("--") || !line.substr(2).starts_with(boundary)) return false;
    line.remove_prefix(2 + boundary.size());
    isClosing = line.starts_with("--");
    if (isClosing) line.remove_prefix(2);
    return line.find_first_not_of(" \t") == std::string_view::npos;
}

}  // namespace

CEntityWalk::CEntityWalk(std::string_view header) {
    OpenEntity(header);
}

void CEntityWalk::OpenEntity(std::string_view header) {
    const bool isInDigest = !m_containers.empty() && m_containers.back().isDigest && !IsHeaderTooLarge();
    std::string type = isInDigest ? "message/rfc822" : "text/plain";
    std::string encoding;
    bool hasType = false;
    for (const CWireField& field : SplitWireFields(header)) {
        if (!hasType && EqualNoCase(field.name, "Content-Type")) {
            type = UnfoldWireValue(field.raw);
            hasType = true;
        } else if (encoding.empty() && EqualNoCase(field.name, "Content-Transfer-Encoding")) {
            encoding = UnfoldWireValue(field.raw);
        }
    }
    m_isInHeader = false;
    m_entity = {.number = m_count++, .encoding = EncodingOf(encoding), .boundary = {}};
    const std::string_view bareType = Trim(std::string_view(type).substr(0, type.find(';')));
    const bool isMultipart = StartsWithNoCase(bareType, "multipart/");
    const bool isMessage = EqualNoCase(bareType, "message/rfc822") || EqualNoCase(bareType, "message/global");
    m_entity.isComposite = isMultipart || isMessage;
    if (m_containers.size() >= MaxDepth) return;
    if (isMultipart) {
        m_entity.boundary = CMimeMultipart::BoundaryOf(type);
        if (m_entity.boundary.size() > LongestBoundary) m_entity.boundary.clear();
        m_entity.isDigest = EqualNoCase(bareType, "multipart/digest");
        m_entity.isContainer = !m_entity.boundary.empty();
    } else if (isMessage) {
        m_entity.isContainer = m_isHeaderNext = !m_entity.IsEncoded();
    }
    if (m_entity.isContainer) m_containers.push_back(m_entity);
}

bool CEntityWalk::TakeDelimiter(std::string_view line) {
    if (!line.starts_with("--")) return false;
    bool isClosing = false;
    const auto found = std::find_if(m_containers.begin(), m_containers.end(), [&](const CWireEntity& container) {
        return IsDelimiter(line, container.boundary, isClosing);
    });
    if (found == m_containers.end()) return false;
    m_entity = *found;
    m_tookHeader = std::exchange(m_isInHeader, false);
    m_containers.erase(isClosing ? found : found + 1, m_containers.end());
    m_isHeaderNext = !isClosing;
    return true;
}

CEntityWalk::Role CEntityWalk::Take(const CWireLine& line) {
    m_tookHeader = false;
    if (std::exchange(m_isHeaderNext, false)) {
        m_header.clear();
        m_isInHeader = true;
    }
    if (line.isStart && TakeDelimiter(line.text)) return Role::Delimiter;
    if (!m_isInHeader) return Role::Text;
    if ((line.isStart && line.text.empty()) || IsHeaderTooLarge()) {
        OpenEntity(IsHeaderTooLarge() ? std::string_view() : std::string_view(m_header));
        return Role::HeaderEnd;
    }
    m_header += line.text;
    if (line.isEnd) m_header.append("\r\n");
    return Role::Header;
}

}  // namespace SendDaemon
