// customfields.h - the custom fields of a list: 64 slots, <n>.CFD.
//
// A slot without a name is free.  The values are with the members, by slot.
//
// Errors   CLhvException: the system's faults, a name that is not acceptable.
// Sharing  A CCustomFields is what the file said when it was loaded; it belongs
//          to one thread at a time.  Set() and Clear() hold the named mutex of
//          the file and look at it anew.
// Crash    A slot has its old or its new definition.

#ifndef LISTHAVEN_ENGINE_CUSTOMFIELDS_H
#define LISTHAVEN_ENGINE_CUSTOMFIELDS_H

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "engine/stable.h"

enum class CustomFieldKind : std::int32_t { Text = 0, Number = 1, Date = 2, Choice = 3 };

std::string_view CustomFieldKindName(CustomFieldKind kind) noexcept;                  // "text", "number", ...
std::optional<CustomFieldKind> ParseCustomFieldKind(std::string_view name) noexcept;  // without regard to case

struct CustomField {
    std::string name;
    std::string description;
    CustomFieldKind kind = CustomFieldKind::Text;

    bool IsFree() const noexcept { return name.empty(); }
    bool operator==(const CustomField&) const = default;
};

class CCustomFields {
public:
    static constexpr int SlotCount = 64;
    static constexpr std::size_t NameLimit = 64;  // bytes
    static constexpr std::size_t DescriptionLimit = 256;

    CCustomFields() = default;  // all free

    void Load(std::uint32_t listNumber);  // of the data folder; all free when there is no file
    void LoadPath(const std::string& tablePath);

    const CustomField& GetSlot(int slot) const;          // throws when there is no such slot
    int FindSlot(std::string_view name) const noexcept;  // without regard to case; -1
    int FindFreeSlot() const noexcept;                   // -1

    void Set(int slot, const CustomField& field);  // stored when it returns
    void Clear(int slot);                          // the values of the members stay

    // Fits between "$(" and ")" and is no standard field.
    static bool IsName(std::string_view name, std::string* reason = nullptr);

    static std::span<const CColumnDescription> Columns() noexcept;

private:
    void ReadSlots();
    void WriteSlot(int slot, const CustomField& field);

    std::string m_path;
    std::array<CustomField, SlotCount> m_slots;
};

#endif  // LISTHAVEN_ENGINE_CUSTOMFIELDS_H
