#include "engine/catalogue.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <mutex>
#include <utility>

#include "app/datafolder.h"
#include "engine/listvalues.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::array CatalogueColumns = {
    CColumnDescription{ColumnType::Text, 256, 512, "Name"},
    CColumnDescription{ColumnType::Text, 1024, 512, "ListAddresses"},
    CColumnDescription{ColumnType::Text, 128, 512, "Kind"},
    CColumnDescription{ColumnType::Text, 128, 512, "LastCycle"},
    CColumnDescription{ColumnType::Counter, 4, 512, "Number"},
    CColumnDescription{ColumnType::Text, 128, 512, "SmtpHost"},
    CColumnDescription{ColumnType::Text, 64, 512, "SmtpLogin"},
    CColumnDescription{ColumnType::Text, 64, 512, "SmtpPassword"},
    CColumnDescription{ColumnType::Text, 1, 512, "SmtpNeedsLogin"},
    CColumnDescription{ColumnType::Text, 128, 512, "PopHost"},
    CColumnDescription{ColumnType::Text, 64, 512, "PopLogin"},
    CColumnDescription{ColumnType::Text, 64, 512, "PopPassword"},
    CColumnDescription{ColumnType::Text, 39, 512, "Guid"},
    CColumnDescription{ColumnType::Text, 4096, 512, "Usage"},
    CColumnDescription{ColumnType::Text, 1, 512, "Enabled"},
    CColumnDescription{ColumnType::Text, 1, 512, "PopBeforeSmtp"},
    CColumnDescription{ColumnType::Text, 1, 512, "LeaveCopies"},
    CColumnDescription{ColumnType::Text, 1, 1792, "RemoveMatched"},
    CColumnDescription{ColumnType::Text, 8, 1536, "LoopProtection"},
    CColumnDescription{ColumnType::Text, 1, 1536, "RedirectLoops"},
    CColumnDescription{ColumnType::Text, 256, 1536, "RedirectAddress"},
    CColumnDescription{ColumnType::Text, 1, 1536, "RemoveLoops"},
    CColumnDescription{ColumnType::Text, 1, 1536, "LimitHours"},
    CColumnDescription{ColumnType::Text, 40, 1536, "LimitFrom"},
    CColumnDescription{ColumnType::Text, 40, 1536, "LimitTo"},
    CColumnDescription{ColumnType::Text, 4, 1536, "LimitDays"},
    CColumnDescription{ColumnType::Text, 1, 4096, "EmptySender"},
    CColumnDescription{ColumnType::Text, 6, 4096, "MaxConnections"},
    CColumnDescription{ColumnType::Text, 1, 4096, "DirectDelivery"},
    CColumnDescription{ColumnType::Text, 128, 4096, "DnsServer"},
    CColumnDescription{ColumnType::Text, 1, 5888, "DigestByCount"},
    CColumnDescription{ColumnType::Text, 10, 5888, "DigestCount"},
    CColumnDescription{ColumnType::Text, 1, 5889, "DnsUseFallback"},
    CColumnDescription{ColumnType::Text, 128, 5889, "RelayHost"},
    CColumnDescription{ColumnType::Text, 1, 5889, "RelayNeedsLogin"},
    CColumnDescription{ColumnType::Text, 64, 5889, "RelayLogin"},
    CColumnDescription{ColumnType::Text, 64, 5889, "RelayPassword"},
    CColumnDescription{ColumnType::Text, 1, 5889, "RelayPopBeforeSmtp"},
    CColumnDescription{ColumnType::Text, 8, 5890, "MaxMessagesPerConnection"},
    CColumnDescription{ColumnType::Text, 1, 8448, "DigestByTime"},
    CColumnDescription{ColumnType::Text, 10, 8448, "DigestHours"},
    CColumnDescription{ColumnType::Text, 40, 8448, "Created"},
    CColumnDescription{ColumnType::Text, 1, 8448, "Moderated"},
};
static_assert(CatalogueColumns.size() == ListSettings.size());

constexpr std::array<std::string_view, 6> ListFileExtensions = {"MBR", "MBX", "CFD", "ACL", "MCF", "RUL"};
constexpr std::chrono::seconds LongestWait{30};

constexpr int Number(ListColumn column) {
    return static_cast<int>(column);
}

