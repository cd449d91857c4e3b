#include "engine/rules/incomingmessage.h"

#include <algorithm>

#include "engine/signature.h"
#include "mime/headerwords.h"
#include "mime/htmlconversion.h"
#include "mime/mimewalk.h"
#include "utility/files.h"
#include "utility/text.h"

namespace {

bool IsContentField(std::string_view name) {
    return StartsWithNoCase(name, "Content-");
}

std::string InUtf8(std::string text, std::string_view charset) {
    if (IsValidUtf8(text)) return text;
    const bool isLatin = charset.empty() || EqualNoCase(charset, "us-ascii") || EqualNoCase(charset, "iso-8859-1") ||
                         EqualNoCase(charset, "windows-1252") || EqualNoCase(charset, "utf-8");
    return isLatin ? Windows1252ToUtf8(text) : text;
}

// White space between two words is none (RFC 2047, 6.2): a token that was
// folded into two words must be found whole.
std::string DecodeWords(std::string_view text) {
    std::string result;
    std::string run;  // bytes of neighbouring words of one charset: a character may be cut between them
    std::string runCharset;
    const auto endRun = [&] {
        result += InUtf8(run, runCharset);
        run.clear();
    };
    std::size_t i = 0;
    while (i < text.size()) {
        CHeaderWord word;
        if (text.compare(i, 2, "=?") == 0 && ReadHeaderWord(text.substr(i), word) && word.size > 0) {
            if (!EqualNoCase(runCharset, word.charset)) endRun();
            runCharset = word.charset;
            run += DecodeHeaderWord(word);
            i += word.size;
            const std::size_t next = std::min(text.find_first_not_of(" \t\r\n", i), text.size());
            CHeaderWord following;
            if (next > i && text.compare(next, 2, "=?") == 0 && ReadHeaderWord(text.substr(next), following)) i = next;
            continue;
        }
        endRun();
        const std::size_t end = std::min(text.find("=?", i + 1), text.size());
        result += InUtf8(std::string(text.substr(i, end - i)), "");
        i = end;
    }
    endRun();
    return result;
}

// The fields as the file has them.  A CMimeHeader turns a line with bytes beyond
// ASCII into one encoded word, the addresses in it as well.
class CRawHeader {
public:
    explicit CRawHeader(std::string_view text) {
        for (const std::string_view line : Split(text, '\n')) {
            const bool isFold = line.starts_with(' ') || line.starts_with('\t');
            const std::size_t colon = isFold ? std::string_view::npos : line.find(':');
            if (colon != std::string_view::npos) {
                m_fields.push_back(
                    {std::string(Trim(line.substr(0, colon))), std::string(Trim(line.substr(colon + 1)))});
            } else if (!m_fields.empty() && !line.empty()) {
                m_fields.back().value.append("\n").append(isFold ? "" : " ").append(line);
            }
        }
    }

    const std::vector<CMimeField>& GetFields() const noexcept { return m_fields; }

    const CMimeField* Find(std::string_view name) const {
        const auto found = std::find_if(m_fields.begin(), m_fields.end(),
                                        [&](const CMimeField& field) { return EqualNoCase(field.name, name); });
        return found == m_fields.end() ? nullptr : &*found;
    }

