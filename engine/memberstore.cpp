#include "engine/memberstore.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <utility>

#include "app/datafolder.h"
#include "engine/eventlog.h"
#include "engine/memberfiles.h"
#include "platform/file.h"
#include "platform/systemerror.h"
#include "utility/formattext.h"

namespace {

constexpr std::int32_t VisitRecords = 256;

bool IsWanted(SlotMask mask, int slot) {
    return (mask >> slot & 1) != 0;
}

// The parts of "from" that an update changes, put into "to".
void MergeParts(CMember& to, const CMember& from, const MemberParts& parts) {
    if (parts.firstName) to.firstName = from.firstName;
    if (parts.middleName) to.middleName = from.middleName;
    if (parts.lastName) to.lastName = from.lastName;
    if (parts.name) to.name = from.name;
    if (parts.mode) to.mode = from.mode;
    if (parts.properties) to.properties = from.properties;
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if (IsWanted(parts.slots, slot)) to.SetField(slot, from.GetField(slot));
    }
}

void ReadTexts(CMemberFiles& files, const CMemberRecord& record, SlotMask wanted, CMember& member) {
    for (std::string& field : member.fields)
        field.clear();
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if (!IsWanted(wanted, slot)) continue;
        const std::int32_t reference = record.GetText(slot);
        if (reference >= 0) member.SetField(slot, files.ReadText(reference));
    }
    member.properties = files.ReadText(record.GetText(CMemberRecord::PropertiesText));
}

// One operation's texts: those that are new are freed again unless it comes to
// the writing of the records, those that are replaced only after that.
class CTextChange {
public:
    explicit CTextChange(CMemberFiles& files) : m_files(files) {}
    CTextChange(const CTextChange&) = delete;
    CTextChange& operator=(const CTextChange&) = delete;
    ~CTextChange() { m_files.FreeTexts(m_added); }

    // The text is stored, and its reference put into the record, by Store().
    void Set(const CMemberRecord& record, int text, std::string_view value) {
        const std::int32_t old = record.GetText(text);
        if (old < 0 && value.empty()) return;
        if (old >= 0 && m_files.ReadText(old) == value) return;
        if (old >= 0) m_replaced.push_back(old);
        m_waiting.push_back({record, text, value});
    }

    // The values given to Set() must still be there.
    void Store() {
        std::vector<std::string_view> texts;
        for (const Waiting& waiting : m_waiting) {
            if (!waiting.value.empty()) texts.push_back(waiting.value);
        }
        if (!texts.empty()) m_added = m_files.StoreTexts(texts);
        auto reference = m_added.begin();
        for (Waiting& waiting : m_waiting) {
            waiting.record.SetText(waiting.text, waiting.value.empty() ? CMemberRecord::NoText : *reference++);
        }
        m_waiting.clear();
    }

    void Forget(CMemberRecord& record) {
        for (int text = 0; text < CMemberRecord::TextCount; ++text) {
            const std::int32_t old = record.GetText(text);
            if (old >= 0) m_replaced.push_back(old);
            record.SetText(text, CMemberRecord::NoText);
        }
    }

    // To be called before the first record that refers to a new text is written:
    // whatever happens then, the text stays.
    void Commit() {
        if (!m_added.empty()) m_files.FlushTexts();
        m_added.clear();
    }

    void FreeReplaced() noexcept {  // once the records are flushed
        m_files.FreeTexts(m_replaced);
        m_replaced.clear();
    }

private:
    struct Waiting {
        CMemberRecord record;
        int text;
        std::string_view value;
    };

    CMemberFiles& m_files;
    std::vector<Waiting> m_waiting;
    std::vector<std::int32_t> m_added;
    std::vector<std::int32_t> m_replaced;
};

void EncodeParts(CMemberRecord& record, const CMember& member, const MemberParts& parts, CTextChange& texts) {
    if (parts.firstName) record.SetFirstName(member.firstName);
    if (parts.middleName) record.SetMiddleName(member.middleName);
    if (parts.lastName) record.SetLastName(member.lastName);
    if (parts.name) record.SetName(member.name);
    if (parts.mode) record.SetMode(member.mode);
    for (int slot = 0; slot < CMember::SlotCount; ++slot) {
        if (IsWanted(parts.slots, slot)) texts.Set(record, slot, member.GetField(slot));
    }
    if (parts.properties) texts.Set(record, CMemberRecord::PropertiesText, member.properties);
}

