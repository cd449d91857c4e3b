#include "engine/datafields.h"

#include <algorithm>
#include <array>
#include <unordered_map>
#include <utility>

#include "engine/eventlog.h"
#include "mime/htmlconversion.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SourceName = "Shared/Engine/datafields";
constexpr int MaxPasses = 10;

struct CHashNoCase {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
        std::uint64_t hash = 14695981039346656037U;  // FNV-1a
        for (const char c : text) {
            const bool isUpper = c >= 'A' && c <= 'Z';
            hash = (hash ^ static_cast<unsigned char>(isUpper ? c + ('a' - 'A') : c)) * 1099511628211U;
        }
        return static_cast<std::size_t>(hash);
    }
};

struct CEqualNoCase {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const noexcept {
        return a.size() == b.size() && EqualNoCase(a, b);
    }
};

std::string_view WithoutAlias(std::string_view name) noexcept {
    if (name.size() == 12 && EqualNoCase(name, "Sender-Email")) return "Email";
    if (name.size() == 11 && EqualNoCase(name, "Sender-Name")) return "Name";
    return name;
}

// The next reference at or behind "from": its start and the position behind it.
bool FindReference(std::string_view text, std::size_t from, std::size_t& start, std::size_t& end) noexcept {
    start = text.find("$(", from);
    if (start == std::string_view::npos) return false;
    const std::size_t closing = text.find(')', start);
    if (closing == std::string_view::npos) return false;
    end = closing + 1;
    return true;
}

bool HoldsReferenceMarks(std::string_view text) noexcept {
    return text.find("$(") != std::string_view::npos && text.find(')') != std::string_view::npos;
}

// No character that HTML writes otherwise.
bool IsSameInHtml(std::string_view text) noexcept {
    return text.find_first_of("&<>\"") == std::string_view::npos;
}

}  // namespace

// Fields that are taken out of the table stay in the map, marked absent: their
// names are few, and pointers to entries stay good.
struct CDataFieldExpansion::CEntry {
    struct CMade {
        std::uint64_t epoch = 0;
        const std::string* value = nullptr;
    };

    const std::string* key = nullptr;
    std::string value;
    bool isHtml = false;
    bool isPresent = false;
    std::size_t savedAt = 0;         // the depth of the save stack for which the value is in the log already
    std::array<CMade, 2> converted;  // by the mode of the expansion that the epoch belongs to
    std::array<CMade, 2> resolved;
};

// The save stack is a log of what each value was before its first change since
// the push; popping plays it back.
struct CDataFieldTable {
    using Entry = CDataFieldExpansion::CEntry;

    struct Saved {
        Entry* entry;
        std::string value;
        bool isHtml;
        bool isPresent;
        std::size_t savedAt;
    };

    std::unordered_map<std::string, Entry, CHashNoCase, CEqualNoCase> entries;
    std::vector<Saved> saved;
    std::vector<std::size_t> pushes;  // size of "saved" at each push
    std::array<Entry*, static_cast<std::size_t>(DataField::Count)> standard{};
    std::uint64_t epoch = 0;
    std::string key;  // scratch

    Entry* Find(std::string_view reference) noexcept {
        auto found = entries.find(reference);
        return found != entries.end() && found->second.isPresent ? &found->second : nullptr;
    }

    std::string_view MakeKey(std::string_view name) {
        key.assign("$(").append(WithoutAlias(name)).push_back(')');
        return key;
    }

    // The entry of a name, present or not.
    Entry& Take(std::string_view name) {
        MakeKey(name);
        auto found = entries.find(std::string_view(key));
        if (found == entries.end()) {
            found = entries.emplace(key, Entry{}).first;
            found->second.key = &found->first;
        }
        return found->second;
    }

    void Set(Entry& entry, std::string_view value, bool isHtml) {
        if (entry.savedAt < pushes.size()) {
            saved.push_back({&entry, {}, entry.isHtml, entry.isPresent, entry.savedAt});
            if (entry.isPresent) saved.back().value.swap(entry.value);
            entry.savedAt = pushes.size();
        }
        entry.value.assign(value);
        entry.isHtml = isHtml;
        entry.isPresent = true;
    }

    Entry& Standard(DataField field) {
        Entry*& entry = standard[static_cast<std::size_t>(field)];
        if (entry == nullptr) entry = &Take(DataFieldName(field));
        return *entry;
    }

    void Pop() {
        if (pushes.empty()) ThrowInternalError(SourceName, __LINE__);
        for (const std::size_t floor = pushes.back(); saved.size() > floor; saved.pop_back()) {
            Saved& last = saved.back();
            if (last.isPresent) last.entry->value.swap(last.value);
            last.entry->isHtml = last.isHtml;
            last.entry->isPresent = last.isPresent;
            last.entry->savedAt = last.savedAt;
        }
        pushes.pop_back();
    }

    static CDataFieldTable& Get() {
        static CDataFieldTable table;
        return table;
    }
};

CDataFieldName::CDataFieldName(std::string_view name) : m_entry(&CDataFieldTable::Get().Take(name)) {}

void SetDataField(const CDataFieldName& field, std::string_view value, bool isHtml) {
    CDataFieldTable::Get().Set(*static_cast<CDataFieldTable::Entry*>(field.m_entry), value, isHtml);
}

void SetDataField(std::string_view name, std::string_view value, bool isHtml) {
    CDataFieldTable& table = CDataFieldTable::Get();
    table.Set(table.Take(name), value, isHtml);
}

void SetDataField(DataField field, std::string_view value, bool isHtml) {
    CDataFieldTable& table = CDataFieldTable::Get();
    table.Set(table.Standard(field), value, isHtml);
}

