#include "engine/bounces/noticeparts.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "engine/bounces/statusreport.h"
#include "mime/headerwords.h"
#include "mime/htmlconversion.h"
#include "mime/mimemessage.h"
#include "mime/mimemultipart.h"
#include "mime/mimetext.h"
#include "mime/transferencoding.h"
#include "platform/characterset.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxText = 64 * 1024;
constexpr std::size_t MaxReport = 256 * 1024;
constexpr std::size_t MaxReturnedHeader = 32 * 1024;
constexpr std::size_t MaxHtml = 64 * 1024;
constexpr std::size_t MaxParts = 50;
constexpr int MaxDepth = 8;

std::string_view Cut(std::string_view text, std::size_t size) noexcept {
    return text.substr(0, size);
}

std::string DecodedBody(const CMimeEntity& entity, std::size_t limit) {
    const std::string encoding = LowerAscii(Trim(entity.GetField("Content-Transfer-Encoding")));
    const std::string_view stored = entity.GetStoredBody();
    std::string body;
    // Encoded text is at most three times, and a little, the size of what it stands for.
    if (encoding == "base64")
        body = CrLfToLf(Cut(DecodeBase64Text(Cut(stored, 2 * limit)), limit));
    else if (encoding == "quoted-printable")
        body = CrLfToLf(Cut(DecodeQuotedPrintable(Cut(stored, 3 * limit + 80)), limit));
    else
        return std::string(Cut(stored, limit));
    std::replace(body.begin(), body.end(), '\r', '\n');  // bare ones, of systems that write nothing else
    return body;
}

// A text that is in none of the sets it may be in stays as it is.
std::string InUtf8(std::string_view characterSet, std::string bytes) {
    const std::string set = LowerAscii(Trim(characterSet));
    const bool isNamed = !set.empty() && set != "us-ascii" && set != "utf-8" && set != "utf8";
    // Much that says so is UTF-8, the subjects that this system stores among it.
    if ((set == "iso-8859-1" || set == "windows-1252") && IsValidUtf8(bytes)) return bytes;
    std::string utf8;
    if (isNamed && Platform::ConvertToUtf8(set, bytes, utf8)) return utf8;
    return IsValidUtf8(bytes) || isNamed ? bytes : Windows1252ToUtf8(bytes);
}

// The words of a header line in their character sets; those that follow each
// other in one set together, for a character may be divided between two.
std::string DecodedLine(std::string_view stored) {
    constexpr std::size_t MaxLine = 2000;
    const std::string line = CMimeHeader::Unfold(Cut(stored, MaxLine));
    std::string result;
    std::string bytes;
    std::string_view set;
    CHeaderWord word;
    const auto flush = [&] {
        if (!bytes.empty()) result += InUtf8(set, std::exchange(bytes, {}));
    };
    for (std::string_view rest = line; !rest.empty();) {
        const std::size_t start = std::min(rest.find("=?"), rest.size());
        const std::string_view between = rest.substr(0, start);
        rest.remove_prefix(start);
        const bool isWord = ReadHeaderWord(rest, word);
        if (!isWord || !Trim(between).empty() || !EqualNoCase(set, word.charset)) flush();
        if (!isWord || !Trim(between).empty() || result.empty()) result += between;
        if (!isWord) {
            result += Cut(rest, 2);
            rest.remove_prefix(std::min<std::size_t>(2, rest.size()));
            continue;
        }
        set = word.charset;
        bytes += DecodeHeaderWord(word);
        rest.remove_prefix(word.size);
    }
    flush();
    return InUtf8({}, result);
}

// In UTF-8.
std::string DecodedText(const CMimeEntity& entity, std::size_t limit) {
    std::string body = DecodedBody(entity, limit);
    const auto isForeign = [](char c) { return static_cast<unsigned char>(c) >= 0x80 || c == '\x1B'; };
    if (std::none_of(body.begin(), body.end(), isForeign)) return body;
    const std::string type = CMimeHeader::Unfold(entity.GetHeader().FindStored("Content-Type"));
    return InUtf8(CMimeHeader::GetParameter(type, "charset"), std::move(body));
}

class CPartReader {
public:
    explicit CPartReader(CNoticeParts& parts) : m_parts(parts) {}

    void Read(const CMimeEntity& entity, int depth) {
        if (++m_count > MaxParts || depth > MaxDepth) return;
        const auto* multipart = dynamic_cast<const CMimeMultipart*>(&entity);
        if (multipart && !multipart->IsUnsplit() && multipart->GetPartCount() > 0) {
            for (std::size_t i = 0; i < multipart->GetPartCount(); ++i)
                if (multipart->GetPart(i)) Read(*multipart->GetPart(i), depth + 1);
        } else if (multipart) {
            AddText(Cut(entity.GetStoredBody(), MaxText));
        } else {
            ReadLeaf(entity);
        }
    }