CMember Prepared(const CMember& member) {
    CMember prepared = member;
    std::string reason;
    if (!PrepareMember(prepared, reason)) throw CLhvException(reason);
    return prepared;
}

// Writes the members at the end of the table.  The index knows them first; when
// the table then cannot take them, it forgets them again.
std::int32_t AppendMembers(CMemberFiles& files, std::span<const CMember> members) {
    constexpr std::size_t Bulk = 100;
    CTextChange texts(files);
    const std::int32_t first = files.GetRecordCount();
    const IndexState before = files.GetIndexState();
    const auto count = static_cast<std::int32_t>(members.size());
    std::vector<std::byte> records(members.size() * CMemberRecord::Size);
    IndexChange change;
    change.state = before;
    change.state.recordCount = first + count;
    change.state.liveCount += count;
    for (std::size_t i = 0; i < members.size(); ++i) {
        CMemberRecord record{std::span(records).subspan(i * CMemberRecord::Size, CMemberRecord::Size)};
        record.Clear();
        record.SetAddress(members[i].address);
        EncodeParts(record, members[i], MemberParts(), texts);
        change.added.push_back({CCompareEmail::MakeKey(members[i].address), first + static_cast<std::int32_t>(i)});
    }
    texts.Store();
    texts.Commit();
    if (members.size() < Bulk) {
        files.ApplyIndex(change);
    } else {
        files.ApplyIndexInBulk(change);
    }
    try {
        files.AppendRecords(records);
    } catch (...) {
        try {
            change.removed = std::move(change.added);
            change.added.clear();
            change.state = before;
            files.ApplyIndex(change);
        } catch (const std::exception&) {
            files.RemoveIndex();  // its count does not fit, and would tell of members that never were
        }
        throw;
    }
    files.FlushRecords();
    return first;
}

// The table has the last word: an index that cannot follow is made anew later.
void SettleIndex(CMemberFiles& files, IndexChange& change) noexcept {
    try {
        change.state.settled = true;
        files.ApplyIndex(change);
    } catch (const std::exception& e) {
        Log(LogWarning, "The index of %s will be built anew: %s", files.GetPath().c_str(), e.what());
        files.DropIndex();
    }
}

void UnsettleIndex(CMemberFiles& files, std::vector<IndexEntry> added) {
    IndexChange change;
    change.state = files.GetIndexState();
    change.state.settled = false;
    change.added = std::move(added);
    files.ApplyIndex(change);
}

// What AddMany() does: new members wait to be appended together, existing ones
// to be rewritten in place.
class CMemberGroup {
public:
    CMemberGroup(CMemberFiles& files, const MemberParts& updated) : m_files(files), m_updated(updated) {}

    MemberOutcome Take(const CMember& member, ExistingMember onExisting) {
        using Kind = MemberOutcome::Kind;
        CMember prepared = member;
        MemberOutcome outcome;
        if (!PrepareMember(prepared, outcome.reason)) return outcome;
        std::string key = CCompareEmail::MakeKey(prepared.address);
        const auto waiting = m_waiting.find(key);
        if (waiting != m_waiting.end()) {
            if (onExisting == ExistingMember::Skip) return {Kind::Skipped, {}};
            MergeParts(m_new[waiting->second], prepared, m_updated);
            return {Kind::Updated, {}};
        }
        const std::int32_t index = m_files.Find(prepared.address);
        if (index != CMemberStore::None) {
            if (onExisting == ExistingMember::Skip) return {Kind::Skipped, {}};
            m_changed[index] = std::move(prepared);  // all its parts replace those of a former one
            return {Kind::Updated, {}};
        }
        m_waiting.emplace(std::move(key), m_new.size());
        m_new.push_back(std::move(prepared));
        return {Kind::Added, {}};
    }