std::string NewGuidText() {
    const Platform::Guid guid = Platform::NewGuid();
    const auto& d = guid.data4;
    return FormatText("{%08lX-%04X-%04x-%02X%02X-%02X%02X%02X%02X%02X%02X}", static_cast<unsigned long>(guid.data1),
                      guid.data2, guid.data3, d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7]);
}

}  // namespace

struct CCatalogue::CState {
    // Both locks, and the table as it is now.
    class CHold;

    std::string folder;  // with separator
    std::string path;
    std::recursive_mutex threads;
    Platform::CNamedMutex mutex;
    CSTable table;
    int holds = 0;  // under the locks

    // The list that was read last; nobody else changes it while there are holds.
    std::int32_t readIndex = None;
    std::vector<std::byte> read;

    explicit CState(std::string_view inFolder)
        : folder(WithSeparator(inFolder)), path(folder + "LISTS.CST"), mutex(TableMutexName(path)) {}

    void OpenTable(bool create);
    bool IsList(std::int32_t index);
    void ForgetRead() noexcept { readIndex = None; }
    std::int32_t FindName(std::string_view name);
    std::uint32_t NextNumber();
    void FillRecord(std::span<std::byte> record, const NewList& list) const;
    std::vector<std::string> RemoveListFiles(std::uint32_t number) const;
};

class CCatalogue::CState::CHold {
public:
    explicit CHold(CState& state, bool create = false)
        : m_threads(state.threads), m_processes(state.mutex), m_state(state), m_table(state.table) {
        // Nobody else has changed it since the outer hold looked.
        if (m_state.holds == 0) m_state.ForgetRead();
        if (m_state.holds == 0 && m_table.IsOpen() && !m_table.IsCurrent()) m_table.Close();
        if (!m_table.IsOpen()) state.OpenTable(create);
        ++m_state.holds;
    }
    CHold(const CHold&) = delete;
    CHold& operator=(const CHold&) = delete;
    ~CHold() { --m_state.holds; }

    // Reads a list and puts the cursor on it.
    CHold(CState& state, std::int32_t index) : CHold(state) {
        if (!state.IsList(index)) throw CLhvException("There is no list with the index " + std::to_string(index) + ".");
    }

private:
    std::unique_lock<std::recursive_mutex> m_threads;
    CMutexGuard m_processes;
    CState& m_state;
    CSTable& m_table;
};

struct CCatalogue::CKeep::CHeld {
    explicit CHeld(CState& state) : hold(state) {}
    CState::CHold hold;
};

CCatalogue::CKeep::CKeep(CCatalogue& catalogue) : m_held(std::make_unique<CHeld>(*catalogue.m_state)) {}
CCatalogue::CKeep::~CKeep() = default;

// Then it has been read, and the cursor is on it.
bool CCatalogue::CState::IsList(std::int32_t index) {
    if (index < 0) return false;
    table.Go(index);
    if (readIndex == index) return true;
    if (index >= table.GetRecordCount()) return false;
    ForgetRead();
    read.resize(static_cast<std::size_t>(table.GetRecordSize()));
    table.ReadRecord(read);
    if (CSTable::IsDeletedRecord(read)) return false;
    readIndex = index;
    return true;
}

// A catalogue that is not there holds no lists; it is made with the first one.
void CCatalogue::CState::OpenTable(bool create) {
    const bool isThere = Platform::FileIsThere(path) || Platform::FileIsThere(path + ".new.ver");
    if (!isThere && !create) return;
    if (!table.Open(path, CatalogueColumns, false, create)) {
        throw CLhvException("The catalogue \"" + path + "\" cannot be opened.", Platform::LastSystemError());
    }
}

std::int32_t CCatalogue::CState::FindName(std::string_view name) {
    const std::int32_t count = table.GetRecordCount();
    for (std::int32_t index = 0; index < count; ++index) {
        table.Go(index);
        if (!table.IsDeleted() && EqualNoCase(table.ReadText(Number(ListColumn::Name)), name)) return index;
    }
    return None;
}

// Also not a number whose files are there: they belong to a list that this
// catalogue does not know, and a new list must not inherit its members.
std::uint32_t CCatalogue::CState::NextNumber() {
    std::uint32_t number = table.FindMaxCounter(Number(ListColumn::Number)) + 1;
    const auto isTaken = [&](const std::string& text) {
        return Platform::FileIsThere(folder + text + ".MBR") || Platform::FileIsThere(folder + text + ".CFD") ||
               Platform::FileIsThere(folder + text + ".RUL") || Platform::FileIsThere(folder + text + ".ACL") ||
               Platform::FolderIsThere(JoinPath(folder + "SendDaemon", text));
    };
    while (isTaken(std::to_string(number)))
        ++number;
    return number;
}