    void Finish() {
        if (Trim(m_parts.text).empty() && !m_html.empty()) m_parts.text = HtmlToText(m_html);
        if (Trim(m_parts.text).empty()) m_parts.text = std::move(m_lateText);
    }

private:
    void ReadLeaf(const CMimeEntity& entity) {
        const std::string type = entity.GetMainType();
        const std::string subType = entity.GetSubType();
        const bool isHeaderPart =
            subType == "rfc822-headers" || subType == "rfc822-header" || subType == "global-headers";
        if (subType == "delivery-status" || subType == "global-delivery-status") {
            Append(m_parts.deliveryStatus, DecodedBody(entity, MaxReport), MaxReport);
        } else if (subType == "feedback-report") {
            Append(m_parts.feedback, DecodedBody(entity, MaxReport), MaxReport);
        } else if (subType == "disposition-notification" || subType == "global-disposition-notification") {
            m_parts.hasDisposition = true;
        } else if (isHeaderPart || (type == "message" && (subType == "rfc822" || subType == "global"))) {
            TakeReturned(entity);
        } else if (type == "text") {
            ReadText(entity, subType);
        }
    }

    void ReadText(const CMimeEntity& entity, const std::string& subType) {
        if (subType == "html") {
            if (m_html.empty()) m_html = DecodedText(entity, MaxHtml);
        } else if (entity.IsAttachment() || m_parts.hasReturned) {
            if (m_lateText.empty()) m_lateText = DecodedText(entity, MaxText);
        } else {
            AddText(DecodedText(entity, MaxText));
        }
    }

    void AddText(std::string_view text) {
        if (!m_parts.text.empty()) m_parts.text += '\n';
        Append(m_parts.text, text, MaxText);
    }

    static void Append(std::string& to, std::string_view text, std::size_t limit) {
        if (to.size() >= limit) return;
        to += Cut(text, limit - to.size());
        to += '\n';
    }

    void TakeReturned(const CMimeEntity& entity) {
        if (m_parts.hasReturned) return;
        m_parts.hasReturned = true;
        const std::string body = DecodedBody(entity, MaxReturnedHeader);
        const std::string_view text = TrimLeft(body);
        m_parts.returned.Parse(text.substr(0, text.find("\n\n")));
    }

    CNoticeParts& m_parts;
    std::string m_html;
    std::string m_lateText;  // of attachments, and behind the returned message
    std::size_t m_count = 0;
};

bool StartsFieldOfTransport(std::string_view line) noexcept {
    constexpr std::array<std::string_view, 9> Names = {
        "Received: ", "Received:\t",    "Return-Path: ",      "DKIM-Signature: ", "X-Received: ",
        "ARC-Seal: ", "Delivered-To: ", "X-Originating-IP: ", "MIME-Version: 1"};
    return std::any_of(Names.begin(), Names.end(),
                       [line](std::string_view name) { return StartsWithNoCase(line, name); });
}

// "--- Below this line is a copy of the message.", "Original message headers:" and the like.
bool IsSeparator(std::string_view line) noexcept {
    const std::string_view trimmed = Trim(line);
    if (trimmed.size() < 12 || trimmed.size() > 120) return false;
    const bool isRuled = trimmed.starts_with("--") || trimmed.starts_with("==") || trimmed.starts_with("**");
    const bool endsOpen =
        trimmed.ends_with(':') || trimmed.ends_with('-') || trimmed.ends_with('>') || trimmed.ends_with(']');
    if (!isRuled && !endsOpen) return false;  // of most lines no word needs to be looked for
    const auto has = [trimmed](std::string_view word) { return FindNoCase(trimmed, word) != std::string_view::npos; };
    const bool namesMessage = has("message") || has("mail") || has("letter") || has("header");
    const bool namesReturned =
        has("original") || has("copy of") || has("unsent") || has("returned") || has("undelivered");
    if (!namesMessage || !namesReturned) return false;
    const bool isLead = has("header") || has("copy") || has("follow") || has("below");
    return isRuled || (isLead && endsOpen && trimmed.size() < 80);
}

bool IsFieldLine(std::string_view line) noexcept {
    const std::size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos || colon > 40) return false;
    return std::all_of(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(colon), [](char c) {
        return c == '-' || c == '_' || (c >= '0' && c <= '9') || (ToLowerAscii(c) >= 'a' && ToLowerAscii(c) <= 'z');
    });
}

std::string_view WithoutQuoting(std::string_view line) noexcept {
    return line.starts_with("> ") ? line.substr(2) : line;
}

