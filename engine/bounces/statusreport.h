// statusreport.h - the part of a delivery status notification for machines.
//
// Source  RFC 3464; 6533 (addresses in UTF-8).

#ifndef LISTHAVEN_ENGINE_BOUNCES_STATUSREPORT_H
#define LISTHAVEN_ENGINE_BOUNCES_STATUSREPORT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/bounces/statuscode.h"

enum class DeliveryAction : std::uint8_t { Unknown, Failed, Delayed, Delivered };  // relayed, expanded: Delivered

struct CRecipientStatus {
    std::string finalRecipient;     // without type, brackets and comments
    std::string originalRecipient;  // likewise
    std::string otherRecipient;     // of fields that some systems add
    DeliveryAction action = DeliveryAction::Unknown;
    CStatusCode status;
    std::string diagnostic;  // without type, unfolded
};

// Recipients in their order, at most 100; those of one address are joined.
std::vector<CRecipientStatus> ParseStatusReport(std::string_view text);

// Where such a report stands in a text that should have been divided; npos.
std::size_t FindStatusReport(std::string_view text) noexcept;

// "rfc822; <a@b> (comment)" gives "a@b".
std::string AddressOfRecipientField(std::string_view value);

#endif  // LISTHAVEN_ENGINE_BOUNCES_STATUSREPORT_H
