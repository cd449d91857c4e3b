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
        const Stretches* literals = nullptr;  // of a value that was resolved
    };

    const std::string* key = nullptr;
    std::string value;
    bool isHtml = false;
    bool isPresent = false;
    bool isLiteral = false;
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
        bool isLiteral;
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

    void Set(Entry& entry, std::string_view value, bool isHtml, bool isLiteral = false) {
        if (entry.savedAt < pushes.size()) {
            saved.push_back({&entry, {}, entry.isHtml, entry.isPresent, entry.isLiteral, entry.savedAt});
            if (entry.isPresent) saved.back().value.swap(entry.value);
            entry.savedAt = pushes.size();
        }
        entry.value.assign(value);
        entry.isHtml = isHtml;
        entry.isPresent = true;
        entry.isLiteral = isLiteral;
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
            last.entry->isLiteral = last.isLiteral;
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

void SetLiteralDataField(const CDataFieldName& field, std::string_view value, bool isHtml) {
    CDataFieldTable::Get().Set(*static_cast<CDataFieldTable::Entry*>(field.m_entry), value, isHtml, true);
}

void SetLiteralDataField(std::string_view name, std::string_view value, bool isHtml) {
    CDataFieldTable& table = CDataFieldTable::Get();
    table.Set(table.Take(name), value, isHtml, true);
}

void SetLiteralDataField(DataField field, std::string_view value, bool isHtml) {
    CDataFieldTable& table = CDataFieldTable::Get();
    table.Set(table.Standard(field), value, isHtml, true);
}

std::string GetDataField(std::string_view name) {
    CDataFieldTable& table = CDataFieldTable::Get();
    const auto* entry = table.Find(table.MakeKey(name));
    return entry != nullptr ? entry->value : std::string();
}

bool HasDataField(std::string_view name) {
    CDataFieldTable& table = CDataFieldTable::Get();
    return table.Find(table.MakeKey(name)) != nullptr;
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

// A value on its way, and what of it is not to be looked at.
struct CDataFieldExpansion::CResolving {
    std::string text;
    Stretches literals;

    void Clear() {
        text.clear();
        literals.clear();
    }

    void Append(std::string_view piece, const Stretches* pieceLiterals) {
        if (pieceLiterals != nullptr) {
            for (const CStretch& stretch : *pieceLiterals)
                literals.push_back({text.size() + stretch.start, text.size() + stretch.end});
        }
        text.append(piece);
    }

    void AppendLiteral(std::string_view piece) {
        if (!piece.empty()) literals.push_back({text.size(), text.size() + piece.size()});
        text.append(piece);
    }

    // A stretch of another value, with what lies whole in it.
    void AppendPart(const CResolving& other, std::size_t start, std::size_t end) {
        const auto first = std::lower_bound(other.literals.begin(), other.literals.end(), start,
                                            [](const CStretch& s, std::size_t at) { return s.start < at; });
        for (auto stretch = first; stretch != other.literals.end() && stretch->end <= end; ++stretch)
            literals.push_back({text.size() + stretch->start - start, text.size() + stretch->end - start});
        text.append(other.text, start, end - start);
    }

    // The next reference that does not touch a literal stretch.
    bool FindReference(std::size_t from, std::size_t& start, std::size_t& end) const noexcept {
        auto stretch = literals.begin();
        while (::FindReference(text, from, start, end)) {
            while (stretch != literals.end() && stretch->end <= start)
                ++stretch;
            if (stretch == literals.end() || stretch->start >= end) return true;
            from = stretch->end;
        }
        return false;
    }
};

// The value as it stands once the references in it are expanded, entry by entry
// in the order of the keys: an entry sees the finished values of those before
// it, and those after it as they were.
const std::string& CDataFieldExpansion::Resolve(CEntry& entry) {
    CEntry::CMade& made = entry.resolved[m_htmlMode ? 1 : 0];
    if (made.epoch == m_epoch) return *made.value;
    const std::string* value = &Convert(entry);
    const Stretches* literals = nullptr;
    if (!entry.isLiteral && HoldsReferenceMarks(*value)) {
        CResolving current{*value, {}};
        CResolving next;
        for (int pass = 0; pass < MaxPasses && HoldsReferenceMarks(current.text); ++pass) {
            next.Clear();
            if (!TakePass(entry, current, next)) {
                Log(LogWarning, "The value of the data field \"%s\" would grow beyond %zu bytes: it stays as it was.",
                    entry.key->c_str(), MaxExpandedValue);
                break;
            }
            const bool isDone = next.text == current.text;  // as all later passes
            std::swap(current, next);
            if (isDone) break;
        }
        value = &m_values.emplace_back(std::move(current.text));
        if (!current.literals.empty()) literals = &m_literals.emplace_back(std::move(current.literals));
    }
    made.value = value;
    made.literals = literals;
    made.epoch = m_epoch;
    return *value;
}

// False when the result would be too long; the limit holds for what grows.
bool CDataFieldExpansion::TakePass(CEntry& entry, const CResolving& value, CResolving& result) {
    CDataFieldTable& table = CDataFieldTable::Get();
    const std::size_t limit = std::max(MaxExpandedValue, value.text.size());
    const std::string_view text = value.text;
    std::size_t position = 0;
    std::size_t start = 0;
    std::size_t end = 0;
    while (value.FindReference(position, start, end)) {
        result.AppendPart(value, position, start);
        CEntry* other = table.Find(table.MakeKey(text.substr(start + 2, end - start - 3)));
        if (other == &entry) {
            result.Append(value.text, &value.literals);
        } else if (other != nullptr && other->isLiteral) {
            result.AppendLiteral(Convert(*other));
        } else if (other != nullptr) {
            const bool isBefore = CompareNoCase(*other->key, *entry.key) < 0;
            if (isBefore) {
                const std::string& resolved = Resolve(*other);
                result.Append(resolved, other->resolved[m_htmlMode ? 1 : 0].literals);
            } else {
                result.Append(Convert(*other), nullptr);
            }
        }
        position = end;
        if (result.text.size() > limit) return false;
    }
    result.AppendPart(value, position, text.size());
    return result.text.size() <= limit;
}
