// parsefield.h - a value that a rule takes out of a message into the sender's
// member record.
//
// Errors   MakeParseField() gives a reason; patterns are checked with
//          boundedregex.h before they are stored.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_RULES_PARSEFIELD_H
#define LISTHAVEN_ENGINE_RULES_PARSEFIELD_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

class CCustomFields;
struct CIncomingMessage;
struct CMember;

struct CParseField {
    static constexpr std::int32_t Email = 0;
    static constexpr std::int32_t Name = 1;
    static constexpr std::int32_t FirstName = 2;
    static constexpr std::int32_t LastName = 3;
    static constexpr std::int32_t FirstSlot = 4;  // target - FirstSlot: slot of the custom field

    std::int32_t target = Email;
    bool fromBody = true;  // false: from the header
    std::string pattern;   // Perl syntax; ^ and $ match at line ends
    std::string format;    // "$1"
    bool trim = true;

    bool operator==(const CParseField&) const = default;
};

// The simple notation: "NAME: value" up to the end of the line, or to a terminator.
struct CFormField {
    std::string name;
    bool hasTerminator = false;
    std::string terminator;

    bool operator==(const CFormField&) const = default;
};

std::string EscapePattern(std::string_view literal);

// Sets pattern, format, source and trim; the target stays.  False with the reason, and nothing changed, without a name.
bool MakeParseField(const CFormField& form, CParseField* field, std::string& reason);
bool RecognizeFormField(std::string_view pattern, CFormField& form);  // of a pattern that MakeParseField() made

// "Email", "Name", "First-Name", "Last-Name", then the custom fields in slot order.
// An enumeration: false beyond the last one.
bool GetParseTargetName(const CCustomFields& fields, std::size_t index, std::string& name, std::int32_t& target);

// What the message says: into the names and slots of member, and the address of
// an Email target into email (its safety is the caller's affair).  Lines end
// with LF, so that "^" and "$" match at them; the body is the text that people
// see.  The first match counts; without one, and for a slot that has no field,
// nothing is set.  Values are one line, cut to MaxParsedValue.  True when
// something was found.
inline constexpr std::size_t MaxParsedValue = 4096;  // bytes
bool ExtractParseFields(const std::vector<CParseField>& fields, const CIncomingMessage& message,
                        const CCustomFields& customFields, CMember& member, std::string& email);

#endif  // LISTHAVEN_ENGINE_RULES_PARSEFIELD_H
