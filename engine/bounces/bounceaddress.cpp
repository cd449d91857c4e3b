#include "engine/bounces/bounceaddress.h"

#include <algorithm>
#include <array>

#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxAddresses = 100;
constexpr std::size_t MaxCandidates = 400;

// What the place of an address in the text says, from worst to best.
enum class Place { Foreign, Mentioned, InReply, Named, Listed };

struct CCandidate {
    std::string address;
    std::size_t position;
    Place place;
};

bool IsLocalCharacter(char c) noexcept {
    const char lower = ToLowerAscii(c);
    return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || static_cast<unsigned char>(c) >= 0x80 ||
           (c != '\0' && std::string_view("!#$%&'*+-/=?^_`{|}~.").find(c) != std::string_view::npos);
}

bool IsDomainCharacter(char c) noexcept {
    const char lower = ToLowerAscii(c);
    return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

std::string_view LineBefore(std::string_view text, std::size_t at) noexcept {
    const std::size_t start = text.substr(0, at).rfind('\n');
    return text.substr(start == std::string_view::npos ? 0 : start + 1,
                       at - (start == std::string_view::npos ? 0 : start + 1));
}

bool EndsWithAny(std::string_view text, std::initializer_list<std::string_view> endings) noexcept {
    return std::any_of(endings.begin(), endings.end(),
                       [text](std::string_view ending) { return text.ends_with(ending); });
}

bool EndsWithWord(std::string_view text, std::initializer_list<std::string_view> words) noexcept {
    return std::any_of(words.begin(), words.end(), [text](std::string_view word) {
        if (!text.ends_with(word)) return false;
        const char before = text.size() == word.size() ? ' ' : text[text.size() - word.size() - 1];
        return before < 'a' || before > 'z';
    });
}

// The line in front of an address that somebody else's stands behind.
bool PointsElsewhere(std::string_view before) noexcept {
    const auto has = [before](std::string_view word) { return before.find(word) != std::string_view::npos; };
    return EndsWithWord(before,
                        {"from", "from:", "sender", "sender:", "contact", "by", "id", "envelope-from", "mailfrom",
                         "write to", "forward to", "mailto:", "at", "administrator", "postmaster"}) ||
           has("message-id") || has("references:") || has("in-reply-to") || has("content-id") ||
           has("original sender") || has("mail from:") || has("please contact") || has("please reply") ||
           has("please send") || has("please e-mail") || has("please email") || has("reply to") || has("boundary") ||
           (before.starts_with("from:")) || before.starts_with("reply-to:") || before.starts_with("return-path:");
}

bool NamesRecipient(std::string_view before) noexcept {
    return EndsWithAny(before,
                       {"rcpt to:",    "rcpt to",       "recipient:", "recipients:", "recipient",       "recipient(s):",
                        "to:",         "addressed to:", "address:",   "addresses:",  "deliver to",      "delivered to",
                        "delivery to", "message to",    "mail to",    "email to",    "deliver mail to", "reach",
                        "for user",    "for",           "user:",      "mailbox",     "address",         "user",
                        "account",     "failed:",       "errors:",    "errors"});
}

// What stands behind an address at the start of its line when it is an entry of a list.
bool EndsEntry(std::string_view after) noexcept {
    const std::string_view rest = after.substr(std::min(after.find_first_not_of(">\"')]"), after.size()));
    const std::string_view trimmed = TrimLeft(rest);
    if (trimmed.empty()) return true;
    if (std::string_view(":;,([<-|").find(trimmed.front()) != std::string_view::npos) return true;
    return trimmed.starts_with("...") || StartsWithNoCase(trimmed, "on ") || rest.starts_with('\t') ||
           rest.starts_with("   ");
}

Place PlaceOf(std::string_view text, std::size_t start, std::size_t end) {
    const std::string_view line = LineBefore(text, start);
    const std::string_view after = text.substr(end, std::min(text.find('\n', end), text.size()) - end);
    const std::size_t bare = line.find_last_not_of(" \t<\"'*-([>");
    const std::string before = bare == std::string_view::npos ? std::string() : LowerAscii(line.substr(0, bare + 1));
    if (before.empty()) return EndsEntry(after) ? Place::Listed : Place::Mentioned;
    if (before.ends_with("rfc822;") || before.ends_with("rfc822:")) return Place::Listed;
    const bool isSmtp = before.find("rcpt to") != std::string::npos;
    const bool isAlias = EndsWithAny(before, {"expanded from:", "expanded from", "generated from", "alias of"});
    if (!isSmtp && !isAlias && PointsElsewhere(before)) return Place::Foreign;
    if (isAlias || NamesRecipient(before)) return Place::Named;
    const bool followsCode =
        before.size() >= 3 && (before.find("55") != std::string::npos || before.find("5.") != std::string::npos ||
                               before.find("45") != std::string::npos);
    return followsCode ? Place::InReply : Place::Mentioned;
}

void AddCandidate(std::string_view text, std::size_t at, std::vector<CCandidate>& candidates) {
    std::size_t start = at;
    if (at > 0 && text[at - 1] == '"') {
        const std::size_t quote = text.substr(0, at - 1).rfind('"');
        if (quote == std::string_view::npos || at - quote > 64) return;
        if (text.substr(quote, at - quote).find('\n') != std::string_view::npos) return;
        start = quote;
    } else {
        const bool isGlobal = at > 0 && static_cast<unsigned char>(text[at - 1]) >= 0x80;
        while (start > 0 && at - start < 128 && IsLocalCharacter(text[start - 1]))
            --start;
        // Of a sentence written without blanks.
        for (std::size_t i = start; !isGlobal && i < at; ++i)
            if (static_cast<unsigned char>(text[i]) >= 0xE2) start = std::min(i + 3, at);
        while (start < at && std::string_view("'`*=/{|.&!-").find(text[start]) != std::string_view::npos)
            ++start;
    }
    std::size_t end = at + 1;
    while (end < text.size() && end - at < 256 && IsDomainCharacter(text[end])) {
        const bool isIdeograph = static_cast<unsigned char>(text[end]) >= 0xE2;
        if (isIdeograph && end > at + 1 && static_cast<unsigned char>(text[end - 1]) < 0x80 && text[end - 1] != '.')
            break;
        ++end;
    }
    while (end > at + 1 && (text[end - 1] == '.' || text[end - 1] == '-' || text[end - 1] == '_'))
        --end;
    const std::string_view address = text.substr(start, end - start);
    if (address.find('.', at - start) == std::string_view::npos || !IsPlausibleAddress(address)) return;
    candidates.push_back({std::string(address), start, PlaceOf(text, start, end)});
}

std::vector<CCandidate> ScanCandidates(std::string_view text) {
    std::vector<CCandidate> candidates;
    for (std::size_t at = text.find('@'); at != std::string_view::npos && candidates.size() < MaxCandidates;
         at = text.find('@', at + 1))
        AddCandidate(text, at, candidates);
    return candidates;
}

std::vector<std::string> AddressesOf(std::string_view stored) {
    std::vector<std::string> addresses;
    for (const CMailbox& mailbox : ParseMailboxes(CMimeHeader::Unfold(stored))) {
        if (addresses.size() >= MaxAddresses) break;
        if (mailbox.address.find('@') != std::string::npos) addresses.push_back(mailbox.address);
    }
    return addresses;
}

void AddOnce(std::vector<CFailedAddress>& found, const CFailedAddress& address) {
    const bool isKnown = std::any_of(found.begin(), found.end(), [&](const CFailedAddress& other) {
        return EqualNoCase(other.address, address.address);
    });
    if (!isKnown && found.size() < MaxAddresses) found.push_back(address);
}

// What is once named as somebody else's is so wherever it stands.
void DropForeign(std::vector<CCandidate>& candidates) {
    std::vector<std::string> foreign;
    for (const CCandidate& candidate : candidates)
        if (candidate.place == Place::Foreign || IsSystemAddress(candidate.address))
            foreign.push_back(candidate.address);
    std::erase_if(candidates, [&](const CCandidate& one) {
        return one.place != Place::Listed && ContainsAddress(foreign, one.address);
    });
    std::erase_if(candidates, [](const CCandidate& one) { return IsSystemAddress(one.address); });
}

// Those whose places say the most.
void AddBest(std::vector<CFailedAddress>& found, const std::vector<CCandidate>& candidates) {
    Place best = Place::Mentioned;
    for (const CCandidate& candidate : candidates)
        best = std::max(best, candidate.place);
    for (const CCandidate& candidate : candidates) {
        if (candidate.place != best) continue;
        AddOnce(found, {candidate.address, candidate.position});
        if (best == Place::Mentioned) break;  // the others may be anybody's
    }
}

std::size_t PositionOf(const std::vector<CCandidate>& candidates, std::string_view address) noexcept {
    for (const CCandidate& candidate : candidates)
        if (EqualNoCase(candidate.address, address)) return candidate.position;
    return std::string::npos;
}

}  // namespace