    void Write() {
        if (!m_changed.empty()) WriteChanged();
        if (!m_new.empty()) AppendMembers(m_files, m_new);
    }

private:
    void WriteChanged() {
        CTextChange texts(m_files);
        std::vector<std::byte> bytes(m_changed.size() * CMemberRecord::Size);
        std::size_t at = 0;
        for (const auto& [index, member] : m_changed) {
            const std::span place = std::span(bytes).subspan(at, CMemberRecord::Size);
            at += CMemberRecord::Size;
            m_files.ReadMember(index, place);
            CMemberRecord record(place);
            EncodeParts(record, member, m_updated, texts);
        }
        texts.Store();
        texts.Commit();
        at = 0;
        for (const auto& [index, member] : m_changed) {
            m_files.WriteRecord(index, std::span(bytes).subspan(at, CMemberRecord::Size));
            at += CMemberRecord::Size;
        }
        m_files.FlushRecords();
        texts.FreeReplaced();
    }

    CMemberFiles& m_files;
    const MemberParts& m_updated;
    std::unordered_map<std::string, std::size_t> m_waiting;  // by key: which of m_new
    std::vector<CMember> m_new;
    std::map<std::int32_t, CMember> m_changed;  // by record
};

}  // namespace

struct CMemberStore::CState {
    CState(const std::string& path, bool readOnly) : files(path, readOnly), record(CMemberRecord::Size) {}

    CMemberFiles files;
    std::vector<std::byte> record;
};

CMemberStore::CKeep::CKeep(CMemberStore& store) : m_hold(std::make_unique<CMemberHold>(store.Files())) {}
CMemberStore::CKeep::~CKeep() = default;

CMemberStore::CMemberStore() = default;
CMemberStore::CMemberStore(CMemberStore&&) noexcept = default;
CMemberStore& CMemberStore::operator=(CMemberStore&&) noexcept = default;
CMemberStore::~CMemberStore() = default;

void CMemberStore::Open(std::uint32_t listNumber, Access access) {
    OpenPath(GetDataFolder() + FormatText("%u.MBR", listNumber), access);
}

void CMemberStore::OpenPath(const std::string& tablePath, Access access) {
    Close();
    auto state = std::make_unique<CState>(tablePath, access == Access::ReadOnly);
    { const CMemberHold hold(state->files); }  // a table that cannot be read is told of here
    m_state = std::move(state);
}

bool CMemberStore::IsOpen() const noexcept {
    return m_state != nullptr;
}
void CMemberStore::Close() {
    m_state.reset();
}

CMemberFiles& CMemberStore::Files() {
    if (!m_state) throw CLhvException("The list's members have not been opened.");
    return m_state->files;
}

std::int32_t CMemberStore::GetRecordCount() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    return files.GetRecordCount();
}

std::int32_t CMemberStore::Count() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    return files.CountMembers();
}

std::int32_t CMemberStore::Find(std::string_view address) {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    return files.Find(address);
}

bool CMemberStore::Read(std::int32_t index, CMember& member, SlotMask wanted) {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    if (!files.ReadMember(index, m_state->record)) return false;
    const CMemberRecord record(std::span(m_state->record).first(files.GetRecordSize()));
    record.GetFixed(member);
    ReadTexts(files, record, wanted, member);
    return true;
}

void CMemberStore::ForEach(SlotMask wanted,
                           const std::function<bool(std::int32_t index, const CMember& member)>& visit) {
    CMemberFiles& files = Files();
    std::vector<std::pair<std::int32_t, CMember>> members(VisitRecords);
    std::vector<std::byte> block;
    std::uint32_t generation = 0;
    for (std::int32_t first = 0;; first += VisitRecords) {
        std::size_t found = 0;
        {
            const CMemberHold hold(files);
            if (first == 0) generation = files.GetGeneration();
            if (generation != files.GetGeneration()) {
                throw CLhvException("The database has been modified by another application.");
            }
            const std::int32_t count = std::min(VisitRecords, files.GetRecordCount() - first);
            if (count <= 0) return;
            files.ReadBlock(first, count, block);
            const std::size_t size = files.GetRecordSize();
            for (std::int32_t i = 0; i < count; ++i) {
                const CMemberRecord record{std::span(block).subspan(static_cast<std::size_t>(i) * size, size)};
                files.CheckRecord(first + i, record);
                if (!record.IsMember()) continue;
                auto& [index, member] = members[found++];
                index = first + i;
                record.GetFixed(member);
                ReadTexts(files, record, wanted, member);
            }
        }
        for (std::size_t i = 0; i < found; ++i) {
            if (!visit(members[i].first, members[i].second)) return;
        }
    }
}