    std::string Get(std::string_view name) const {  // of the first one, unfolded
        const CMimeField* field = Find(name);
        return field ? CMimeHeader::Unfold(field->value) : std::string();
    }

private:
    std::vector<CMimeField> m_fields;
};

// All fields of a name.
void AppendMailboxes(const CRawHeader& header, std::string_view name, std::vector<CMailbox>& mailboxes) {
    for (const CMimeField& field : header.GetFields()) {
        if (!EqualNoCase(field.name, name)) continue;
        for (CMailbox& mailbox : ParseMailboxes(CMimeHeader::Unfold(field.value))) {
            if (mailboxes.size() >= CIncomingMessage::MaxRecipients) return;
            mailbox.displayName = DecodeHeaderLine(mailbox.displayName);
            mailbox.address = OneLine(mailbox.address);
            mailboxes.push_back(std::move(mailbox));
        }
    }
}

void ReadPeople(const CRawHeader& header, CIncomingMessage& message) {
    message.hasReturnPath = header.Find("Return-Path") != nullptr;
    const std::vector<CMailbox> returnPath = ParseMailboxes(header.Get("Return-Path"));
    if (!returnPath.empty()) message.returnPath = OneLine(returnPath.front().address);
    AppendMailboxes(header, "From", message.from);
    if (message.from.empty()) AppendMailboxes(header, "Sender", message.from);
    if (message.from.empty() && !message.returnPath.empty()) message.from.push_back({"", message.returnPath});
    if (!message.from.empty()) message.sender = message.from.front();
    for (const std::string_view name : {"To", "Cc", "Resent-To"})
        AppendMailboxes(header, name, message.to);
}

void ReadControlFields(const CRawHeader& header, CIncomingMessage& message) {
    message.received = std::max<std::int64_t>(0, ParseNumber(Trim(header.Get("X-Lhv-Received"))).value_or(0));
    message.serverId = Trim(header.Get("X-Lhv-Server-Id"));
    const std::int64_t size = ParseNumber(Trim(header.Get("X-Lhv-Too-Large"))).value_or(0);
    message.tooLarge = static_cast<std::uint64_t>(std::max<std::int64_t>(0, size));
}

void AppendField(const CMimeField& field, std::string& text) {
    text.append(field.name).append(": ").append(field.value).append("\n");
}

// The fields of the file, and of the root what says how to read its body.
void UseOwnHeader(const CMimeHeader& own, CMimeHeader& root) {
    std::string text;
    for (std::size_t i = 0; i < own.GetFieldCount(); ++i) {
        const CMimeField& field = own.GetStoredField(i);
        if (!IsContentField(field.name) && !IsControlField(field.name)) AppendField(field, text);
    }
    for (std::size_t i = 0; i < root.GetFieldCount(); ++i) {
        if (IsContentField(root.GetStoredField(i).name)) AppendField(root.GetStoredField(i), text);
    }
    root.Parse(text);
}

void AppendText(std::string& text, std::string_view piece) {
    if (!text.empty() && !text.ends_with('\n')) text.push_back('\n');
    text.append(piece.substr(0, CIncomingMessage::MaxBodyText - std::min(text.size(), CIncomingMessage::MaxBodyText)));
}

std::string ReadBodyText(const CMimeEntity& root) {
    std::string plain;
    std::string html;
    VisitEntities(root, [&](const CMimeEntity& entity, int) {
        if (entity.GetKind() != MimeClass::Text || !entity.IsTextBody()) return true;
        const bool isHtml = entity.GetSubType() == "html";
        std::string& text = isHtml ? html : plain;
        if (text.size() >= CIncomingMessage::MaxBodyText) return true;
        const std::string charset = CMimeHeader::GetParameter(entity.GetField("Content-Type"), "charset");
        std::string body = entity.GetBody().substr(0, CIncomingMessage::MaxBodyText);
        AppendText(text, isHtml ? body : InUtf8(std::move(body), charset));
        return true;
    });
    if (!Trim(plain).empty() || html.empty()) return plain;
    return InUtf8(HtmlToText(html), "").substr(0, CIncomingMessage::MaxBodyText);
}

}  // namespace

std::string DecodeHeaderLine(std::string_view stored) {
    return OneLine(DecodeWords(CMimeHeader::Unfold(stored)));
}

bool IsControlField(std::string_view name) {
    return (StartsWithNoCase(name, "X-Lhv-") || StartsWithNoCase(name, "X-Zq-")) && !EqualNoCase(name, "X-ZQ-Loop");
}

const std::string& CIncomingMessage::GetBodyText() const {
    if (!m_hasBodyText) m_bodyText = message.GetRoot() ? ReadBodyText(*message.GetRoot()) : std::string();
    m_hasBodyText = true;
    return m_bodyText;
}

bool ReadIncomingMessage(const std::string& path, const std::vector<std::string>& ownAddresses,
                         CIncomingMessage& message) {
    std::string text;
    if (!ReadWholeFile(path, text)) return false;
    if (text.empty()) text = "\n";
    message = CIncomingMessage();
    message.path = path;
    const CMimeSource source(std::move(text));
    const CMimeHead head = ReadMimeHead(source.View());
    const std::size_t headEnd = source.View().starts_with('\n') ? 0 : source.View().find("\n\n");
    const bool hasHeader = head.header.GetFieldCount() > 0;
    const CRawHeader header(hasHeader ? source.View().substr(0, headEnd) : std::string_view());
    if (!message.message.LoadText(source)) return false;
    UseOwnHeader(head.header, message.message.GetRoot()->GetHeader());
    for (const CMimeField& field : header.GetFields()) {
        if (!IsControlField(field.name)) AppendField(field, message.headerText);
    }
    ReadPeople(header, message);
    ReadControlFields(header, message);
    message.signedSubject = DecodeHeaderLine(header.Get("Subject"));
    message.subject = WithoutSignature(message.signedSubject);
    message.bounce = ClassifyMessage(message.message, ownAddresses);
    message.automatic = ReadAutomatic(head.header, message.automaticReason);
    return true;
}