bool IsSystemAddress(std::string_view address) noexcept {
    std::string local = LowerAscii(address.substr(0, address.find('@')));
    std::erase_if(local, [](char c) { return c == '-' || c == '_' || c == '.' || c == ' '; });
    constexpr std::array<std::string_view, 14> Names = {"mailerdaemon",
                                                        "mailerdeamon",
                                                        "postmaster",
                                                        "poostmaster",
                                                        "maildaemon",
                                                        "maildeliverysystem",
                                                        "maildeliverysubsystem",
                                                        "mailsystem",
                                                        "maileradmin",
                                                        "daemon",
                                                        "mdaemon",
                                                        "mailerservice",
                                                        "bounce",
                                                        "mailadministrator"};
    return std::any_of(Names.begin(), Names.end(), [&](std::string_view name) { return local == name; });
}

bool ContainsAddress(const std::vector<std::string>& addresses, std::string_view address) noexcept {
    return std::any_of(addresses.begin(), addresses.end(),
                       [address](const std::string& other) { return EqualNoCase(other, address); });
}

std::vector<std::string> ReturnedRecipients(const CNoticeParts& parts, const std::vector<std::string>& ownAddresses) {
    std::vector<std::string> addresses;
    for (const std::string_view field : {"X-Envelope-To", "Delivered-To", "To"}) {
        addresses = AddressesOf(parts.returned.FindStored(field));
        std::erase_if(addresses, [&](const std::string& one) { return ContainsAddress(ownAddresses, one); });
        if (!addresses.empty()) break;
    }
    return addresses;
}