// The header of the message that a text returns.
std::string HeaderBehind(std::string_view text) {
    std::string header;
    for (std::string_view rest = Cut(text, MaxReturnedHeader); !rest.empty();) {
        const std::size_t end = rest.find('\n');
        const std::string_view line = WithoutQuoting(rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        const bool isPart = IsFieldLine(line) || (!header.empty() && (line.starts_with(' ') || line.starts_with('\t')));
        if (isPart) {
            header += line;
            header += '\n';
        } else if (!header.empty() && Trim(line).empty()) {
            break;
        }
    }
    return header;
}

// Some systems write bare CRs; the whole message is one header line then.
bool HasBareLineEnds(const CMimeEntity& root) noexcept {
    const CMimeHeader& header = root.GetHeader();
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i)
        if (header.GetStoredField(i).value.find("\r") != std::string::npos) return true;
    return header.GetFieldCount() == 0 && root.GetStoredBody().substr(0, 1000).find('\r') != std::string_view::npos;
}

// A line that sets off what follows: "-- ", "______", "* * *".
bool IsRule(std::string_view line) noexcept {
    const std::string_view trimmed = Trim(line);
    return trimmed == "--" || (trimmed.size() >= 5 && trimmed.find_first_not_of("-_=* ") == std::string_view::npos);
}

// What an organization or a list puts below everything: its words and its
// addresses say nothing of the failure.
bool IsFooter(std::string_view paragraph, bool isRuled) noexcept {
    const std::string_view start = paragraph.substr(0, std::min(paragraph.find("\n\n"), std::size_t{400}));
    const auto has = [start](std::string_view word) { return FindNoCase(start, word) != std::string_view::npos; };
    if (has("not the intended recipient") || has("intended only for") || has("intended solely for")) return true;
    const bool isPrivate = has("confidential") || has("vertraulich") || has("confidentiel") || has("disclaimer");
    return (isPrivate && (isRuled || has("attachment"))) || (isRuled && (has("unsubscribe") || has("mailing list")));
}

void CutFooter(std::string& text) {
    std::size_t paragraph = std::string::npos;  // none in the first line
    bool isRuled = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = std::string_view(text).substr(at, end - at);
        const bool isRule = IsRule(line);
        if (isRule || Trim(line).empty()) {
            isRuled = isRule;
            paragraph = end + 1;
        } else if (paragraph == at && IsFooter(std::string_view(text).substr(at), isRuled)) {
            text.resize(at);
            return;
        }
        at = end + 1;
    }
}

void TakeReturnedFromText(CNoticeParts& parts) {
    const std::size_t returned = FindReturnedMessage(parts.text);
    if (returned == parts.text.size()) return;
    if (!parts.hasReturned) {
        parts.hasReturned = true;
        parts.returned.Parse(HeaderBehind(std::string_view(parts.text).substr(returned)));
    }
    parts.text.resize(returned);
}

void ReadRoot(const CMimeEntity& root, CNoticeParts& parts) {
    parts.header = root.GetHeader();
    parts.subject = DecodedLine(parts.header.FindStored("Subject"));
    const std::string contentType = CMimeHeader::Unfold(parts.header.FindStored("Content-Type"));
    if (root.GetSubType() == "report") {
        parts.reportType = LowerAscii(Trim(CMimeHeader::GetParameter(contentType, "report-type")));
        if (parts.reportType.empty()) parts.reportType = "unnamed";
    }
    if (root.GetMainType() == "message" && root.GetSubType() == "delivery-status") parts.reportType = "delivery-status";
    CPartReader reader(parts);
    reader.Read(root, 0);
    reader.Finish();
    TakeReturnedFromText(parts);
    CutFooter(parts.text);
    const std::size_t report = parts.deliveryStatus.empty() ? FindStatusReport(parts.text) : std::string::npos;
    if (report == std::string::npos) return;
    parts.isStatusInText = true;
    parts.deliveryStatus = parts.text.substr(report);
    parts.text.resize(report);
}

}  // namespace

std::size_t FindReturnedMessage(std::string_view text) noexcept {
    bool isFirst = true;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string_view line = WithoutQuoting(text.substr(at, end - at));
        if (StartsFieldOfTransport(line) || (!isFirst && IsSeparator(line))) return at;
        if (!Trim(line).empty()) isFirst = false;
        at = end + 1;
    }
    return text.size();
}

CNoticeParts ReadNoticeParts(const CMimeMessage& message) {
    CNoticeParts parts;
    if (!message.GetRoot()) return parts;
    if (!HasBareLineEnds(*message.GetRoot())) {
        ReadRoot(*message.GetRoot(), parts);
        return parts;
    }
    std::string text = message.GetRoot()->GetText();
    ReplaceAll(text, "\r", "\n");
    CMimeMessage again;
    if (again.LoadText(std::move(text))) ReadRoot(*again.GetRoot(), parts);
    return parts;
}
