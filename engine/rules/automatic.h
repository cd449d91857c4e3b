// automatic.h - whether a program wrote a message.
//
// What no person wrote for the list neither subscribes anybody nor is answered,
// or two programs could write to each other for ever.
//
// Errors   Nothing fails.
// Threads  Any.
// Source   RFC 3834, 2 and 5 (Auto-Submitted); RFC 2919 (List-Id); the fields
//          that vacation programs of the large mail systems set.

#ifndef LISTHAVEN_ENGINE_RULES_AUTOMATIC_H
#define LISTHAVEN_ENGINE_RULES_AUTOMATIC_H

#include <cstdint>
#include <string>
#include <string_view>

class CMimeHeader;
struct CIncomingMessage;

// Why a message counts as one that no person wrote for the list.
enum class Automatic : std::uint8_t {
    No,
    Reply,      // Auto-Submitted: auto-replied, a vacation program, a receipt, a challenge
    Generated,  // Auto-Submitted: auto-generated, Precedence: bulk, list or junk, another list
};

// What the header says of itself; reason: the field that decides.
Automatic ReadAutomatic(const CMimeHeader& header, std::string& reason);

bool IsMailSystemAddress(std::string_view address);  // mailer-daemon@..., postmaster@...
bool IsListOfficeAddress(std::string_view address);  // owner-x@..., x-request@..., x-owner@..., x-bounces@...

// "Precedence: bulk", "it is a delivery failure notice", "it was sent by the
// mail system", "its return path is empty"; "" when a person may have written it.
std::string WhyAutomatic(const CIncomingMessage& message);

#endif  // LISTHAVEN_ENGINE_RULES_AUTOMATIC_H
