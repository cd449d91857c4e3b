#include "engine/incoming/moderatornote.h"

#include <algorithm>
#include <string>
#include <vector>

#include "engine/utf8text.h"
#include "mime/htmlconversion.h"
#include "mime/mimemultipart.h"
#include "mime/mimetext.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

constexpr const char* EncodingField = "Content-Transfer-Encoding";

template <class... Names>
bool IsOneOf(std::string_view text, Names... names) {
    return (EqualNoCase(text, names) || ...);
}

// The texts that show what the message says; false when there are none.  The
// parts of a loaded message are nested no deeper than CMimeMultipart::MaxDepth.
bool FindTexts(CMimeEntity& entity, int depth, std::vector<CMimeText*>& texts) {
    if (entity.GetKind() == MimeClass::Text) {
        if (!entity.IsTextBody()) return false;
        texts.push_back(static_cast<CMimeText*>(&entity));
        return true;
    }
    if (entity.GetKind() < MimeClass::Multipart || depth > CMimeMultipart::MaxDepth) return false;
    const auto& multipart = static_cast<const CMimeMultipart&>(entity);
    bool found = false;
    for (std::size_t i = 0; i < multipart.GetPartCount(); ++i) {
        if (!FindTexts(*multipart.GetPart(i), depth + 1, texts)) continue;
        found = true;
        if (entity.GetKind() != MimeClass::MultipartAlternative) break;
    }
    return found;
}

std::uint32_t TakeCodePoint(std::string_view utf8, std::size_t& at) {
    const auto first = static_cast<unsigned char>(utf8[at++]);
    if (first < 0x80) return first;
    const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    std::uint32_t code = first & (0x3Fu >> more);
    for (int i = 0; i < more && at < utf8.size(); ++i)
        code = code << 6 | (static_cast<unsigned char>(utf8[at++]) & 0x3Fu);
    return code;
}

// Nothing but ASCII, so that it fits every charset that the part may be in.
std::string NoteAsHtml(std::string_view note) {
    const std::string encoded = EncodeEntities(note);
    std::string html;
    for (std::size_t at = 0; at < encoded.size();) {
        if (encoded[at] == '\n') {
            html += "<br>\n";
            ++at;
            continue;
        }
        const std::uint32_t code = TakeCodePoint(encoded, at);
        if (code < 0x80)
            html.push_back(static_cast<char>(code));
        else
            html += "&#" + std::to_string(code) + ";";
    }
    return html;
}

// Behind the tag <body>, or where the text begins.
std::size_t BodyStart(std::string_view html) {
    constexpr std::string_view Tag = "<body";
    for (std::size_t at = FindNoCase(html, Tag); at != std::string_view::npos; at = FindNoCase(html, Tag, at + 1)) {
        const std::size_t next = at + Tag.size();
        if (next >= html.size() || std::string_view("> \t\r\n/").find(html[next]) == std::string_view::npos) continue;
        const std::size_t end = html.find('>', next);
        return end == std::string_view::npos ? 0 : end + 1;
    }
    return 0;
}

bool Refuse(const std::string& reason) {
    SetLastErrorText("A note cannot be put in front of the text of this message: " + reason);
    return false;
}

bool PutIn(std::string_view note, CMimeText& text) {
    const std::string encoding = text.GetField(EncodingField);
    if (!IsOneOf(Trim(encoding), "", "7bit", "8bit", "binary", "quoted-printable", "base64"))
        return Refuse("its encoding is " + OneLine(encoding) + ".");
    if (!text.CanJoin()) return Refuse("it holds zero bytes.");
    const bool isHtml = text.GetSubType() == "html";
    const std::string start = isHtml ? NoteAsHtml(std::string(note) + "\n\n") : std::string(note) + "\n\n";
    if (!IsAsciiText(start) && !BringToUtf8(text))
        return Refuse("its character set is unknown, so write the note in plain ASCII.");
    std::string body = text.GetBody();
    const std::size_t at = isHtml ? BodyStart(body) : 0;
    if (!std::string_view(body).substr(at).starts_with(start)) text.SetBody(body.insert(at, start));
    return true;
}

}  // namespace

bool PutNoteInFront(CMimeMessage& message, std::string_view note) {
    std::vector<CMimeText*> entities;
    if (!message.GetRoot() || !FindTexts(*message.GetRoot(), 0, entities)) return Refuse("it has none.");
    const std::string utf8 = IsValidUtf8(note) ? std::string(note) : Latin1ToUtf8(note);
    return std::all_of(entities.begin(), entities.end(), [&](CMimeText* entity) { return PutIn(utf8, *entity); });
}
