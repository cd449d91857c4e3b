// memberrecord.h - the bytes of one member record.
//
// Offsets and sizes are in bytes.  An older table lacks the stored texts.

#ifndef LISTHAVEN_ENGINE_MEMBERRECORD_H
#define LISTHAVEN_ENGINE_MEMBERRECORD_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "engine/member.h"

// One record in memory, or a view of one within a block.
class CMemberRecord {
public:
    static constexpr int TextCount = CMember::SlotCount + 1;  // the slots, and the properties behind them
    static constexpr int PropertiesText = CMember::SlotCount;
    static constexpr std::size_t ReferencesAt = 741;
    static constexpr std::size_t Size = ReferencesAt + 4 * TextCount;
    static constexpr std::int32_t NoText = -1;

    // bytes: of one record, at least up to the references; they must outlive this.
    explicit CMemberRecord(std::span<std::byte> bytes) noexcept : m_bytes(bytes) {}

    void Clear();                    // live, empty, without texts
    bool IsRecord() const noexcept;  // live or removed, not any bytes
    bool IsMember() const noexcept;  // live, and with an address
    void MarkRemoved() noexcept;

    std::string_view GetAddress() const noexcept;
    std::int32_t GetText(int text) const noexcept;  // the reference, NoText when the table has no such column
    void SetText(int text, std::int32_t reference) noexcept;

    void GetFixed(CMember& member) const;  // names, address and mode
    void SetAddress(std::string_view address) noexcept;
    void SetFirstName(std::string_view text) noexcept;
    void SetMiddleName(std::string_view text) noexcept;
    void SetLastName(std::string_view text) noexcept;
    void SetName(std::string_view text) noexcept;
    void SetMode(DeliveryMode mode);

private:
    std::span<std::byte> m_bytes;
};

#endif  // LISTHAVEN_ENGINE_MEMBERRECORD_H