// In the order in which the columns of a new list are filled.
void CCatalogue::CState::FillRecord(std::span<std::byte> record, const NewList& list) const {
    const auto text = [&](ListColumn column, std::string_view value) { table.PutText(record, Number(column), value); };
    const auto number = [&](ListColumn column, std::int64_t value) { table.PutNumber(record, Number(column), value); };
    text(ListColumn::Name, list.name);
    text(ListColumn::ListAddresses, list.listAddresses);
    number(ListColumn::Kind, static_cast<std::int64_t>(list.kind));
    number(ListColumn::LastCycle, 0);
    number(ListColumn::SmtpNeedsLogin, 0);
    number(ListColumn::PopBeforeSmtp, 0);
    number(ListColumn::MaxConnections, 10);
    number(ListColumn::LeaveCopies, 0);
    number(ListColumn::Enabled, 1);
    number(ListColumn::RemoveMatched, 1);
    number(ListColumn::RemoveLoops, 0);
    number(ListColumn::LimitDays, 127);
    number(ListColumn::LimitHours, 0);
    text(ListColumn::LimitFrom, "00:00");
    text(ListColumn::LimitTo, "00:00");
    number(ListColumn::DigestByCount, 0);
    number(ListColumn::DigestCount, 0);
    text(ListColumn::Guid, NewGuidText());
    number(ListColumn::LoopProtection, 3);
    number(ListColumn::RedirectLoops, 0);
    number(ListColumn::DirectDelivery, 0);
    number(ListColumn::DnsUseFallback, 0);
    number(ListColumn::RelayNeedsLogin, 0);
    number(ListColumn::RelayPopBeforeSmtp, 0);
    number(ListColumn::MaxMessagesPerConnection, 999);
    number(ListColumn::DigestByTime, 0);
    number(ListColumn::DigestHours, 168);
    number(ListColumn::Created, Platform::SecondsSince1970());
    number(ListColumn::Moderated, 0);
}

CCatalogue::CCatalogue() : CCatalogue(GetDataFolder()) {}
CCatalogue::CCatalogue(std::string_view folder) : m_state(std::make_unique<CState>(folder)) {}

CCatalogue::~CCatalogue() {
    const CMutexGuard guard(m_state->mutex);
    m_state->table.Close();
}

std::vector<std::int32_t> CCatalogue::GetLists() {
    CState::CHold hold(*m_state);
    std::vector<std::int32_t> lists;
    const std::int32_t count = m_state->table.GetRecordCount();
    for (std::int32_t index = 0; index < count; ++index) {
        if (m_state->IsList(index)) lists.push_back(index);
    }
    return lists;
}

void CCatalogue::ForEach(const std::function<bool(std::int32_t index)>& visit) {
    for (const std::int32_t index : GetLists()) {
        {
            CState::CHold hold(*m_state);
            if (!m_state->IsList(index)) continue;  // deleted meanwhile
        }
        if (!visit(index)) return;
    }
}

std::int32_t CCatalogue::FindByNumber(std::uint32_t number) {
    CState::CHold hold(*m_state);
    const std::int32_t count = m_state->table.GetRecordCount();
    for (std::int32_t index = 0; index < count; ++index) {
        if (m_state->IsList(index) && m_state->table.CounterOf(m_state->read, ::Number(ListColumn::Number)) == number)
            return index;
    }
    return None;
}

std::int32_t CCatalogue::FindByName(std::string_view name) {
    CState::CHold hold(*m_state);
    return m_state->FindName(name);
}

std::int32_t CCatalogue::FindByNameOrNumber(std::string_view text) {
    const auto number = ParseNumber(text);
    if (number && *number >= 0 && *number <= UINT32_MAX) {
        const std::int32_t index = FindByNumber(static_cast<std::uint32_t>(*number));
        if (index != None) return index;
    }
    return FindByName(text);
}