std::int32_t CMemberStore::Add(const CMember& member) {
    const CMember prepared = Prepared(member);
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.MakeTable();
    files.PrepareIndex();
    if (files.Find(prepared.address) != None) {
        throw CLhvException("The address " + prepared.address + " is already a member of the list.");
    }
    return AppendMembers(files, {&prepared, 1});
}

bool CMemberStore::Update(std::int32_t index, const CMember& member, const MemberParts& parts) {
    const CMember prepared = Prepared(member);
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.RequireWritable();
    std::vector<std::byte>& bytes = m_state->record;
    if (!files.ReadMember(index, bytes)) return false;
    CMemberRecord record(bytes);
    const std::string oldKey = CCompareEmail::MakeKey(record.GetAddress());
    const std::string newKey = CCompareEmail::MakeKey(prepared.address);
    const bool keyChanges = oldKey != newKey;
    if (keyChanges) {
        files.PrepareIndex();
        if (files.Find(prepared.address) != None) {
            throw CLhvException("The address " + prepared.address + " is already a member of the list.");
        }
    }
    CTextChange texts(files);
    record.SetAddress(prepared.address);
    EncodeParts(record, prepared, parts, texts);
    texts.Store();
    if (keyChanges) UnsettleIndex(files, {{newKey, index}});
    texts.Commit();
    files.WriteRecord(index, bytes);
    files.FlushRecords();
    texts.FreeReplaced();
    if (keyChanges) {
        IndexChange change;
        change.state = files.GetIndexState();
        change.removed.push_back({oldKey, index});
        SettleIndex(files, change);
    }
    return true;
}

bool CMemberStore::Remove(std::int32_t index) {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.RequireWritable();
    std::vector<std::byte>& bytes = m_state->record;
    if (!files.ReadMember(index, bytes)) return false;
    files.PrepareIndex();
    UnsettleIndex(files, {});
    CTextChange texts(files);
    CMemberRecord record(bytes);
    IndexChange change;
    change.removed.push_back({CCompareEmail::MakeKey(record.GetAddress()), index});
    record.MarkRemoved();
    texts.Forget(record);
    files.WriteRecord(index, bytes);
    files.FlushRecords();
    texts.FreeReplaced();
    change.state = files.GetIndexState();
    --change.state.liveCount;
    SettleIndex(files, change);
    return true;
}

std::vector<MemberOutcome> CMemberStore::AddMany(std::span<const CMember> members, ExistingMember onExisting,
                                                 const MemberParts& updated) {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.MakeTable();
    files.PrepareIndex();
    CMemberGroup group(files, updated);
    std::vector<MemberOutcome> outcomes;
    outcomes.reserve(members.size());
    for (const CMember& member : members)
        outcomes.push_back(group.Take(member, onExisting));
    group.Write();
    return outcomes;
}

void CMemberStore::RefuseDamaged() {
    Files().RefuseDamaged();
}

bool CMemberStore::HasForeignRecords() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    return files.HasForeignRecords();
}

std::vector<std::string> CMemberStore::FindLost() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    return files.FindLost();
}

void CMemberStore::NoteLost() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.NoteLost();
}

void CMemberStore::ForgetLost() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.ForgetLost();
}

void CMemberStore::RebuildIndex() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.RequireWritable();
    files.NoteLost();
    files.RemoveIndex();
    if (files.GetRecordCount() > 0) files.RebuildIndex();
}

void CMemberStore::Pack() {
    CMemberFiles& files = Files();
    const CMemberHold hold(files);
    files.RequireWritable();
    if (files.GetRecordCount() > 0) files.Pack();
}