std::vector<CFailedAddress> FindFailedAddresses(const CNoticeParts& parts,
                                                const std::vector<std::string>& ownAddresses) {
    std::vector<CCandidate> candidates = ScanCandidates(parts.text);
    std::vector<CFailedAddress> found;
    for (const std::string& address : AddressesOf(parts.header.FindStored("X-Failed-Recipients")))
        AddOnce(found, {address, PositionOf(candidates, address)});
    if (!found.empty()) return found;

    // The notice goes to the one whose message failed, and comes from the system that says so.
    std::vector<std::string> others = ownAddresses;
    for (const std::string_view field : {"To", "From", "Return-Path"}) {
        const auto addresses = AddressesOf(parts.header.FindStored(field));
        others.insert(others.end(), addresses.begin(), addresses.end());
    }
    const auto sender = AddressesOf(parts.returned.FindStored("From"));
    others.insert(others.end(), sender.begin(), sender.end());
    DropForeign(candidates);
    std::vector<CCandidate> likely = candidates;
    std::erase_if(likely, [&](const CCandidate& one) { return ContainsAddress(others, one.address); });
    AddBest(found, likely);
    if (!found.empty()) return found;
    const auto recipients = ReturnedRecipients(parts, others);
    if (recipients.size() == 1) {
        AddOnce(found, {recipients.front(), std::string::npos});
        return found;
    }
    for (const CCandidate& one : ScanCandidates(parts.subject))
        if (!ContainsAddress(others, one.address) && !IsSystemAddress(one.address))
            AddOnce(found, {one.address, std::string::npos});
    if (!found.empty()) return found;
    // Who wrote to himself: only where the place leaves no doubt.
    std::erase_if(candidates, [&](const CCandidate& one) {
        return one.place != Place::Listed || ContainsAddress(ownAddresses, one.address);
    });
    AddBest(found, candidates);
    return found;
}