std::int32_t CCatalogue::Create(const NewList& list) {
    static const std::string StartName = NewList().name;
    NewList accepted = list;
    accepted.name = AcceptText(SettingOf(ListColumn::Name), list.name);
    accepted.listAddresses = AcceptText(SettingOf(ListColumn::ListAddresses), list.listAddresses);
    AcceptNumber(SettingOf(ListColumn::Kind), static_cast<std::int64_t>(list.kind));
    CState& state = *m_state;
    CState::CHold hold(state, true);
    if (accepted.name != StartName && state.FindName(accepted.name) != None) {
        throw CLhvException("A list named \"" + accepted.name + "\" already exists.");
    }
    state.ForgetRead();
    const std::uint32_t number = state.NextNumber();
    state.table.RaiseCounter(::Number(ListColumn::Number), number - 1);
    std::vector<std::byte> record = state.table.MakeRecord();
    state.FillRecord(record, accepted);
    const std::int32_t index = state.table.AppendRecords(record);
    state.table.Flush();
    return index;
}

std::vector<std::string> CCatalogue::Delete(std::int32_t index) {
    std::uint32_t number = 0;
    {
        CState::CHold hold(*m_state, index);
        CSTable& table = m_state->table;
        number = table.ReadCounter(::Number(ListColumn::Number));
        std::vector<std::byte> record(static_cast<std::size_t>(table.GetRecordSize()));
        table.ReadRecord(record);
        for (const ListSetting& setting : ListSettings) {
            if (setting.kind == SettingKind::Secret) table.PutText(record, ::Number(setting.column), "");
        }
        record[0] = std::byte{'Y'};
        m_state->ForgetRead();
        table.WriteRecord(record);
        table.Flush();
    }
    return m_state->RemoveListFiles(number);
}

// Under the mutexes of those who may be reading them.
std::vector<std::string> CCatalogue::CState::RemoveListFiles(std::uint32_t number) const {
    const std::string start = std::to_string(number) + ".";
    std::vector<std::string> left;
    std::vector<std::unique_ptr<Platform::CNamedMutex>> held;
    bool isHeld = true;
    for (const std::string_view extension : {"MBR", "CFD", "RUL", "ACL"}) {
        auto next = std::make_unique<Platform::CNamedMutex>(TableMutexName(folder + start + std::string(extension)));
        isHeld = isHeld && next->TryLockFor(LongestWait);
        if (isHeld) held.push_back(std::move(next));
    }
    std::vector<std::string> names;
    const bool wasListed = ListFolder(folder, "*", [&](const std::string& name, bool isFolder) {
        if (isFolder || !name.starts_with(start)) return true;
        const std::string_view rest = std::string_view(name).substr(start.size());
        const std::string_view extension = rest.substr(0, rest.find_first_of(".-"));
        for (const std::string_view known : ListFileExtensions) {
            if (EqualNoCase(extension, known)) names.push_back(name);
        }
        return true;
    });
    if (!wasListed) left.push_back(folder);
    // Without the table, what tells of its members would speak of lost ones.
    const auto isMemberTable = [&](const std::string& name) { return EqualNoCase(name, start + "MBR"); };
    std::partition(names.begin(), names.end(), std::not_fn(isMemberTable));
    for (const std::string& name : names) {
        const bool removed =
            isHeld && (Platform::RemoveFile(folder + name) || Platform::IsNotFound(Platform::LastSystemError()));
        if (!removed) left.push_back(folder + name);
    }
    for (const auto& each : held)
        each->Unlock();
    return left;
}

std::string CCatalogue::GetText(std::int32_t index, ListColumn column) {
    if (column == ListColumn::Number) return std::to_string(GetListNumber(index));
    CState::CHold hold(*m_state, index);
    return std::string(m_state->table.TextOf(m_state->read, ::Number(column)));
}

std::int64_t CCatalogue::GetNumber(std::int32_t index, ListColumn column) {
    if (column == ListColumn::Number) return GetListNumber(index);
    CState::CHold hold(*m_state, index);
    return m_state->table.NumberOf(m_state->read, ::Number(column));
}

std::uint32_t CCatalogue::GetListNumber(std::int32_t index) {
    CState::CHold hold(*m_state, index);
    return m_state->table.CounterOf(m_state->read, ::Number(ListColumn::Number));
}

ListKind CCatalogue::GetKind(std::int32_t index) {
    const std::int64_t kind = GetNumber(index, ListColumn::Kind);
    return kind == 1 || kind == 2 ? static_cast<ListKind>(kind) : ListKind::Discussion;
}

