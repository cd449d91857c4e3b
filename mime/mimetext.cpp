#include "mime/mimetext.h"

#include <algorithm>

#include "mime/transferencoding.h"
#include "utility/text.h"

namespace {

constexpr std::string_view EncodingField = "Content-Transfer-Encoding";
constexpr std::size_t LongLine = 72;

// 72 characters in a row without CR or LF.
bool HasLongLine(std::string_view text) noexcept {
    while (text.size() >= LongLine) {
        // Of such a run the last character lies here; nothing before it matters.
        const std::size_t end = text.substr(0, LongLine).find_last_of("\r\n");
        if (end == std::string_view::npos) return true;
        text.remove_prefix(end + 1);
    }
    return false;
}

// Every kind of line end, so that no line end is lost in quoted-printable.
std::string ToLf(std::string_view text) {
    std::string result = CrLfToLf(text);
    std::replace(result.begin(), result.end(), '\r', '\n');
    return result;
}

}  // namespace

struct CMimeText::CJoin {
    bool isQuotedPrintable = false;
    QpEncoder<const char*, char*> encoder;
    std::size_t bodySize = 0;  // when it was joined: another size means that the body was changed since
};

CMimeText::CMimeText() : CMimeEntity(MimeClass::Text) {
    SetContentType("text/plain");
    SetField(EncodingField, "7bit");
}

CMimeText::CMimeText(ForParsing) : CMimeEntity(MimeClass::Text) {}

CMimeText::CMimeText(const CMimeText& other) : CMimeEntity(other) {}

CMimeText::~CMimeText() = default;

std::string CMimeText::GetBody() const {
    const std::string encoding = GetField(EncodingField);
    if (EqualNoCase(encoding, "quoted-printable")) return DecodeQuotedPrintable(GetStoredBody());
    if (EqualNoCase(encoding, "base64")) {
        std::string text = DecodeBase64Text(GetStoredBody());
        text.resize(std::min(text.find('\0'), text.size()));
        return text;
    }
    return std::string(GetStoredBody());
}

void CMimeText::SetBody(std::string_view text) {
    m_join.reset();
    const bool needsEncoding = HasLongLine(text);
    SetField(EncodingField, needsEncoding ? "quoted-printable" : "7bit");
    m_body.Set(needsEncoding ? EncodeQuotedPrintable(text) : CrLfToLf(text));
}

void CMimeText::AppendBody(std::string_view text) {
    m_join.reset();
    m_body.Own().append(EncodeQuotedPrintable(text));
}

void CMimeText::PrependBody(std::string_view text) {
    m_join.reset();
    m_body.Own().insert(0, EncodeQuotedPrintable(text));
}

bool CMimeText::CanJoin() const {
    if (!EqualNoCase(GetField(EncodingField), "base64")) return true;
    return DecodeBase64Text(GetStoredBody()).find('\0') == std::string::npos;
}

std::string_view CMimeText::GetSeparator(bool isHtml) noexcept {
    return isHtml ? "\n<br>\n<hr>\n"
                  : "\n--------------------------------------------------------------------------------\n\n";
}

bool CMimeText::Merge(const CSharedPointer<CMimeEntity>& other) {
    const auto* text = dynamic_cast<const CMimeText*>(other.get());
    if (!text || text->GetMainType() != GetMainType()) return false;
    const std::string subType = GetSubType();
    if ((subType != "html" && subType != "plain") || text->GetSubType() != subType) return false;
    if (!text->CanJoin()) return false;
    const bool isJoined = m_join && m_join->bodySize == GetStoredBody().size() &&
                          GetField(EncodingField) == (m_join->isQuotedPrintable ? "quoted-printable" : "7bit");
    if (!isJoined && !CanJoin()) return false;

    std::string piece(GetSeparator(subType == "html"));
    piece += ToLf(text->GetBody());
    if (isJoined)
        ContinueJoin(piece);
    else
        StartJoin(ToLf(GetBody()) + piece);
    return true;
}

// As SetBody(), but what is needed to go on is kept.
void CMimeText::StartJoin(std::string text) {
    auto join = std::make_unique<CJoin>();
    join->isQuotedPrintable = HasLongLine(text);
    SetField(EncodingField, join->isQuotedPrintable ? "quoted-printable" : "7bit");
    m_body.Set(std::string());
    m_join = std::move(join);
    if (m_join->isQuotedPrintable) {
        ContinueJoin(text);
    } else {
        m_join->bodySize = text.size();
        m_body.Set(std::move(text));
    }
}

void CMimeText::ContinueJoin(std::string_view piece) {
    std::string& body = m_body.Own();
    if (!m_join->isQuotedPrintable) {
        // The piece begins a line, so that a long line lies in one of the two.
        if (HasLongLine(piece)) {
            StartJoin(body + std::string(piece));
            return;
        }
        body += piece;
    } else {
        QpEncoder<const char*, char*>& encoder = m_join->encoder;
        if (encoder.IsLineOpen()) body.resize(body.size() - 2);  // the soft break at the end
        AppendQuotedPrintable(encoder, piece, body);
        if (encoder.IsLineOpen()) body += "=\n";
    }
    m_join->bodySize = body.size();
}
