#include "engine/listvalues.h"

#include <algorithm>
#include <array>
#include <vector>

#include "engine/catalogue.h"
#include "engine/looplevel.h"
#include "mime/mailbox.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::array<std::string_view, 4> AddressKeys = {"List", "Command", "Authorized", "Post"};
constexpr std::array<std::string_view, 3> KindNames = {"discussion", "announcement", "autoresponder"};

[[noreturn]] void Reject(const ListSetting& setting, const std::string& reason) {
    throw CLhvException("The setting " + std::string(setting.key) + " " + reason);
}

bool HoldsControls(std::string_view text) noexcept {
    return std::any_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 127; });
}

std::string_view KnownAddressKey(std::string_view key) {
    for (const std::string_view known : AddressKeys) {
        if (EqualNoCase(known, key)) return known;
    }
    throw CLhvException("\"" + OneLine(key) + "\" is no kind of list address; use List, Command, Authorized or Post.");
}

void CheckAddress(std::string_view address) {
    std::string reason;
    if (!IsPlausibleAddress(address, &reason)) {
        throw CLhvException("\"" + OneLine(address) + "\" is not an e-mail address: " + reason);
    }
}

// Calls visit(key, address) for every line that is one.
template <class V>
void ForEachAddress(std::string_view listAddresses, const V& visit) {
    for (const std::string_view line : Split(listAddresses, '\n')) {
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos) visit(Trim(line.substr(0, colon)), Trim(line.substr(colon + 1)));
    }
}

std::string AcceptAddresses(const ListSetting& setting, std::string_view value) {
    std::string accepted;
    for (const std::string_view line : Split(value, '\n')) {
        if (Trim(line).empty()) continue;
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) Reject(setting, "holds lines \"Key: address\".");
        const std::string_view key = KnownAddressKey(Trim(line.substr(0, colon)));
        const std::string_view address = Trim(line.substr(colon + 1));
        if (address.empty()) continue;
        CheckAddress(address);
        if (!FindListAddress(accepted, key).empty()) Reject(setting, "holds \"" + std::string(key) + "\" twice.");
        accepted += std::string(key) + ": " + std::string(address) + "\n";
    }
    return accepted;
}

std::string AcceptName(const ListSetting& setting, std::string_view value) {
    const std::string_view name = Trim(value);
    if (name.empty()) Reject(setting, "must not be empty.");
    if (ParseNumber(name)) Reject(setting, "must not be a number, since lists are known by number too.");
    return std::string(name);
}

// 7:05 becomes 07:05.
std::string AcceptTime(const ListSetting& setting, std::string_view value) {
    const std::vector<std::string_view> parts = Split(Trim(value), ':');
    if (parts.size() == 2 && !parts[0].empty() && parts[0].size() <= 2 && parts[1].size() == 2) {
        const auto hours = ParseNumber(parts[0]);
        const auto minutes = ParseNumber(parts[1]);
        if (hours && minutes && *hours >= 0 && *hours < 24 && *minutes >= 0 && *minutes < 60) {
            return FormatText("%02d:%02d", static_cast<int>(*hours), static_cast<int>(*minutes));
        }
    }
    Reject(setting, "must be a time from 00:00 to 23:59.");
}

}  // namespace

bool HoldsNumber(SettingKind kind) noexcept {
    return kind == SettingKind::Number || kind == SettingKind::Flag || kind == SettingKind::ListKind;
}

std::string AcceptText(const ListSetting& setting, std::string_view value) {
    if (setting.kind == SettingKind::Fixed) Reject(setting, "cannot be changed.");
    if (HoldsNumber(setting.kind)) return std::to_string(ParseSettingNumber(setting, value));
    const bool hasLines = setting.kind == SettingKind::LongText || setting.kind == SettingKind::Addresses;
    if (value.find('\0') != std::string_view::npos || (!hasLines && HoldsControls(value))) {
        Reject(setting, "must not hold control characters.");
    }
    std::string accepted = hasLines ? CrLfToLf(value) : std::string(value);
    if (setting.kind == SettingKind::Addresses) accepted = AcceptAddresses(setting, accepted);
    if (setting.kind == SettingKind::Time) accepted = AcceptTime(setting, accepted);
    if (setting.column == ListColumn::Name) accepted = AcceptName(setting, accepted);
    if (setting.column == ListColumn::RedirectAddress && !accepted.empty()) CheckAddress(accepted);
    if (accepted.size() > static_cast<std::size_t>(setting.most)) {
        Reject(setting, "takes at most " + std::to_string(setting.most) + " bytes.");
    }
    return accepted;
}

