#include "engine/memberrecord.h"

#include <algorithm>
#include <cstring>

#include "engine/membertable.h"
#include "utility/text.h"

namespace {

struct FixedText {
    std::size_t offset;
    std::size_t limit;  // one more byte for the NUL
};

constexpr FixedText Address = {1, CMember::AddressLimit};
constexpr FixedText FirstName = {Address.offset + Address.limit + 1, CMember::NamePartLimit};
constexpr FixedText MiddleName = {FirstName.offset + FirstName.limit + 1, CMember::NamePartLimit};
constexpr FixedText LastName = {MiddleName.offset + MiddleName.limit + 1, CMember::NamePartLimit};
constexpr FixedText Name = {LastName.offset + LastName.limit + 1, CMember::NameLimit};
constexpr FixedText Mode = {Name.offset + Name.limit + 1, 4};
static_assert(Mode.offset + Mode.limit + 1 == CMemberRecord::ReferencesAt);

std::string_view Get(std::span<const std::byte> bytes, const FixedText& text) {
    const char* const start = reinterpret_cast<const char*>(bytes.data()) + text.offset;
    const void* const end = std::memchr(start, 0, text.limit + 1);
    return {start, end ? static_cast<std::size_t>(static_cast<const char*>(end) - start) : text.limit};
}

void Put(std::span<std::byte> bytes, const FixedText& text, std::string_view value) {
    const std::size_t length = std::min(value.size(), text.limit);
    std::memcpy(bytes.data() + text.offset, value.data(), length);
    std::memset(bytes.data() + text.offset + length, 0, text.limit + 1 - length);
}

}  // namespace

void CMemberRecord::Clear() {
    std::fill(m_bytes.begin(), m_bytes.end(), std::byte{0});
    m_bytes[0] = std::byte{'N'};
    for (int text = 0; text < TextCount; ++text)
        SetText(text, NoText);
}

bool CMemberRecord::IsRecord() const noexcept {
    return m_bytes[0] == std::byte{'N'} || m_bytes[0] == std::byte{'Y'};
}
bool CMemberRecord::IsMember() const noexcept {
    return m_bytes[0] == std::byte{'N'} && m_bytes[Address.offset] != std::byte{0};
}
void CMemberRecord::MarkRemoved() noexcept {
    m_bytes[0] = std::byte{'Y'};
}

std::string_view CMemberRecord::GetAddress() const noexcept {
    return Get(m_bytes, Address);
}

std::int32_t CMemberRecord::GetText(int text) const noexcept {
    const std::size_t offset = ReferencesAt + 4 * static_cast<std::size_t>(text);
    if (offset + 4 > m_bytes.size()) return NoText;
    std::uint32_t reference = 0;
    for (std::size_t i = 4; i-- > 0;)
        reference = reference << 8 | std::to_integer<std::uint32_t>(m_bytes[offset + i]);
    return static_cast<std::int32_t>(reference);
}

void CMemberRecord::SetText(int text, std::int32_t reference) noexcept {
    const std::size_t offset = ReferencesAt + 4 * static_cast<std::size_t>(text);
    if (offset + 4 > m_bytes.size()) return;
    const auto number = static_cast<std::uint32_t>(reference);
    for (std::size_t i = 0; i < 4; ++i)
        m_bytes[offset + i] = static_cast<std::byte>(number >> (8 * i));
}

void CMemberRecord::GetFixed(CMember& member) const {
    member.address = Get(m_bytes, Address);
    member.firstName = Get(m_bytes, FirstName);
    member.middleName = Get(m_bytes, MiddleName);
    member.lastName = Get(m_bytes, LastName);
    member.name = Get(m_bytes, Name);
    member.mode = DeliveryModeOfNumber(LeadingNumber(Get(m_bytes, Mode)));
}

void CMemberRecord::SetAddress(std::string_view address) noexcept {
    Put(m_bytes, Address, address);
}
void CMemberRecord::SetFirstName(std::string_view text) noexcept {
    Put(m_bytes, FirstName, text);
}
void CMemberRecord::SetMiddleName(std::string_view text) noexcept {
    Put(m_bytes, MiddleName, text);
}
void CMemberRecord::SetLastName(std::string_view text) noexcept {
    Put(m_bytes, LastName, text);
}
void CMemberRecord::SetName(std::string_view text) noexcept {
    Put(m_bytes, Name, text);
}

void CMemberRecord::SetMode(DeliveryMode mode) {
    Put(m_bytes, Mode, std::to_string(static_cast<std::int32_t>(mode)));
}
