// membertable.h - the record table of a list's members, "%u.MBR".
//
// Errors   As CSTable.
// Sharing  As CSTable: the caller holds the named mutex of the file.  Whoever
//          wants members rather than records uses CMemberStore.

#ifndef LISTHAVEN_ENGINE_MEMBERTABLE_H
#define LISTHAVEN_ENGINE_MEMBERTABLE_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "engine/member.h"
#include "engine/stable.h"

class CMemberTable : public CSTable {
public:
    enum Column : int {
        AddressColumn = 1,
        FirstNameColumn = 2,
        MiddleNameColumn = 3,
        LastNameColumn = 4,
        NameColumn = 5,
        ModeColumn = 6,
        FirstSlotColumn = 7,  // slot k is column k + 7
        PropertiesColumn = 71,
    };

    static std::span<const CColumnDescription> Columns();
    static std::int32_t LimitOf(Column column);  // bytes a text of columns 1 to 6 may have

    // Of the current record.
    std::string GetAddress() { return ReadText(AddressColumn); }
    std::string GetFirstName() { return ReadText(FirstNameColumn); }
    std::string GetMiddleName() { return ReadText(MiddleNameColumn); }
    std::string GetLastName() { return ReadText(LastNameColumn); }
    std::string GetName() { return ReadText(NameColumn); }
    std::string GetProperties() { return ReadText(PropertiesColumn); }
    std::string GetField(int slot) { return ReadText(SlotColumn(slot)); }
    std::int32_t GetMode();

    void SetAddress(std::string_view text) { WriteText(AddressColumn, text); }
    void SetFirstName(std::string_view text) { WriteText(FirstNameColumn, text); }
    void SetMiddleName(std::string_view text) { WriteText(MiddleNameColumn, text); }
    void SetLastName(std::string_view text) { WriteText(LastNameColumn, text); }
    void SetName(std::string_view text) { WriteText(NameColumn, text); }
    void SetProperties(std::string_view text) { WriteText(PropertiesColumn, text); }
    void SetField(int slot, std::string_view text) { WriteText(SlotColumn(slot), text); }
    void SetMode(std::int32_t mode);

private:
    static int SlotColumn(int slot);  // throws when there is no such slot
};

#endif  // LISTHAVEN_ENGINE_MEMBERTABLE_H
