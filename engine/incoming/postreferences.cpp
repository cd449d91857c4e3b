#include "engine/incoming/postreferences.h"

#include <array>
#include <functional>

#include "engine/addressline.h"
#include "engine/datafields.h"
#include "engine/expandmessage.h"
#include "engine/literaltext.h"
#include "engine/standardfields.h"
#include "engine/utf8text.h"
#include "mime/encodedword.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

namespace {

bool IsOriginalField(std::string_view name) noexcept {
    return StartsWithNoCase(name, "Original-");
}

bool IsListField(std::string_view name) noexcept {
    static constexpr std::array<std::string_view, 7> Names = {"List-Name",  "List-Usage",    "List-Display-Name",
                                                              "List-Email", "Command-Email", "Authorized-Email",
                                                              "Post-Email"};
    for (const std::string_view one : Names) {
        if (EqualNoCase(name, one)) return true;
    }
    return false;
}

// Fills in the fields that isWanted says; values as literals, the rest as it stands.
std::string FillIn(std::string_view text, bool isHtml, const std::function<bool(std::string_view)>& isWanted) {
    std::string result;
    std::size_t position = 0;
    for (std::size_t start = text.find("$("); start != std::string_view::npos; start = text.find("$(", position)) {
        const std::size_t end = text.find(')', start);
        if (end == std::string_view::npos) break;
        result.append(text.substr(position, start - position));
        std::string reference(text.substr(start, end + 1 - start));
        if (isWanted(text.substr(start + 2, end - start - 2))) {
            ExpandDataFields(&reference, isHtml);
            reference = LiteralText(reference);
        }
        result.append(reference);
        position = end + 1;
    }
    return result.append(text.substr(position));
}

bool IsStructural(std::string_view name) noexcept {
    return StartsWithNoCase(name, "Content-") || EqualNoCase(name, "MIME-Version");
}

}  // namespace

CPostReferences::CPostReferences(std::uint32_t listNumber) {
    if (listNumber != 0) m_customFields.Load(listNumber);
}

bool CPostReferences::IsCopyField(std::string_view name) const {
    // What is set for the message being processed must not show in those of others.
    if (IsOriginalField(name) || EqualNoCase(name, "Message-Number") || EqualNoCase(name, "Digest-Creation-Date"))
        return false;
    return IsStandardFieldName(name) || m_customFields.FindSlot(name) >= 0;
}

std::string CPostReferences::Literal(std::string_view text) const {
    return LiteralText(text, [this](std::string_view name) { return IsCopyField(name); });
}

void CPostReferences::ProtectTexts(CMimeMessage& message) const {
    for (CMimeText* entity : CollectTextEntities(*message.GetRoot())) {
        const std::string text = entity->GetBody();
        if (text.find("$(") == std::string::npos || !entity->CanJoin()) continue;
        const std::string literal = Literal(text);
        if (literal != text) entity->SetBody(literal);
    }
}

void CPostReferences::ProtectHeader(CMimeHeader& header) const {
    for (std::size_t i = header.GetFieldCount(); i-- > 0;) {
        const CMimeField field = header.GetStoredField(i);
        const std::string value = header.DecodeField(i);
        if (value.find("$(") == std::string::npos && field.value.find("$(") == std::string::npos) continue;
        if (IsStructural(field.name)) {
            std::string plain = field.value;
            ReplaceAll(plain, "$(", "$_(");
            header.SetStoredField(i, plain);
        } else if (IsAddressField(field.name) || EqualNoCase(field.name, "Sender")) {
            std::string line;
            for (CMailbox& mailbox : MailboxesInUtf8(field.value)) {
                if (mailbox.address.find("$(") != std::string::npos) continue;  // no address that mail can go to
                mailbox.displayName = Literal(mailbox.displayName);
                if (!line.empty()) line += ", ";
                line += StoredMailbox(mailbox);
            }
            if (line.empty())
                header.RemoveFieldAt(i);
            else
                header.SetStoredField(i, line);
        } else if (EqualNoCase(field.name, "Subject")) {
            header.SetStoredField(i, StoredSubject(Literal(HeaderLineInUtf8(field.value))));
        } else {
            header.SetFieldAt(i, Literal(OneLine(value)));
        }
    }
}

std::string WithOriginalFields(std::string_view text, bool isHtml) {
    return FillIn(text, isHtml, IsOriginalField);
}

std::string WithListFields(std::string_view text) {
    return OneLine(
        FillIn(text, false, [](std::string_view name) { return IsListField(name) || IsOriginalField(name); }));
}

std::string OverrideAddress(std::string_view text) {
    // The parts are told apart in the operator's text: a value could hold brackets.
    const std::string_view line = Trim(text);
    const std::size_t angle = line.find('<');
    const bool isPair = line.ends_with(">") && angle != std::string_view::npos && angle > 0 &&
                        line.rfind('<') == angle && line.front() != '"';
    if (!isPair) return WithListFields(line);
    return FormatMailbox({WithListFields(Trim(line.substr(0, angle))),
                          WithListFields(Trim(line.substr(angle + 1, line.size() - angle - 2)))});
}
