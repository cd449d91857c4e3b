// postreferences.h - data fields in posts, and in what the operator adds to them.
//
// In the post those that each copy has are left for the copies; all others
// become text (literaltext.h).
//
// Threads  As datafields.h.

#ifndef LISTHAVEN_ENGINE_INCOMING_POSTREFERENCES_H
#define LISTHAVEN_ENGINE_INCOMING_POSTREFERENCES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/customfields.h"
#include "mime/mimemessage.h"

class CPostReferences {
public:
    explicit CPostReferences(std::uint32_t listNumber);

    // The field has a value in each copy: of the recipient, the message, the list, or custom.
    bool IsCopyField(std::string_view name) const;
    std::string Literal(std::string_view text) const;  // for a post

    // Texts of the message and fields of its header.  Structural fields lose a "$(".
    void ProtectTexts(CMimeMessage& message) const;
    void ProtectHeader(CMimeHeader& header) const;

private:
    CCustomFields m_customFields;
};

// For the operator's texts: what the message at hand gives them (Original-*) is
// filled in as a literal, the rest is left for the copies.  The fields of
// SetIncomingFields() must be set.
std::string WithOriginalFields(std::string_view text, bool isHtml);
std::string WithListFields(std::string_view text);  // likewise with those of the list; one line

// "NAME <ADDRESS>" of an override, its name quoted; fields of the list are filled in.
std::string OverrideAddress(std::string_view text);

#endif  // LISTHAVEN_ENGINE_INCOMING_POSTREFERENCES_H
