// member.h - one member of a list, as a value.
//
// Slots are those of the list's custom fields, 0 to 63.

#ifndef LISTHAVEN_ENGINE_MEMBER_H
#define LISTHAVEN_ENGINE_MEMBER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class DeliveryMode : std::int32_t {
    Regular = 0,  // every message
    Both = 1,     // every message and the digest
    Digest = 2,   // the digest only
};

std::string_view DeliveryModeName(DeliveryMode mode) noexcept;                  // "regular", "both", "digest"
std::optional<DeliveryMode> ParseDeliveryMode(std::string_view name) noexcept;  // without regard to case
DeliveryMode DeliveryModeOfNumber(std::int32_t number) noexcept;                // Regular for a number that is none

struct CMember {
    static constexpr int SlotCount = 64;
    static constexpr std::size_t AddressLimit = 128;  // bytes, as the four below
    static constexpr std::size_t NamePartLimit = 30;
    static constexpr std::size_t NameLimit = 512;

    std::string address;
    std::string firstName;
    std::string middleName;
    std::string lastName;
    std::string name;  // the whole display name
    DeliveryMode mode = DeliveryMode::Regular;
    std::vector<std::string> fields;  // by slot; a slot beyond the end is empty
    std::string properties;           // lines "Key: value", LF

    std::string_view GetField(int slot) const noexcept;
    void SetField(int slot, std::string_view value);  // ignored when there is no such slot

    // Keys compare without regard to case and hold no colon.  Setting "" removes.
    std::string GetProperty(std::string_view key) const;
    void SetProperty(std::string_view key, std::string_view value);

    bool IsInactive() const { return !GetProperty("Inactive").empty(); }  // gets no broadcasts
};

// Brings a member into the form in which it is stored: no CR, LF or NUL in any
// value, the address without surrounding blanks, names cut to their limits (not
// within a UTF-8 character).  False, with the reason, when the address is none
// or too long.
bool PrepareMember(CMember& member, std::string& reason);

#endif  // LISTHAVEN_ENGINE_MEMBER_H
