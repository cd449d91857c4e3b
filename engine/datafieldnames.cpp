#include <array>

#include "engine/datafields.h"
#include "engine/standardfields.h"

namespace {

struct FieldRow {
    DataField field;
    std::string_view name;
    std::string_view description;
};

constexpr std::array FieldRows = {
    FieldRow{DataField::ToFirstName, "To-First-Name", "Recipient's first name."},
    FieldRow{DataField::ToLastName, "To-Last-Name", "Recipient's last name."},
    FieldRow{DataField::ToName, "To-Name", "Recipient's full name."},
    FieldRow{DataField::ToEmail, "To-Email", "Recipient's email address."},
    FieldRow{DataField::FromFirstName, "From-First-Name", "Sender's first name."},
    FieldRow{DataField::FromLastName, "From-Last-Name", "Sender's last name."},
    FieldRow{DataField::FromName, "From-Name", "Sender's full name."},
    FieldRow{DataField::FromEmail, "From-Email", "Sender's email address."},
    FieldRow{DataField::ToMiddleName, "To-Middle-Name", "Recipient's middle name."},
    FieldRow{DataField::FromMiddleName, "From-Middle-Name", "Sender's middle name."},
    FieldRow{DataField::From, "From", "From line of the message."},
    FieldRow{DataField::To, "To", "To line of the message."},
    FieldRow{DataField::ReplyTo, "Reply-To", "Reply-To line of the message."},
    FieldRow{DataField::Subject, "Subject", "Subject of the message."},
    FieldRow{DataField::Cc, "CC", "CC line of the message."},
    FieldRow{DataField::Date, "Date", "Date of the message."},
    FieldRow{DataField::Time, "Time", "Time at which the message was prepared."},
    FieldRow{DataField::Rand, "Rand", "Random number."},
    FieldRow{DataField::Rand1, "Rand1", "Another random number."},
    FieldRow{DataField::Rand2, "Rand2", "Another random number."},
    FieldRow{DataField::Rand3, "Rand3", "Another random number."},
    FieldRow{DataField::ListName, "List-Name", "Name of the list."},
    FieldRow{DataField::ListUsage, "List-Usage", "Usage instructions of the list."},
    FieldRow{DataField::ListDisplayName, "List-Display-Name", "Display name of the list."},
    FieldRow{DataField::ListEmail, "List-Email", "Posting address of the list."},
    FieldRow{DataField::CommandEmail, "Command-Email", "Command address of the list."},
    FieldRow{DataField::AuthorizedEmail, "Authorized-Email", "Address that may post to the announcement list."},
    FieldRow{DataField::PostEmail, "Post-Email", "Posting address of the announcement list."},
    FieldRow{DataField::OriginalHeader, "Original-Header", "Header of the answered message."},
    FieldRow{DataField::OriginalTo, "Original-To", "To line of the answered message."},
    FieldRow{DataField::OriginalFrom, "Original-From", "From line of the answered message."},
    FieldRow{DataField::OriginalFromName, "Original-From-Name", "Full name in the answered From line."},
    FieldRow{DataField::OriginalFromFirstName, "Original-From-First-Name", "First name in the answered From line."},
    FieldRow{DataField::OriginalFromMiddleName, "Original-From-Middle-Name", "Middle name in the answered From line."},
    FieldRow{DataField::OriginalFromLastName, "Original-From-Last-Name", "Last name in the answered From line."},
    FieldRow{DataField::OriginalFromEmail, "Original-From-Email", "Address in the answered From line."},
    FieldRow{DataField::OriginalSenderEmail, "Original-Sender-Email", "Address of the answered message's sender."},
    FieldRow{DataField::OriginalSenderName, "Original-Sender-Name", "Full name of the answered message's sender."},
    FieldRow{DataField::OriginalSenderFirstName, "Original-Sender-First-Name", "First name of that sender."},
    FieldRow{DataField::OriginalSenderMiddleName, "Original-Sender-Middle-Name", "Middle name of that sender."},
    FieldRow{DataField::OriginalSenderLastName, "Original-Sender-Last-Name", "Last name of that sender."},
    FieldRow{DataField::OriginalSubject, "Original-Subject", "Subject of the answered message."},
    FieldRow{DataField::OriginalDate, "Original-Date", "Date of the answered message."},
    FieldRow{DataField::MessageNumber, "Message-Number", "Number of the message within the digest."},
    FieldRow{DataField::DigestCreationDate, "Digest-Creation-Date", "Date at which the digest was made."},
    FieldRow{DataField::Email, "Email", "Address that the message goes to."},
    FieldRow{DataField::Name, "Name", "Full name that the message goes to."},
    FieldRow{DataField::FirstName, "First-Name", "First name that the message goes to."},
    FieldRow{DataField::LastName, "Last-Name", "Last name that the message goes to."},
};

// Custom fields are kept apart from the same names.
constexpr bool RowsStandInOrder() {
    if (FieldRows.size() != static_cast<std::size_t>(DataField::Count)) return false;
    for (std::size_t i = 0; i < FieldRows.size(); ++i) {
        if (FieldRows[i].field != static_cast<DataField>(i) || FieldRows[i].name != StandardFieldNames[i]) return false;
    }
    return true;
}
static_assert(RowsStandInOrder());

}  // namespace

std::string_view DataFieldName(DataField field) noexcept {
    const auto index = static_cast<std::size_t>(field);
    return index < FieldRows.size() ? FieldRows[index].name : std::string_view{};
}

bool Engine::CDataFieldsEnumerator::Next(std::string& name, std::string& description) {
    if (m_position >= m_count) return false;
    name = FieldRows[m_position].name;
    description = FieldRows[m_position].description;
    ++m_position;
    return true;
}
