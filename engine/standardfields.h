// standardfields.h - the names of the data fields that the program sets itself.
//
// A custom field of a list may have none of them.

#ifndef LISTHAVEN_ENGINE_STANDARDFIELDS_H
#define LISTHAVEN_ENGINE_STANDARDFIELDS_H

#include <array>
#include <string_view>

#include "utility/text.h"

inline constexpr std::array<std::string_view, 51> StandardFieldNames = {
    "To-First-Name",
    "To-Last-Name",
    "To-Name",
    "To-Email",
    "From-First-Name",
    "From-Last-Name",
    "From-Name",
    "From-Email",
    "To-Middle-Name",
    "From-Middle-Name",
    "From",
    "To",
    "Reply-To",
    "Subject",
    "CC",
    "Date",
    "Time",
    "Rand",
    "Rand1",
    "Rand2",
    "Rand3",
    "List-Name",
    "List-Usage",
    "List-Display-Name",
    "List-Email",
    "Command-Email",
    "Authorized-Email",
    "Post-Email",
    "Original-Header",
    "Original-To",
    "Original-From",
    "Original-From-Name",
    "Original-From-First-Name",
    "Original-From-Middle-Name",
    "Original-From-Last-Name",
    "Original-From-Email",
    "Original-Sender-Email",
    "Original-Sender-Name",
    "Original-Sender-First-Name",
    "Original-Sender-Middle-Name",
    "Original-Sender-Last-Name",
    "Original-Subject",
    "Original-Date",
    "Message-Number",
    "Digest-Creation-Date",
    "Email",
    "Name",
    "First-Name",
    "Last-Name",
    "Sender-Email",  // another name of "Email"
    "Sender-Name",   // another name of "Name"
};

inline bool IsStandardFieldName(std::string_view name) noexcept {
    for (const std::string_view standard : StandardFieldNames) {
        if (standard.size() == name.size() && EqualNoCase(standard, name)) return true;
    }
    return false;
}

#endif  // LISTHAVEN_ENGINE_STANDARDFIELDS_H
