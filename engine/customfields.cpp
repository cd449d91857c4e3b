#include "engine/customfields.h"

#include <algorithm>
#include <vector>

#include "app/datafolder.h"
#include "engine/standardfields.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/text.h"

namespace {

enum Column : int { NameColumn = 1, DescriptionColumn = 2, KindColumn = 3 };

constexpr std::array FieldColumns = {
    CColumnDescription{ColumnType::Text, static_cast<std::int32_t>(CCustomFields::NameLimit), 512, "Name"},
    CColumnDescription{ColumnType::Text, static_cast<std::int32_t>(CCustomFields::DescriptionLimit), 512,
                       "Description"},
    CColumnDescription{ColumnType::Text, 4, 512, "Kind"},
};

constexpr std::array<std::string_view, 4> KindNames = {"text", "number", "date", "choice"};

bool Refuse(std::string* reason, const char* text) {
    if (reason) *reason = text;
    return false;
}

void CheckSlot(int slot) {
    if (slot < 0 || slot >= CCustomFields::SlotCount) {
        throw CLhvException("There is no slot " + std::to_string(slot) + "; slots are 0 to 63.");
    }
}

void OpenFields(CSTable& table, const std::string& path, bool readOnly) {
    if (!table.Open(path, FieldColumns, readOnly, !readOnly)) {
        throw CLhvException("The custom fields \"" + path + "\" cannot be opened.", Platform::LastSystemError());
    }
}

}  // namespace

std::string_view CustomFieldKindName(CustomFieldKind kind) noexcept {
    const auto number = static_cast<std::size_t>(kind);
    return number < KindNames.size() ? KindNames[number] : KindNames[0];
}

std::optional<CustomFieldKind> ParseCustomFieldKind(std::string_view name) noexcept {
    for (std::size_t i = 0; i < KindNames.size(); ++i) {
        if (EqualNoCase(KindNames[i], name)) return static_cast<CustomFieldKind>(i);
    }
    return std::nullopt;
}

bool CCustomFields::IsName(std::string_view name, std::string* reason) {
    if (name.empty()) return Refuse(reason, "The name of a field must not be empty.");
    if (name.size() > NameLimit) return Refuse(reason, "The name of a field takes at most 64 bytes.");
    if (name.front() == ' ' || name.back() == ' ') {
        return Refuse(reason, "The name of a field must not begin or end with a blank.");
    }
    const auto isForbidden = [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == 127 || c == '(' || c == ')' || c == '$';
    };
    if (std::any_of(name.begin(), name.end(), isForbidden)) {
        return Refuse(reason, "The name of a field must not hold \"(\", \")\", \"$\" or control characters.");
    }
    if (IsStandardFieldName(name)) return Refuse(reason, "The program sets a field of that name itself.");
    return true;
}

void CCustomFields::Load(std::uint32_t listNumber) {
    LoadPath(GetDataFolder() + std::to_string(listNumber) + ".CFD");
}

void CCustomFields::LoadPath(const std::string& tablePath) {
    m_path = tablePath;
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    ReadSlots();
}

// The caller holds the mutex.
void CCustomFields::ReadSlots() {
    std::array<CustomField, SlotCount> slots;
    if (Platform::FileIsThere(m_path)) {
        CSTable table;
        OpenFields(table, m_path, true);
        const std::int32_t count = std::min(table.GetRecordCount(), SlotCount);
        for (std::int32_t slot = 0; slot < count; ++slot) {
            table.Go(slot);
            if (table.IsDeleted()) continue;
            CustomField& field = slots[static_cast<std::size_t>(slot)];
            field.name = table.ReadText(NameColumn);
            field.description = table.ReadText(DescriptionColumn);
            const std::int64_t kind = table.ReadNumber(KindColumn);
            const bool isKind = kind >= 0 && kind < static_cast<std::int64_t>(KindNames.size());
            field.kind = isKind ? static_cast<CustomFieldKind>(kind) : CustomFieldKind::Text;
        }
    }
    m_slots = std::move(slots);
}

const CustomField& CCustomFields::GetSlot(int slot) const {
    CheckSlot(slot);
    return m_slots[static_cast<std::size_t>(slot)];
}

int CCustomFields::FindSlot(std::string_view name) const noexcept {
    if (name.empty()) return -1;
    for (int slot = 0; slot < SlotCount; ++slot) {
        if (EqualNoCase(m_slots[static_cast<std::size_t>(slot)].name, name)) return slot;
    }
    return -1;
}

int CCustomFields::FindFreeSlot() const noexcept {
    for (int slot = 0; slot < SlotCount; ++slot) {
        if (m_slots[static_cast<std::size_t>(slot)].IsFree()) return slot;
    }
    return -1;
}

void CCustomFields::Set(int slot, const CustomField& field) {
    CheckSlot(slot);
    std::string reason;
    if (!IsName(field.name, &reason)) throw CLhvException(reason);
    CustomField accepted = field;
    accepted.description = OneLine(field.description);
    if (accepted.description.size() > DescriptionLimit) {
        throw CLhvException("The description of a field takes at most 256 bytes.");
    }
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    ReadSlots();
    const int holder = FindSlot(accepted.name);
    if (holder >= 0 && holder != slot) {
        throw CLhvException("A field named \"" + accepted.name + "\" already exists, in slot " +
                            std::to_string(holder) + ".");
    }
    WriteSlot(slot, accepted);
}

void CCustomFields::Clear(int slot) {
    CheckSlot(slot);
    Platform::CNamedMutex mutex(TableMutexName(m_path));
    const CMutexGuard guard(mutex);
    ReadSlots();
    if (!GetSlot(slot).IsFree()) WriteSlot(slot, {});
}

void CCustomFields::WriteSlot(int slot, const CustomField& field) {
    CSTable table;
    OpenFields(table, m_path, false);
    const auto size = static_cast<std::size_t>(table.GetRecordSize());
    const std::int32_t count = table.GetRecordCount();
    if (count < SlotCount) {
        std::vector<std::byte> blank(static_cast<std::size_t>(SlotCount - count) * size);
        table.AppendRecords(blank);
    }
    std::vector<std::byte> record = table.MakeRecord();
    table.PutText(record, NameColumn, field.name);
    table.PutText(record, DescriptionColumn, field.description);
    table.PutNumber(record, KindColumn, static_cast<std::int64_t>(field.kind));
    table.Go(slot);
    table.WriteRecord(record);
    table.Flush();
    m_slots[static_cast<std::size_t>(slot)] = field;
    const bool isAllFree =
        std::all_of(m_slots.begin(), m_slots.end(), [](const CustomField& each) { return each.IsFree(); });
    if (isAllFree) table.RemoveAll();
}

std::span<const CColumnDescription> CCustomFields::Columns() noexcept {
    return FieldColumns;
}
