#include "engine/incoming/originalfields.h"

#include "engine/datafields.h"
#include "engine/displayname.h"
#include "engine/expandmessage.h"
#include "engine/incoming/subjectline.h"
#include "engine/messagefields.h"
#include "engine/standardfields.h"
#include "engine/utf8text.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongestFieldLine = 16384;  // bytes of any other field
constexpr std::size_t LongestPlaceholder = 64;   // bytes of a name

struct PersonFields {
    DataField name;
    DataField first;
    DataField middle;
    DataField last;
    DataField email;
};

constexpr PersonFields FromFields = {DataField::OriginalFromName, DataField::OriginalFromFirstName,
                                     DataField::OriginalFromMiddleName, DataField::OriginalFromLastName,
                                     DataField::OriginalFromEmail};
constexpr PersonFields SenderFields = {DataField::OriginalSenderName, DataField::OriginalSenderFirstName,
                                       DataField::OriginalSenderMiddleName, DataField::OriginalSenderLastName,
                                       DataField::OriginalSenderEmail};

void SetLine(DataField field, std::string_view value) {
    SetLiteralDataField(field, CutUtf8(value, LongestFieldLine));
}

void SetPerson(const PersonFields& fields, const CMailbox& person, NameCase nameCase) {
    CDisplayName name = SplitDisplayName(person.displayName);
    if (nameCase == NameCase::Capitalized) CapitalizeParts(name);
    SetLine(fields.name, JoinDisplayName(name));
    SetLine(fields.first, name.first);
    SetLine(fields.middle, name.middle);
    SetLine(fields.last, name.last);
    SetLine(fields.email, person.address);
}

CMailbox InUtf8(const CMailbox& mailbox) {
    return {HeaderLineInUtf8(mailbox.displayName), HeaderLineInUtf8(mailbox.address)};
}

bool IsFieldName(std::string_view name) {
    return IsStandardFieldName(name) || HasDataField(name);
}

// Placeholders between the two marks; true when there was one.
bool ReplacePlaceholders(std::string& text, std::string_view open, std::string_view close) {
    std::string result;
    std::size_t position = 0;
    bool isFound = false;
    for (std::size_t start = text.find(open); start != std::string::npos; start = text.find(open, start)) {
        const std::size_t nameStart = start + open.size();
        const std::size_t length = std::string_view(text).substr(nameStart, LongestPlaceholder + 4).find(close);
        const std::string name = length == std::string::npos ? std::string() : text.substr(nameStart, length);
        if (name.empty() || name.find(')') != std::string::npos || !IsFieldName(name)) {
            start = nameStart;
            continue;
        }
        result.append(text, position, start - position).append("$(").append(name).append(")");
        position = start = nameStart + length + close.size();
        isFound = true;
    }
    if (isFound) text = result.append(text, position);
    return isFound;
}

bool ReplacePlaceholders(std::string& text) {
    const bool isPlain = ReplacePlaceholders(text, "<!", "!>");
    return ReplacePlaceholders(text, "&lt;!", "!&gt;") || isPlain;  // as an editor of HTML writes them
}

}  // namespace

void SetOriginalFields(const CMimeHeader& header, std::string_view headerText, const CMailbox& sender) {
    const NameCase nameCase = ReadNameCase();
    const std::vector<CMailbox> from = MailboxesInUtf8(header.FindStored("From"));
    SetPerson(FromFields, from.empty() ? CMailbox() : from.front(), nameCase);
    SetPerson(SenderFields, InUtf8(sender), nameCase);
    SetLine(DataField::OriginalTo, HeaderFieldInUtf8(header, "To"));
    SetLine(DataField::OriginalFrom, HeaderFieldInUtf8(header, "From"));
    SetLine(DataField::OriginalDate, HeaderFieldInUtf8(header, "Date"));
    SetLine(DataField::OriginalSubject, PlainSubject(HeaderFieldInUtf8(header, "Subject")));
    const std::string_view text = headerText.substr(0, LongestOriginalHeader);
    SetLiteralDataField(DataField::OriginalHeader, IsValidUtf8(headerText)
                                                       ? std::string(CutUtf8(headerText, text.size()))
                                                       : Windows1252ToUtf8(text));
}

void SetIncomingFields(const CIncomingMessage& message, const BroadcastList& list) {
    static const CMimeHeader None;
    const CMimeHeader& header = message.message.GetRoot() ? message.message.GetRoot()->GetHeader() : None;
    SetListFields(list);
    SetOriginalFields(header, message.headerText, message.sender);
    const CMailbox sender = InUtf8(message.sender);
    SetLine(DataField::Email, sender.address);
    SetLine(DataField::Name, sender.displayName);
    SetLine(DataField::Date, HeaderFieldInUtf8(header, "Date"));
}

void ExpandPlaceholders(CMimeMessage& message) {
    if (!message.GetRoot()) return;
    CMimeHeader& header = message.GetRoot()->GetHeader();
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        std::string value = header.DecodeField(i);
        if (ReplacePlaceholders(value)) StoreHeaderValue(header, i, OneLine(value));
    }
    for (CMimeText* entity : CollectTextEntities(*message.GetRoot())) {
        std::string text = entity->GetBody();
        if (ReplacePlaceholders(text)) entity->SetBody(text);
    }
}
