#include "engine/member.h"

#include <array>

#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::array<std::string_view, 3> ModeNames = {"regular", "both", "digest"};

// Not behind the limit, and not within a UTF-8 character.
void CutTo(std::string& text, std::size_t limit) {
    if (text.size() <= limit) return;
    std::size_t end = limit;
    if (IsValidUtf8(text)) {
        while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
            --end;
    }
    text.resize(end);
}

bool NeedsOneLine(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos;
}

void MakeOneLine(std::string& text) {
    if (NeedsOneLine(text)) text = OneLine(text);
}

// The start and end (without LF) of the line of a property, npos when there is none.
std::size_t FindProperty(std::string_view lines, std::string_view key, std::size_t& end) {
    for (std::size_t start = 0; start < lines.size(); start = end + 1) {
        end = lines.find('\n', start);
        if (end == std::string_view::npos) end = lines.size();
        const std::string_view line = lines.substr(start, end - start);
        const std::size_t colon = line.find(':');
        if (colon != std::string_view::npos && EqualNoCase(Trim(line.substr(0, colon)), key)) return start;
    }
    return std::string_view::npos;
}

}  // namespace

std::string_view DeliveryModeName(DeliveryMode mode) noexcept {
    return ModeNames[static_cast<std::size_t>(DeliveryModeOfNumber(static_cast<std::int32_t>(mode)))];
}

std::optional<DeliveryMode> ParseDeliveryMode(std::string_view name) noexcept {
    for (std::size_t i = 0; i < ModeNames.size(); ++i) {
        if (EqualNoCase(name, ModeNames[i])) return static_cast<DeliveryMode>(i);
    }
    return std::nullopt;
}

DeliveryMode DeliveryModeOfNumber(std::int32_t number) noexcept {
    return number == 1 || number == 2 ? static_cast<DeliveryMode>(number) : DeliveryMode::Regular;
}

std::string_view CMember::GetField(int slot) const noexcept {
    if (slot < 0 || static_cast<std::size_t>(slot) >= fields.size()) return {};
    return fields[static_cast<std::size_t>(slot)];
}

void CMember::SetField(int slot, std::string_view value) {
    if (slot < 0 || slot >= SlotCount) return;
    const auto position = static_cast<std::size_t>(slot);
    if (position >= fields.size()) {
        if (value.empty()) return;
        fields.resize(position + 1);
    }
    fields[position] = value;
}

std::string CMember::GetProperty(std::string_view key) const {
    std::size_t end = 0;
    const std::size_t start = FindProperty(properties, key, end);
    if (start == std::string::npos) return {};
    const std::string_view line = std::string_view(properties).substr(start, end - start);
    return std::string(Trim(line.substr(line.find(':') + 1)));
}

void CMember::SetProperty(std::string_view key, std::string_view value) {
    const std::string oneLine = OneLine(Trim(value));
    const std::string line = oneLine.empty() ? "" : std::string(key) + ": " + oneLine + "\n";
    std::size_t end = 0;
    const std::size_t start = FindProperty(properties, key, end);
    if (start != std::string::npos) {
        properties.replace(start, end + 1 - start, line);
        return;
    }
    if (!line.empty() && !properties.empty() && properties.back() != '\n') properties += '\n';
    properties += line;
}

bool PrepareMember(CMember& member, std::string& reason) {
    member.address = Trim(member.address);
    if (member.address.size() > CMember::AddressLimit) {
        reason = "The address is longer than 128 characters.";
        return false;
    }
    if (!IsPlausibleAddress(member.address, &reason)) return false;
    for (std::string* text : {&member.firstName, &member.middleName, &member.lastName, &member.name})
        MakeOneLine(*text);
    for (std::string* part : {&member.firstName, &member.middleName, &member.lastName}) {
        CutTo(*part, CMember::NamePartLimit);
    }
    CutTo(member.name, CMember::NameLimit);
    if (member.fields.size() > static_cast<std::size_t>(CMember::SlotCount)) {
        reason = "There are more than 64 fields.";
        return false;
    }
    for (std::string& field : member.fields)
        MakeOneLine(field);
    std::erase(member.properties, '\r');
    std::erase(member.properties, '\0');
    return true;
}
