#include "engine/rules/incomingmessage.h"

#include <algorithm>

#include "engine/messagetemplate.h"
#include "engine/signature.h"
#include "engine/utf8text.h"
#include "mime/createentity.h"
#include "mime/htmlconversion.h"
#include "mime/mimemultipart.h"
#include "mime/mimewalk.h"
#include "utility/files.h"
#include "utility/text.h"

namespace {

// What is looked at of one field: decoding takes time in proportion to the
// square of what pretends to be an encoded word and is none.
constexpr std::size_t LongestLine = 8 * 1024;
constexpr std::size_t LongestRecipients = 48 * 1024;  // of all fields of a name

bool IsContentField(std::string_view name) {
    return StartsWithNoCase(name, "Content-");
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
        return field ? CMimeHeader::Unfold(std::string_view(field->value).substr(0, LongestLine)) : std::string();
    }

private:
    std::vector<CMimeField> m_fields;
};

// All fields of a name.
void AppendMailboxes(const CRawHeader& header, std::string_view name, std::vector<CMailbox>& mailboxes) {
    std::size_t room = LongestRecipients;
    for (const CMimeField& field : header.GetFields()) {
        if (!EqualNoCase(field.name, name)) continue;
        const std::string_view line = std::string_view(field.value).substr(0, room);
        room -= line.size();
        for (CMailbox& mailbox : MailboxesInUtf8(CMimeHeader::Unfold(line))) {
            if (mailboxes.size() >= CIncomingMessage::MaxRecipients) return;
            mailbox.address = PlainAddress(OneLine(mailbox.address));
            mailboxes.push_back(std::move(mailbox));
        }
    }
}

void ReadPeople(const CRawHeader& header, CIncomingMessage& message) {
    message.hasReturnPath = header.Find("Return-Path") != nullptr;
    const std::vector<CMailbox> returnPath = ParseMailboxes(header.Get("Return-Path"));
    if (!returnPath.empty()) message.returnPath = PlainAddress(OneLine(returnPath.front().address));
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
    message.directList = Trim(header.Get(ControlHeader::DirectMessageListGuid));
    message.tooLarge = static_cast<std::uint64_t>(std::max<std::int64_t>(0, size));
}

void AppendField(const CMimeField& field, std::string& text) {
    text.append(field.name).append(": ").append(field.value).append("\n");
}

enum class ControlFields { Kept, Dropped };

// The fields of the file, and of the root what says how to read its body.
void UseOwnHeader(const CMimeHeader& own, ControlFields control, CMimeHeader& root) {
    std::string text;
    for (std::size_t i = 0; i < own.GetFieldCount(); ++i) {
        const CMimeField& field = own.GetStoredField(i);
        const bool isKept = control == ControlFields::Kept || !IsControlField(field.name);
        if (!IsContentField(field.name) && isKept) AppendField(field, text);
    }
    for (std::size_t i = 0; i < root.GetFieldCount(); ++i) {
        if (IsContentField(root.GetStoredField(i).name)) AppendField(root.GetStoredField(i), text);
    }
    root.Parse(text);
}

// A part that is alone after its neighbours were taken away becomes the message.
void KeepContentFields(CMimeEntity& parent) {
    if (parent.GetKind() < MimeClass::Multipart) return;
    const auto& multipart = static_cast<const CMimeMultipart&>(parent);
    for (std::size_t i = 0; i < multipart.GetPartCount(); ++i) {
        CMimeEntity& part = *multipart.GetPart(i);
        CMimeHeader& header = part.GetHeader();
        std::string text;
        for (std::size_t field = 0; field < header.GetFieldCount(); ++field) {
            if (IsContentField(header.GetStoredField(field).name)) AppendField(header.GetStoredField(field), text);
        }
        header.Parse(text);
        KeepContentFields(part);
    }
}

void AppendText(std::string& text, std::string_view piece) {
    if (!text.empty() && !text.ends_with('\n')) text.push_back('\n');
    text.append(CutUtf8(piece, CIncomingMessage::MaxBodyText - std::min(text.size(), CIncomingMessage::MaxBodyText)));
}

std::string ReadBodyText(const CMimeEntity& root) {
    std::string plain;
    std::string html;
    VisitEntities(root, [&](const CMimeEntity& entity, int) {
        const auto* part = dynamic_cast<const CMimeText*>(&entity);
        if (part == nullptr || !part->IsTextBody()) return true;
        std::string& text = part->GetSubType() == "html" ? html : plain;
        if (text.size() >= CIncomingMessage::MaxBodyText) return true;
        std::string body;
        BodyInUtf8(*part, body);
        AppendText(text, body);
        return true;
    });
    if (!Trim(plain).empty() || html.empty()) return plain;
    return std::string(CutUtf8(HtmlToText(html), CIncomingMessage::MaxBodyText));
}

}  // namespace

