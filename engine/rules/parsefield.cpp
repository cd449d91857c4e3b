#include "engine/rules/parsefield.h"

#include "engine/customfields.h"
#include "engine/member.h"
#include "engine/rules/boundedregex.h"
#include "engine/rules/incomingmessage.h"
#include "engine/utf8text.h"
#include "mime/mailbox.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SpecialCharacters = ".|*?+(){}[]^$\\";
constexpr std::string_view LineStart = "^[[:blank:]]*";
constexpr std::string_view Value = ":[[:blank:]]*(.*?)";
constexpr std::string_view LineEnd = "[[:blank:]]*$";

std::string MakePattern(const CFormField& form) {
    std::string pattern(LineStart);
    pattern.append(EscapePattern(form.name)).append(Value);
    return pattern.append(form.hasTerminator ? EscapePattern(form.terminator) : std::string(LineEnd));
}

std::string UnescapePattern(std::string_view pattern) {
    std::string literal;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] == '\\' && i + 1 < pattern.size()) ++i;
        literal.push_back(pattern[i]);
    }
    return literal;
}

// A name or terminator that was written by hand with operators in it does not
// give the same pattern again: as a literal it would mean something else.
bool Accept(CFormField candidate, std::string_view pattern, CFormField& form) {
    if (candidate.name.empty() || MakePattern(candidate) != pattern) return false;
    form = std::move(candidate);
    return true;
}

// Of one line, and not cut within a UTF-8 character.
std::string Tidy(std::string_view text, bool trim) {
    std::string value = OneLine(text);
    if (trim) value = std::string(Trim(value));
    return std::string(CutUtf8(value, MaxParsedValue));
}

void SetTarget(std::int32_t target, std::string_view value, CMember& member, std::string& email) {
    switch (target) {
        case CParseField::Email: {
            const std::vector<CMailbox> mailboxes = ParseMailboxes(value);
            email = mailboxes.empty() ? std::string(Trim(value)) : mailboxes.front().address;
            break;
        }
        case CParseField::Name:
            member.name = value;
            break;
        case CParseField::FirstName:
            member.firstName = value;
            break;
        case CParseField::LastName:
            member.lastName = value;
            break;
        default:
            member.SetField(target - CParseField::FirstSlot, value);
    }
}

bool IsTarget(std::int32_t target, const CCustomFields& customFields) {
    const std::int32_t slot = target - CParseField::FirstSlot;
    if (slot >= 0) return slot < CCustomFields::SlotCount && !customFields.GetSlot(slot).IsFree();
    return target >= CParseField::Email;
}

}  // namespace

std::string EscapePattern(std::string_view literal) {
    std::string pattern;
    for (const char c : literal) {
        if (SpecialCharacters.find(c) != std::string_view::npos) pattern.push_back('\\');
        pattern.push_back(c);
    }
    return pattern;
}

bool MakeParseField(const CFormField& form, CParseField* field, std::string& reason) {
    if (field == nullptr) ThrowInternalError("Shared/Engine/parsefield", __LINE__);
    if (form.name.empty()) {
        reason = "Name of the form field to parse is not defined.";
        return false;
    }
    field->pattern = MakePattern(form);
    field->format = "$1";
    field->fromBody = true;
    field->trim = true;
    return true;
}

bool RecognizeFormField(std::string_view pattern, CFormField& form) {
    if (!pattern.starts_with(LineStart)) return false;
    const std::size_t value = pattern.rfind(Value);
    if (value == std::string_view::npos || value < LineStart.size()) return false;
    CFormField candidate;
    candidate.name = UnescapePattern(pattern.substr(LineStart.size(), value - LineStart.size()));
    const std::string_view rest = pattern.substr(value + Value.size());
    if (rest == LineEnd) return Accept(std::move(candidate), pattern, form);
    candidate.hasTerminator = true;
    candidate.terminator = UnescapePattern(rest);
    return Accept(std::move(candidate), pattern, form);
}

bool GetParseTargetName(const CCustomFields& fields, std::size_t index, std::string& name, std::int32_t& target) {
    constexpr std::string_view Standard[] = {"Email", "Name", "First-Name", "Last-Name"};
    if (index < std::size(Standard)) {
        name = Standard[index];
        target = static_cast<std::int32_t>(index);
        return true;
    }
    std::size_t left = index - std::size(Standard);
    for (int slot = 0; slot < CCustomFields::SlotCount; ++slot) {
        if (fields.GetSlot(slot).IsFree() || left-- != 0) continue;
        name = fields.GetSlot(slot).name;
        target = CParseField::FirstSlot + slot;
        return true;
    }
    return false;
}

bool ExtractParseFields(const std::vector<CParseField>& fields, const CIncomingMessage& message,
                        const CCustomFields& customFields, CMember& member, std::string& email) {
    bool found = false;
    for (const CParseField& field : fields) {
        if (!IsTarget(field.target, customFields)) continue;
        const std::string& text = field.fromBody ? message.GetBodyText() : message.headerText;
        std::string value;
        if (!ExtractPattern(text, field.pattern, field.format, PatternCase::Exact, value)) continue;
        value = Tidy(value, field.trim);
        if (value.empty()) continue;
        SetTarget(field.target, value, member, email);
        found = true;
    }
    return found;
}
