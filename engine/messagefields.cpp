#include "engine/messagefields.h"

#include "app/settings.h"
#include "engine/broadcast.h"
#include "engine/customfields.h"
#include "engine/datafields.h"
#include "engine/displayname.h"
#include "mime/mailbox.h"
#include "mime/mimemessage.h"
#include "platform/guid.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"

namespace {

struct PersonFields {
    DataField name;
    DataField first;
    DataField middle;
    DataField last;
};

constexpr PersonFields SenderFields = {DataField::FromName, DataField::FromFirstName, DataField::FromMiddleName,
                                       DataField::FromLastName};
constexpr PersonFields RecipientFields = {DataField::ToName, DataField::ToFirstName, DataField::ToMiddleName,
                                          DataField::ToLastName};

void SetNameFields(const PersonFields& fields, CDisplayName name, NameCase nameCase) {
    if (nameCase == NameCase::Capitalized) CapitalizeParts(name);
    SetDataField(fields.name, JoinDisplayName(name));
    SetDataField(fields.first, name.first);
    SetDataField(fields.middle, name.middle);
    SetDataField(fields.last, name.last);
}

void SetPersonFields(const PersonFields& fields, DataField email, std::string_view line, NameCase nameCase) {
    const auto mailboxes = ParseMailboxes(line);
    const CMailbox person = mailboxes.empty() ? CMailbox() : mailboxes.front();
    SetNameFields(fields, SplitDisplayName(person.displayName), nameCase);
    SetDataField(email, person.address);
}

bool HasNameParts(const CMember& member) noexcept {
    return !member.firstName.empty() || !member.middleName.empty() || !member.lastName.empty();
}

}  // namespace

NameCase ReadNameCase() {
    return ReadSetting("Service", "CapitalizeNames", 1) != 0 ? NameCase::Capitalized : NameCase::AsWritten;
}

void SetMessageFields(const CMimeMessage& message) {
    SetHeaderFields(message);
    const CMimeEntity& root = *message.GetRoot();
    const NameCase nameCase = ReadNameCase();
    SetSenderFields(root.GetField("From"), nameCase);
    SetRecipientFields(root.GetField("To"), nameCase);
    SetRandomFields();
}

void SetHeaderFields(const CMimeMessage& message) {
    if (!message.GetRoot()) {
        ThrowInternalError("Shared/Engine/messagefields", __LINE__, InternalErrorKind::InvalidArguments);
    }
    const CMimeEntity& root = *message.GetRoot();
    SetDataField(DataField::From, root.GetField("From"));
    SetDataField(DataField::To, root.GetField("To"));
    SetDataField(DataField::ReplyTo, root.GetField("Reply-To"));
    SetDataField(DataField::Subject, root.GetField("Subject"));
    SetDataField(DataField::Cc, root.GetField("CC"));
    SetDataField(DataField::Date, root.GetField("Date"));
}

void SetSenderFields(std::string_view fromLine, NameCase nameCase) {
    SetPersonFields(SenderFields, DataField::FromEmail, fromLine, nameCase);
}

void SetRecipientFields(std::string_view toLine, NameCase nameCase) {
    SetPersonFields(RecipientFields, DataField::ToEmail, toLine, nameCase);
}

void SetRandomFields() {
    for (const DataField field : {DataField::Rand, DataField::Rand1, DataField::Rand2, DataField::Rand3}) {
        SetDataField(field, FormatText("%i", static_cast<int>(Platform::RandomNumber() & 0x7FFFFFFF)));
    }
}

void SetListFields(const BroadcastList& list) {
    SetDataField(DataField::ListName, list.name);
    SetDataField(DataField::ListUsage, list.usage);
    SetDataField(DataField::ListDisplayName, list.name);
    SetDataField(DataField::ListEmail, list.address);
    SetDataField(DataField::CommandEmail, list.commandAddress);
    SetDataField(DataField::AuthorizedEmail, list.authorizedAddress);
    SetDataField(DataField::PostEmail, list.postAddress);
}

void SetMemberFields(const CMember& member, NameCase nameCase) {
    const bool hasParts = HasNameParts(member);
    SetNameFields(
        RecipientFields,
        hasParts ? CDisplayName{member.firstName, member.middleName, member.lastName} : SplitDisplayName(member.name),
        nameCase);
    SetDataField(DataField::ToEmail, member.address);
}

void SetCustomFields(const CCustomFields& fields, const CMember& member, SlotMask wanted) {
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if ((wanted >> slot & 1) == 0) continue;
        const CustomField& field = fields.GetSlot(slot);
        if (!field.IsFree()) SetDataField(field.name, member.GetField(slot));
    }
}

std::string MemberFullName(const CMember& member) {
    if (!HasNameParts(member)) return member.name;
    return JoinDisplayName({member.firstName, member.middleName, member.lastName});
}