void CCatalogue::SetText(std::int32_t index, ListColumn column, std::string_view value) {
    const std::string accepted = AcceptText(SettingOf(column), value);
    CState::CHold hold(*m_state, index);
    if (column == ListColumn::Name) {
        const std::int32_t holder = m_state->FindName(accepted);
        const bool isOwn = EqualNoCase(GetText(index, column), accepted);
        if (holder != None && !isOwn) throw CLhvException("A list named \"" + accepted + "\" already exists.");
    }
    m_state->ForgetRead();
    m_state->table.Go(index);
    m_state->table.WriteTextInFull(::Number(column), accepted);
    m_state->table.Flush();
}

void CCatalogue::SetNumber(std::int32_t index, ListColumn column, std::int64_t value) {
    SetText(index, column, std::to_string(AcceptNumber(SettingOf(column), value)));
}

std::string CCatalogue::GetListAddress(std::int32_t index, std::string_view key) {
    const std::string addresses = GetText(index, ListColumn::ListAddresses);
    std::string address = FindListAddress(addresses, key);
    const bool isOptional = EqualNoCase(key, "Command") || EqualNoCase(key, "Post");
    return address.empty() && isOptional ? FindListAddress(addresses, "List") : address;
}

void CCatalogue::SetListAddress(std::int32_t index, std::string_view key, std::string_view address) {
    CState::CHold hold(*m_state, index);
    SetText(index, ListColumn::ListAddresses, WithListAddress(GetText(index, ListColumn::ListAddresses), key, address));
}

std::string CCatalogue::GetByKey(std::int32_t index, std::string_view key) {
    constexpr std::string_view Ending = "Address";
    const ListSetting* const setting = FindListSetting(key);
    if (!setting) {
        const bool isAddress =
            key.size() > Ending.size() && EqualNoCase(key.substr(key.size() - Ending.size()), Ending);
        if (!isAddress) throw CLhvException("There is no setting \"" + OneLine(key) + "\".");
        return GetListAddress(index, key.substr(0, key.size() - Ending.size()));
    }
    switch (setting->kind) {
        case SettingKind::Secret:
            return GetText(index, setting->column).empty() ? "" : "*";
        case SettingKind::ListKind:
            return std::string(ListKindName(GetKind(index)));
        case SettingKind::Number:
        case SettingKind::Flag:
            return std::to_string(GetNumber(index, setting->column));
        default:
            return GetText(index, setting->column);
    }
}

void CCatalogue::SetByKey(std::int32_t index, std::string_view key, std::string_view value) {
    for (const std::string_view name : {"List", "Command", "Authorized", "Post"}) {
        if (EqualNoCase(key, std::string(name) + "Address")) return SetListAddress(index, name, value);
    }
    const ListSetting* const setting = FindListSetting(key);
    if (!setting) throw CLhvException("There is no setting \"" + OneLine(key) + "\".");
    SetText(index, setting->column, value);
}

const std::string& CCatalogue::GetFolder() const noexcept {
    return m_state->folder;
}

std::string CCatalogue::GetListFile(std::uint32_t number, std::string_view extension) const {
    return m_state->folder + std::to_string(number) + "." + std::string(extension);
}

std::span<const CColumnDescription> CCatalogue::Columns() noexcept {
    return CatalogueColumns;
}

namespace {

struct COpenCatalogues {
    std::mutex lock;
    std::vector<std::unique_ptr<CCatalogue>> all;
};

// Lives to the end of the process: others may still use it while it ends.
COpenCatalogues& GetOpenCatalogues() {
    static COpenCatalogues* const opened = new COpenCatalogues;
    return *opened;
}

}  // namespace

CCatalogue& GetCatalogue() {
    COpenCatalogues& opened = GetOpenCatalogues();
    const std::string folder = GetDataFolder();
    const std::lock_guard guard(opened.lock);
    for (const auto& catalogue : opened.all) {
        if (catalogue->GetFolder() == folder) return *catalogue;
    }
    return *opened.all.emplace_back(std::make_unique<CCatalogue>(folder));
}

void CloseCatalogues() {
    COpenCatalogues& opened = GetOpenCatalogues();
    std::vector<std::unique_ptr<CCatalogue>> closed;  // behind the lock: each waits for its own
    const std::lock_guard guard(opened.lock);
    closed.swap(opened.all);
}
