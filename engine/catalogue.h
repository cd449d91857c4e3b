// catalogue.h - the mailing lists and their settings: LISTS.CST.
//
// One record per list.  A list is known by its record index, which never
// changes, or by its number, which names its files and is never given again.
// Deleted lists keep their record for that.
//
// Errors   CLhvException: the system's faults, an index that is no list's, a
//          value that is not acceptable (nothing is changed then).
// Threads  Any member from any thread, any number of processes: each operation
//          holds the named mutex of the table.
// Crash    A list is there whole or not at all; a setting is the old or the new
//          one.  What has returned is on the disk.

#ifndef LISTHAVEN_ENGINE_CATALOGUE_H
#define LISTHAVEN_ENGINE_CATALOGUE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/listsettings.h"
#include "engine/stable.h"

enum class ListKind : std::int32_t { Discussion = 0, Announcement = 1, Autoresponder = 2 };

std::string_view ListKindName(ListKind kind) noexcept;               // "discussion", ...
bool ParseListKind(std::string_view name, ListKind& kind) noexcept;  // without regard to case

struct NewList {
    std::string name = "Enter a list name here";  // only this one may be there several times
    std::string listAddresses;                    // lines "Key: address"
    ListKind kind = ListKind::Discussion;
};

class CCatalogue {
public:
    static constexpr std::int32_t None = -1;

    // While it lives nobody else changes the catalogue, and reading it costs no
    // locks: for many reads in a moment.  Of one thread; CLhvException.
    class CKeep {
    public:
        explicit CKeep(CCatalogue& catalogue);
        CKeep(const CKeep&) = delete;
        CKeep& operator=(const CKeep&) = delete;
        ~CKeep();

    private:
        struct CHeld;
        std::unique_ptr<CHeld> m_held;
    };

    CCatalogue();  // of the data folder
    explicit CCatalogue(std::string_view folder);
    CCatalogue(const CCatalogue&) = delete;
    CCatalogue& operator=(const CCatalogue&) = delete;
    ~CCatalogue();

    // In record order, until visit returns false.  The mutex is free while visit runs.
    void ForEach(const std::function<bool(std::int32_t index)>& visit);
    std::vector<std::int32_t> GetLists();

    std::int32_t FindByNumber(std::uint32_t number);         // index or None, as the next two
    std::int32_t FindByName(std::string_view name);          // without regard to case
    std::int32_t FindByNameOrNumber(std::string_view text);  // a list's name is never a number

    std::int32_t Create(const NewList& list = {});  // its index; throws when the name is taken
    // Also removes the list's files.  The result names what could not be removed.
    // Its account folder and queues are the caller's.
    std::vector<std::string> Delete(std::int32_t index);

    std::string GetText(std::int32_t index, ListColumn column);
    std::int64_t GetNumber(std::int32_t index, ListColumn column);
    bool GetFlag(std::int32_t index, ListColumn column) { return GetNumber(index, column) != 0; }
    void SetText(std::int32_t index, ListColumn column, std::string_view value);
    void SetNumber(std::int32_t index, ListColumn column, std::int64_t value);
    void SetFlag(std::int32_t index, ListColumn column, bool value) { SetNumber(index, column, value ? 1 : 0); }

    std::uint32_t GetListNumber(std::int32_t index);
    std::string GetName(std::int32_t index) { return GetText(index, ListColumn::Name); }
    ListKind GetKind(std::int32_t index);
    std::string GetGuid(std::int32_t index) { return GetText(index, ListColumn::Guid); }

    // Keys are List, Command, Authorized, Post; a missing Command or Post is the
    // list address.
    std::string GetListAddress(std::int32_t index, std::string_view key);
    void SetListAddress(std::int32_t index, std::string_view key, std::string_view address);  // "" removes

    // By the key of a setting (listsettings.h), in the words of a command:
    // flags are "0"/"1" (also "yes", "no", "on", "off", "true", "false"), the kind
    // is its name.  The keys listAddress, commandAddress, authorizedAddress and
    // postAddress set one address.  A secret reads as "" when it is not set, else "*".
    std::string GetByKey(std::int32_t index, std::string_view key);
    void SetByKey(std::int32_t index, std::string_view key, std::string_view value);

    const std::string& GetFolder() const noexcept;                                    // with separator
    std::string GetListFile(std::uint32_t number, std::string_view extension) const;  // extension: "MBR", "CFD", ...

    static std::span<const CColumnDescription> Columns() noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

// Of the process and its data folder.
CCatalogue& GetCatalogue();

// For tests, which remove their data folders: closes the files of each that
// GetCatalogue() has returned.  Nobody may use one of them any more.
void CloseCatalogues();

// One address out of lines "Key: address"; "" when it is not there.
std::string FindListAddress(std::string_view listAddresses, std::string_view key);

#endif  // LISTHAVEN_ENGINE_CATALOGUE_H
