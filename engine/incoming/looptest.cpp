#include <algorithm>

#include "engine/incoming/messageplan.h"
#include "engine/rules/addressmatch.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t AnyLoopField = 1;
constexpr std::int64_t OwnLoopField = 2;

const CMimeHeader& HeaderOf(const CIncomingMessage& message) {
    return message.message.GetRoot()->GetHeader();
}

// Some field of that name holds one of the addresses as a mailbox.
bool NamesOneOf(const CMimeHeader& header, std::string_view name, const std::vector<std::string>& addresses) {
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        if (!EqualNoCase(header.GetStoredField(i).name, name)) continue;
        for (const CMailbox& mailbox : ParseMailboxes(header.DecodeField(i))) {
            if (IsOneOf(addresses, mailbox.address)) return true;
        }
    }
    return false;
}

// What stands between "<" and ">", each of them.
std::vector<std::string> Bracketed(std::string_view value) {
    std::vector<std::string> texts;
    for (std::size_t open = value.find('<'); open != std::string_view::npos; open = value.find('<', open + 1)) {
        const std::size_t close = value.find('>', open);
        if (close == std::string_view::npos) break;
        texts.emplace_back(Trim(value.substr(open + 1, close - open - 1)));
    }
    return texts;
}

// "<mailto:news@example.org>" of List-Post, "<news.example.org>" of List-Id.
bool IsOwnListField(const CMimeHeader& header, const BroadcastList& list, const std::vector<std::string>& own) {
    for (const std::string& link : Bracketed(header.GetField("List-Post"))) {
        if (!StartsWithNoCase(link, "mailto:")) continue;
        const std::string_view address = std::string_view(link).substr(7);
        if (IsOneOf(own, address.substr(0, address.find('?')))) return true;
    }
    for (const std::string& id : Bracketed(header.GetField("List-Id"))) {
        if (!list.guid.empty() && StartsWithNoCase(id, list.guid)) return true;
        for (std::string address : own) {
            std::replace(address.begin(), address.end(), '@', '.');
            if (EqualNoCase(id, address)) return true;
        }
    }
    return false;
}

bool IsSentByList(const CIncomingMessage& message, const BroadcastList& list) {
    const CMimeHeader& header = HeaderOf(message);
    const std::vector<std::string> own = OwnAddresses(list);
    if (IsOwnListField(header, list, own)) return true;
    if (NamesOneOf(header, "X-Loop", own) || NamesOneOf(header, "X-ZQ-Loop", own)) return true;
    // An announcer may write under the address of the list.
    std::vector<std::string> unauthorized = own;
    std::erase_if(unauthorized, [&](const std::string& a) { return EqualNoCase(a, list.authorizedAddress); });
    return NamesOneOf(header, "Sender", unauthorized) ||
           std::any_of(message.from.begin(), message.from.end(),
                       [&](const CMailbox& mailbox) { return IsOneOf(unauthorized, mailbox.address); });
}

}  // namespace

bool IsLoop(const CIncomingMessage& message, std::int64_t bits, const BroadcastList& list) {
    if (message.bounce.IsBounce()) return false;
    const CMimeHeader& header = HeaderOf(message);
    if ((bits & AnyLoopField) != 0 && header.HasField("X-Loop")) return true;
    if ((bits & OwnLoopField) != 0 && header.HasField("X-ZQ-Loop")) return true;
    return IsSentByList(message, list);
}

std::string WhyNotAnswered(const CIncomingMessage& message, const BroadcastList& list) {
    const std::string& address = message.sender.address;
    if (address.empty()) return "the sender's address is empty";
    std::string reason = WhyAutomatic(message);
    if (!reason.empty()) return reason;
    if (!IsPlausibleAddress(address, &reason)) return "no answer can reach " + address + ": " + reason;
    if (IsListOfficeAddress(address)) return "it comes from the address of a list's management";
    if (IsOneOf(OwnAddresses(list), address)) return "it comes from the list's own address";
    return "";
}