bool IsControlField(std::string_view name) {
    return (StartsWithNoCase(name, "X-Lhv-") || StartsWithNoCase(name, "X-Zq-")) && !EqualNoCase(name, "X-ZQ-Loop");
}

std::string PlainAddress(std::string_view address) {
    constexpr std::string_view Special = "()<>[]:;@\\,\" \t\r\n";
    const std::size_t at = address.rfind('@');
    if (at == std::string_view::npos) return std::string(address);
    std::string_view domain = address.substr(at + 1);
    if (domain.ends_with('.')) domain.remove_suffix(1);
    std::string_view local = address.substr(0, at);
    std::string plain;
    if (local.size() >= 2 && local.starts_with('"') && local.ends_with('"')) {
        for (std::size_t i = 1; i + 1 < local.size(); ++i) {
            if (local[i] == '\\' && i + 2 < local.size()) ++i;
            plain += local[i];
        }
        const bool isAtom = !plain.empty() && plain.find_first_of(Special) == std::string::npos &&
                            plain.front() != '.' && plain.back() != '.' && plain.find("..") == std::string::npos;
        if (isAtom) local = plain;
    }
    return std::string(local).append("@").append(domain);
}

const std::string& CIncomingMessage::GetBodyText() const {
    if (!m_hasBodyText) m_bodyText = message.GetRoot() ? ReadBodyText(*message.GetRoot()) : std::string();
    m_hasBodyText = true;
    return m_bodyText;
}

bool CIncomingMessage::ReadBytes(std::string& bytes) const {
    if (!text) return !path.empty() && ReadWholeFile(path, bytes);
    bytes = *text;
    return true;
}

namespace {

bool LoadText(const CMimeSource& source, CMimeMessage& message) {
    if (!message.LoadText(source)) return false;
    const std::size_t end = source.View().starts_with('\n') ? 1 : source.View().find("\n\n");
    const auto own = CreateEntity(CMimeSource(std::string(source.View().substr(0, end))));  // without a body
    CMimeHeader& root = message.GetRoot()->GetHeader();
    if (root.GetText() != own->GetHeader().GetText()) UseOwnHeader(own->GetHeader(), ControlFields::Kept, root);
    KeepContentFields(*message.GetRoot());
    return true;
}

bool ReadSource(const CMimeSource& source, const std::vector<std::string>& ownAddresses, CIncomingMessage& message) {
    const CMimeHead head = ReadMimeHead(source.View());
    const std::size_t headEnd = source.View().starts_with('\n') ? 0 : source.View().find("\n\n");
    message.hasHugeHeader = head.isTooLarge;
    const bool hasHeader = head.header.GetFieldCount() > 0 || head.isTooLarge;
    const CRawHeader header(hasHeader ? source.View().substr(0, std::min(headEnd, CMimeEntity::MaxHeaderSize))
                                      : std::string_view());
    if (!message.message.LoadText(source)) return false;
    message.source = source;
    UseOwnHeader(head.header, ControlFields::Dropped, message.message.GetRoot()->GetHeader());
    for (const CMimeField& field : header.GetFields()) {
        if (!IsControlField(field.name)) AppendField(field, message.headerText);
    }
    ReadPeople(header, message);
    ReadControlFields(header, message);
    message.signedSubject = HeaderLineInUtf8(header.Get("Subject"));
    message.subject = WithoutSignature(message.signedSubject);
    message.bounce = ClassifyMessage(message.message, ownAddresses);
    message.automatic = ReadAutomatic(head.header, message.automaticReason);
    return true;
}

}  // namespace

bool LoadIncoming(const std::string& path, CMimeSource::Sealed sealed, CMimeMessage& message) {
    std::string text;
    return ReadWholeFile(path, text) && LoadText(CMimeSource(std::move(text)).With(sealed), message);
}

bool LoadIncoming(const CIncomingMessage& read, CMimeSource::Sealed sealed, CMimeMessage& message) {
    if (read.source) return LoadText(read.source->With(sealed), message);
    std::string bytes;
    return read.ReadBytes(bytes) && LoadText(CMimeSource(std::move(bytes)).With(sealed), message);
}

bool ReadIncomingMessage(const std::string& path, const std::vector<std::string>& ownAddresses,
                         CIncomingMessage& message) {
    std::string text;
    if (!ReadWholeFile(path, text)) return false;
    message = CIncomingMessage();
    message.path = path;
    return ReadSource(CMimeSource(text.empty() ? "\n" : std::move(text)), ownAddresses, message);
}

bool ParseIncomingMessage(std::shared_ptr<const std::string> text, const std::vector<std::string>& ownAddresses,
                          CIncomingMessage& message) {
    message = CIncomingMessage();
    message.text = std::move(text);
    return ReadSource(CMimeSource(std::string_view(*message.text)), ownAddresses, message);
}
