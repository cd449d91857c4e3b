#include "mime/mimemultipartrelated.h"

#include <algorithm>

#include "mime/mimeattachment.h"
#include "mime/mimewalk.h"
#include "mime/transferencoding.h"
#include "utility/text.h"

namespace {

std::uint8_t HexValue(char c) noexcept {
    return CoderTables::HexValues[static_cast<std::uint8_t>(c)];
}

// One character of a URL, percent-encoded or not; moves at behind it.
char NextCharacter(std::string_view url, std::size_t& at) noexcept {
    if (url[at] == '%' && at + 2 < url.size()) {
        const unsigned byte = HexValue(url[at + 1]) * 16u + HexValue(url[at + 2]);
        if (byte < 256) {
            at += 3;
            return static_cast<char>(byte);
        }
    }
    return url[at++];
}

bool StartsWithID(std::string_view url, std::string_view id) noexcept {
    std::size_t at = 0;
    for (const char c : id) {
        if (at >= url.size() || ToLowerAscii(NextCharacter(url, at)) != ToLowerAscii(c)) return false;
    }
    return at == url.size() || std::string_view(" \t\r\n\"'<>()&;,#?").find(url[at]) != std::string_view::npos;
}

std::vector<std::string> TextsOf(const CMimeEntity& part) {
    std::vector<std::string> texts;
    VisitEntities(part, [&texts](const CMimeEntity& entity, int) {
        if (entity.GetKind() == MimeClass::Text) texts.push_back(entity.GetBody());
        return true;
    });
    return texts;
}

}  // namespace

bool RefersToContentID(std::string_view html, std::string_view id) {
    static constexpr std::string_view Scheme = "cid:";
    for (std::size_t at = FindNoCase(html, Scheme); at != std::string_view::npos;) {
        at += Scheme.size();
        if (StartsWithID(html.substr(at), id)) return true;
        at = FindNoCase(html, Scheme, at);
    }
    return false;
}

CMimeMultipartRelated::~CMimeMultipartRelated() = default;

void CMimeMultipartRelated::Normalize() {
    CMimeMultipartMixed::Normalize();
}

CMimeMultipart::Child CMimeMultipartRelated::CreatePart(const CMimeSource& text) {
    CMimeHead head = ReadMimeHead(text.View());
    CMimeEntity scratch;
    scratch.GetHeader() = head.header;
    if (scratch.GetMainType() != "image") return CMimeMultipartMixed::CreatePart(text.WithHead(head));
    auto image = MakeShared<CMimeAttachment>();
    image->Parse(text.WithHead(head));
    return image;
}

void CMimeMultipartRelated::SetText(std::string_view text, bool isHtml) {
    CMimeMultipartMixed::SetText(text, isHtml);
    std::vector<std::string> texts;
    for (const Child& part : m_parts) {
        if (!part || part->IsAttachment()) continue;
        for (std::string& body : TextsOf(*part))
            texts.push_back(std::move(body));
    }
    const auto isUsed = [&texts](const CMimeEntity& part) {
        const std::string value = part.GetField("Content-ID");
        if (value.size() < 3) return false;
        const std::string id = value.substr(1, value.size() - 2);
        return std::any_of(texts.begin(), texts.end(),
                           [&id](const std::string& body) { return RefersToContentID(body, id); });
    };
    for (std::size_t i = m_parts.size(); i-- > 0;) {
        if (!m_parts[i] || (m_parts[i]->IsAttachment() && !isUsed(*m_parts[i]))) RemovePart(i);
    }
}