std::string GetDataField(std::string_view name) {
    CDataFieldTable& table = CDataFieldTable::Get();
    const auto* entry = table.Find(table.MakeKey(name));
    return entry != nullptr ? entry->value : std::string();
}

bool HoldsDataField(std::string_view text) noexcept {
    std::size_t start = 0;
    std::size_t end = 0;
    return FindReference(text, 0, start, end);
}

bool ContainsDataField(std::string_view text) noexcept {
    const std::size_t start = text.find("$(");
    if (start == std::string_view::npos) return false;
    const std::size_t closing = text.find(')');
    return closing != std::string_view::npos && closing > start;
}

void ExpandDataFields(std::string* text, bool htmlMode) {
    if (text == nullptr) ThrowInternalError(SourceName, __LINE__);
    if (!HoldsDataField(*text)) return;
    std::string result;
    CDataFieldExpansion(htmlMode).Append(result, *text);
    *text = std::move(result);
}

void PushDataFields() {
    CDataFieldTable& table = CDataFieldTable::Get();
    table.pushes.push_back(table.saved.size());
}

void PopDataFields() {
    CDataFieldTable::Get().Pop();
}

CDataFieldText::CDataFieldText(std::string_view text) {
    std::size_t position = 0;
    std::size_t start = 0;
    std::size_t end = 0;
    while (FindReference(text, position, start, end)) {
        if (start > position) m_pieces.push_back({std::string(text.substr(position, start - position)), {}});
        const std::string_view name = text.substr(start + 2, end - start - 3);
        m_pieces.push_back({std::string(name), CDataFieldName(name)});
        m_hasReferences = true;
        position = end;
    }
    if (position < text.size()) m_pieces.push_back({std::string(text.substr(position)), {}});
}

CDataFieldExpansion::CDataFieldExpansion(bool htmlMode) noexcept
    : m_htmlMode(htmlMode), m_epoch(++CDataFieldTable::Get().epoch) {}

std::string_view CDataFieldExpansion::GetValue(CEntry* entry) {
    return entry != nullptr && entry->isPresent ? std::string_view(Resolve(*entry)) : std::string_view();
}

std::string_view CDataFieldExpansion::GetValue(const CDataFieldName& field) {
    return GetValue(static_cast<CEntry*>(field.m_entry));
}

void CDataFieldExpansion::Append(std::string& result, std::string_view text) {
    CDataFieldTable& table = CDataFieldTable::Get();
    std::size_t position = 0;
    std::size_t start = 0;
    std::size_t end = 0;
    while (FindReference(text, position, start, end)) {
        result.append(text.substr(position, start - position));
        result.append(GetValue(table.Find(table.MakeKey(text.substr(start + 2, end - start - 3)))));
        position = end;
    }
    result.append(text.substr(position));
}

void CDataFieldExpansion::Append(std::string& result, const CDataFieldText& text) {
    for (const CDataFieldText::Piece& piece : text.GetPieces()) {
        if (piece.field) {
            result.append(GetValue(*piece.field));
        } else {
            result.append(piece.text);
        }
    }
}

const std::string& CDataFieldExpansion::Convert(CEntry& entry) {
    CEntry::CMade& made = entry.converted[m_htmlMode ? 1 : 0];
    if (made.epoch == m_epoch) return *made.value;
    made.value = &entry.value;
    if (m_htmlMode && !entry.isHtml && !IsSameInHtml(entry.value)) {
        made.value = &m_values.emplace_back(EncodeEntities(entry.value));
    } else if (!m_htmlMode && entry.isHtml) {
        made.value = &m_values.emplace_back(DecodeEntities(entry.value));
    }
    made.epoch = m_epoch;
    return *made.value;
}

// The value as it stands once the references in it are expanded, entry by entry
// in the order of the keys: an entry sees the finished values of those before
// it, and those after it as they were.
const std::string& CDataFieldExpansion::Resolve(CEntry& entry) {
    CEntry::CMade& made = entry.resolved[m_htmlMode ? 1 : 0];
    if (made.epoch == m_epoch) return *made.value;
    const std::string* value = &Convert(entry);
    if (HoldsReferenceMarks(*value)) {
        std::string current = *value;
        std::string next;
        for (int pass = 0; pass < MaxPasses && HoldsReferenceMarks(current); ++pass) {
            next.clear();
            if (!TakePass(entry, current, next)) {
                Log(LogWarning, "The value of the data field \"%s\" would grow beyond %zu bytes: it stays as it was.",
                    entry.key->c_str(), MaxExpandedValue);
                break;
            }
            if (next == current) break;  // as all later passes
            current.swap(next);
        }
        value = &m_values.emplace_back(std::move(current));
    }
    made.value = value;
    made.epoch = m_epoch;
    return *value;
}

// False when the result would be too long; the limit holds for what grows.
bool CDataFieldExpansion::TakePass(CEntry& entry, const std::string& value, std::string& result) {
    CDataFieldTable& table = CDataFieldTable::Get();
    const std::size_t limit = std::max(MaxExpandedValue, value.size());
    const std::string_view text = value;
    std::size_t position = 0;
    std::size_t start = 0;
    std::size_t end = 0;
    while (FindReference(text, position, start, end)) {
        result.append(text.substr(position, start - position));
        CEntry* other = table.Find(table.MakeKey(text.substr(start + 2, end - start - 3)));
        if (other == &entry) {
            result.append(value);
        } else if (other != nullptr) {
            const bool isBefore = CompareNoCase(*other->key, *entry.key) < 0;
            result.append(isBefore ? Resolve(*other) : Convert(*other));
        }
        position = end;
        if (result.size() > limit) return false;
    }
    result.append(text.substr(position));
    return result.size() <= limit;
}