std::int64_t AcceptNumber(const ListSetting& setting, std::int64_t value) {
    if (!HoldsNumber(setting.kind)) Reject(setting, "is not a number.");
    if (value >= setting.least && value <= setting.most) {
        if (setting.column != ListColumn::LoopProtection || (value & ~LoopProtectionBits) == 0) return value;
        Reject(setting, "is a sum of 1, 2 and 8.");
    }
    if (setting.column == ListColumn::MaxConnections) {
        throw CLhvException("Invalid number of simultaneous SMTP connections.");
    }
    Reject(setting, "must be from " + std::to_string(setting.least) + " to " + std::to_string(setting.most) + ".");
}

std::int64_t ParseSettingNumber(const ListSetting& setting, std::string_view text) {
    const std::string_view word = Trim(text);
    if (setting.kind == SettingKind::ListKind) {
        ListKind kind{};
        if (ParseListKind(word, kind)) return static_cast<std::int64_t>(kind);
    }
    if (setting.column == ListColumn::LoopProtection) {
        LoopLevel level{};
        if (ParseLoopLevel(word, level)) return LoopBitsOf(level, 0);
    }
    if (setting.kind == SettingKind::Flag) {
        for (const std::string_view yes : {"yes", "on", "true"}) {
            if (EqualNoCase(word, yes)) return 1;
        }
        for (const std::string_view no : {"no", "off", "false"}) {
            if (EqualNoCase(word, no)) return 0;
        }
    }
    const auto number = ParseNumber(word);
    if (number) return AcceptNumber(setting, *number);
    if (setting.column == ListColumn::MaxConnections) {
        throw CLhvException("Invalid number of simultaneous SMTP connections.");
    }
    Reject(setting, setting.kind == SettingKind::Flag       ? "must be yes or no."
                    : setting.kind == SettingKind::ListKind ? "must be discussion, announcement or autoresponder."
                                                            : "must be a number.");
}

std::string_view ListKindName(ListKind kind) noexcept {
    const auto number = static_cast<std::size_t>(kind);
    return number < KindNames.size() ? KindNames[number] : KindNames[0];
}

bool ParseListKind(std::string_view name, ListKind& kind) noexcept {
    for (std::size_t i = 0; i < KindNames.size(); ++i) {
        if (!EqualNoCase(KindNames[i], name)) continue;
        kind = static_cast<ListKind>(i);
        return true;
    }
    return false;
}

std::string FindListAddress(std::string_view listAddresses, std::string_view key) {
    std::string found;
    ForEachAddress(listAddresses, [&](std::string_view lineKey, std::string_view address) {
        if (found.empty() && EqualNoCase(lineKey, key)) found = address;
    });
    return found;
}

std::string WithListAddress(std::string_view listAddresses, std::string_view key, std::string_view address) {
    const std::string_view known = KnownAddressKey(key);
    const std::string_view trimmed = Trim(address);
    if (!trimmed.empty()) CheckAddress(trimmed);
    std::string result;
    bool isPlaced = trimmed.empty();
    const auto add = [&](std::string_view lineKey, std::string_view value) {
        result += std::string(lineKey) + ": " + std::string(value) + "\n";
    };
    ForEachAddress(listAddresses, [&](std::string_view lineKey, std::string_view value) {
        if (!EqualNoCase(lineKey, known)) {
            add(lineKey, value);
        } else if (!isPlaced) {
            add(known, trimmed);
            isPlaced = true;
        }
    });
    if (!isPlaced) add(known, trimmed);
    return result;
}
