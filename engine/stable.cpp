#include "engine/stable.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include "app/productname.h"
#include "app/settings.h"
#include "app/stoplist.h"
#include "engine/eventlog.h"
#include "engine/littleendian.h"
#include "engine/stablestate.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

namespace {

constexpr std::string_view SourceName = "Shared/Engine/stable";
constexpr std::string_view ModifiedText = "The database has been modified by another application.";
constexpr std::byte Live{'N'};
constexpr std::byte Deleted{'Y'};
constexpr std::size_t UnreleasedLimit = 4096;

std::span<const std::byte> BytesOf(std::string_view text) {
    return std::as_bytes(std::span(text));
}

}  // namespace

std::string TableMutexName(std::string_view path) {
    return std::string(FileMutexPrefix) += path;
}

void CSTable::CState::Fail(const char* what) const {
    throw CLhvException("The table \"" + path + "\" " + what, Platform::LastSystemError());
}

void CSTable::CState::FailInternal(int line) const {
    throw CLhvException(InternalErrorText(SourceName, line) + " (" + path + ")");
}

void CSTable::CState::CheckStop() const {
    if (cancellable && IsThreadStopRequested(Platform::CurrentThreadId())) {
        throw CLhvException(std::string(ModifiedText));
    }
}

CSTable::CState::Layout CSTable::CState::MakeLayout(std::span<const CColumnDescription> descriptions,
                                                    std::uint32_t version) {
    Layout layout;
    layout.columns.emplace_back();
    for (const CColumnDescription& description : descriptions) {
        if (description.size == 0) break;
        Column column{description.type, description.size, 4, description.minVersion, description.name, -1, 0};
        if (column.type == ColumnType::Text) column.size = description.size + 1;
        if (column.type == ColumnType::Binary) column.size = description.size;
        if (static_cast<std::int32_t>(column.minVersion) <= static_cast<std::int32_t>(version)) {
            column.offset = layout.recordSize;
            layout.recordSize += column.size;
            ++layout.columnCount;
            layout.hasTexts = layout.hasTexts || column.type == ColumnType::StoredText;
        }
        layout.columns.push_back(column);
    }
    return layout;
}

std::uint64_t CSTable::CState::Length() const {
    std::uint64_t length = 0;
    if (!file.GetSize(length)) Fail("cannot be read.");
    return length;
}

std::int32_t CSTable::CState::Count() const {
    if (recordSize == 0) return 0;
    const std::uint64_t count = Length() / static_cast<std::uint64_t>(recordSize);
    return static_cast<std::int32_t>(std::min<std::uint64_t>(count, INT32_MAX));
}

std::uint64_t CSTable::CState::OffsetOf(std::int32_t index) const {
    return static_cast<std::uint64_t>(index) * static_cast<std::uint64_t>(recordSize);
}

void CSTable::CState::SetLength(std::uint64_t length) {
    Log(LogDebug2, "### Setting length of %s to %lli (old length: %lli)\n", path.c_str(),
        static_cast<long long>(length), static_cast<long long>(Length()));
    if (!file.SetSize(length)) Fail("cannot be written.");
}

const CSTable::CState::Column* CSTable::CState::FindColumn(int number) const {
    if (recordSize == 0 || number < 0 || static_cast<std::size_t>(number) >= layout.columns.size()) {
        ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    }
    const Column& column = layout.columns[static_cast<std::size_t>(number)];
    return column.offset < 0 ? nullptr : &column;
}

const CSTable::CState::Column& CSTable::CState::PresentColumn(int number) const {
    const Column* const column = FindColumn(number);
    if (!column) throw CLhvException("The table \"" + path + "\" is of an older version without that column.");
    return *column;
}

void CSTable::CState::RequireRecord() const {
    CheckStop();
    if (readOnly || cursor < 0 || cursor >= Count()) {
        ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    }
}

void CSTable::CState::WriteAtCursor(std::int32_t offset, std::span<const std::byte> bytes) {
    RequireRecord();
    const std::uint64_t at = OffsetOf(cursor) + static_cast<std::uint64_t>(offset);
    if (!file.WriteAt(at, bytes.data(), bytes.size())) Fail("cannot be written.");
}

bool CSTable::CState::FindDownwards(bool deleted) {
    for (; cursor >= 0; --cursor) {
        CheckStop();
        std::byte flag{};
        if (!file.ReadAt(OffsetOf(cursor), &flag, 1)) Fail("cannot be read.");
        if ((flag == Deleted) == deleted) return true;
    }
    return false;
}

std::uint32_t CSTable::CState::MaxCounter(int number, std::int32_t& holder) const {
    const auto offset = static_cast<std::size_t>(PresentColumn(number).offset);
    std::uint32_t largest = 0;
    holder = Count() > 0 ? 0 : -1;
    ForEachBlock([&](std::int32_t first, std::span<const std::byte> block) {
        std::int32_t index = first;
        for (std::size_t at = offset; at < block.size(); at += static_cast<std::size_t>(recordSize), ++index) {
            const std::uint32_t value = GetU32(block.data() + at);
            if (value <= largest) continue;
            largest = value;
            holder = index;
        }
        return true;
    });
    return largest;
}

// Another process may have added records since.
void CSTable::CState::LoadCounters() {
    const std::int32_t count = Count();
    for (std::size_t i = 1; i < layout.columns.size(); ++i) {
        Column& column = layout.columns[i];
        if (column.type != ColumnType::Counter || column.offset < 0) continue;
        std::int32_t holder = -1;
        column.counter = std::max(column.counter, MaxCounter(static_cast<int>(i), holder));
    }
    knownCount = count;
}

void CSTable::CState::CountLive() {
    std::int32_t live = 0;
    ForEachBlock([&](std::int32_t, std::span<const std::byte> block) {
        for (std::size_t at = 0; at < block.size(); at += static_cast<std::size_t>(recordSize)) {
            if (block[at] != Deleted) ++live;
        }
        return true;
    });
    Log(LogDebug2, "### %s opened successfully (file-length: %lli, max-records: %i, records: %i)\n", path.c_str(),
        static_cast<long long>(Length()), Count(), live);
}

std::int32_t CSTable::CState::ReferenceAt(std::span<const std::byte> record, const Column& column) const {
    return static_cast<std::int32_t>(GetU32(record.data() + column.offset));
}

CSTable::CSTable() : m_state(std::make_unique<CState>()) {}

CSTable::~CSTable() {
    CSTable::Close();
}

bool CSTable::Open(std::string_view path, std::span<const CColumnDescription> columns, bool readOnly, bool create) {
    const std::string newPath(path);  // may be that of this table
    std::vector<CColumnDescription> newColumns(columns.begin(), columns.end());
    Log(LogDebug2, "### Opening table: %s\n", newPath.c_str());
    Close();
    CState& state = *m_state;
    state.path = newPath;
    state.descriptions = std::move(newColumns);
    state.readOnly = readOnly;
    state.create = create;
    state.isNewName = false;
    try {
        if (!state.OpenFiles()) return false;
        state.knownCount = 0;
        state.LoadCounters();
        if (ReadSetting("Execution", "DebugMode", 0) != 0) state.CountLive();
    } catch (...) {
        state.file.Close();
        state.texts.reset();
        state.recordSize = 0;
        throw;
    }
    state.cursor = 0;
    return true;
}

void CSTable::Close() {
    CState& state = *m_state;
    if (state.recordSize == 0) return;
    bool isEmpty = false;
    const bool cancellable = std::exchange(state.cancellable, false);
    try {
        isEmpty = !state.readOnly && state.Length() == 0;
        if (!isEmpty && state.texts && state.texts->GetUnreleased() > 0) Flush();
    } catch (const std::exception& e) {
        Log(LogWarning, "Space in %s could not be freed: %s", state.path.c_str(), e.what());
    }
    state.file.Close();
    state.recordSize = 0;
    state.cursor = -1;
    if (isEmpty) state.RemoveEmptyFiles();
    state.texts.reset();
    state.layout = {};
    state.cancellable = cancellable;
}

// A reader between two of its operations may add the first record next; it holds
// the mutex then.
void CSTable::CState::RemoveEmptyFiles() {
    Platform::CNamedMutex mutex(TableMutexName(path));
    if (!mutex.TryLockFor(std::chrono::milliseconds(0))) return;
    Platform::FileStatus status;
    if (Platform::GetFileStatus(path, status) && status.identity == identity && status.size == 0) {
        if (texts) texts->RemoveFiles();
        Platform::RemoveFile(path);
        Platform::RemoveFile(path + ".ver");
    }
    mutex.Unlock();
}

bool CSTable::IsOpen() const noexcept {
    return m_state->recordSize != 0;
}
void CSTable::SetCancellable(bool on) noexcept {
    m_state->cancellable = on;
}

bool CSTable::IsCurrent() const {
    Platform::FileStatus status;
    return IsOpen() && Platform::GetFileStatus(m_state->path, status) && status.identity == m_state->identity;
}

bool CSTable::ReopenIfReplaced() {
    if (!IsOpen() || IsCurrent()) return false;
    CState& state = *m_state;
    // An empty table is removed by whoever closes it; any other was deleted.
    const bool create = state.create || (!state.readOnly && state.Count() == 0);
    if (!Open(state.path, state.descriptions, state.readOnly, create)) throw CLhvException(std::string(ModifiedText));
    return true;
}

const std::string& CSTable::GetFileName() const noexcept {
    return m_state->path;
}
std::uint32_t CSTable::GetVersion() const noexcept {
    return m_state->version;
}
std::int32_t CSTable::GetRecordSize() const noexcept {
    return m_state->recordSize;
}
std::int32_t CSTable::GetRecordCount() const {
    return m_state->Count();
}
void CSTable::Go(std::int32_t index) noexcept {
    m_state->cursor = index;
}
std::int32_t CSTable::GetCursor() const noexcept {
    return m_state->cursor;
}

std::int32_t CSTable::Append() {
    if (!IsOpen()) return -1;
    std::vector<std::byte> record = MakeRecord();
    return AppendRecords(record);
}

void CSTable::Delete() {
    m_state->WriteAtCursor(0, std::span(&Deleted, 1));
}
void CSTable::Undelete() {
    m_state->WriteAtCursor(0, std::span(&Live, 1));
}

bool CSTable::IsDeleted() {
    std::byte flag{};
    ReadColumn(0, std::span(&flag, 1));
    return flag == Deleted;
}

bool CSTable::FindPrevDeleted() {
    return m_state->FindDownwards(true);
}
bool CSTable::FindPrevLive() {
    return m_state->FindDownwards(false);
}

void CSTable::ReadColumn(int column, std::span<std::byte> to) {
    CState& state = *m_state;
    state.CheckStop();
    const CState::Column* const found = state.FindColumn(column);
    std::fill(to.begin(), to.end(), std::byte{0});
    if (!found) return;
    if (to.size() < static_cast<std::size_t>(found->size)) {
        ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    }
    const auto size = static_cast<std::size_t>(found->size);
    Platform::SetLastSystemError(0);
    const bool wasRead =
        state.cursor >= 0 &&
        state.file.ReadAt(state.OffsetOf(state.cursor) + static_cast<std::uint64_t>(found->offset), to.data(), size);
    if (!wasRead) OnReadFault(column);
}

void CSTable::WriteColumn(int column, std::span<const std::byte> from) {
    const CState::Column& found = m_state->PresentColumn(column);
    if (from.size() < static_cast<std::size_t>(found.size)) {
        ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    }
    m_state->WriteAtCursor(found.offset, from.first(static_cast<std::size_t>(found.size)));
}

std::string CSTable::ReadText(int column) {
    const CState::Column* const found = m_state->FindColumn(column);
    if (!found) return {};
    if (found->type == ColumnType::StoredText) {
        const std::int32_t reference = ReadReference(column);
        return reference < 0 ? std::string() : m_state->texts->Read(reference);
    }
    if (found->type != ColumnType::Text) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    std::string text(static_cast<std::size_t>(found->size), '\0');
    ReadColumn(column, std::as_writable_bytes(std::span(text)));
    text.resize(std::min(text.find('\0'), text.size() - 1));
    return text;
}

void CSTable::WriteText(int column, std::string_view text) {
    const CState::Column& found = m_state->PresentColumn(column);
    m_state->RequireRecord();
    if (found.type == ColumnType::StoredText) {
        CTextStore& store = *m_state->texts;
        const std::int32_t before = ReadReference(column);
        if (before >= 0 && !text.empty()) {
            store.Replace(before, text);
        } else if (before >= 0 || !text.empty()) {
            std::array<std::byte, 4> bytes{};
            PutU32(bytes.data(), static_cast<std::uint32_t>(text.empty() ? CTextStore::NoText : store.Add(text)));
            m_state->WriteAtCursor(found.offset, bytes);
            store.Free(before);
        }
        if (store.GetUnreleased() >= UnreleasedLimit) Flush();
        return;
    }
    if (found.type != ColumnType::Text) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    std::string bytes(text.substr(0, static_cast<std::size_t>(found.declaredSize)));
    bytes.push_back('\0');
    m_state->WriteAtCursor(found.offset, BytesOf(bytes));
}

void CSTable::WriteTextInFull(int column, std::string_view text) {
    const CState::Column& found = m_state->PresentColumn(column);
    if (found.type != ColumnType::Text) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    std::string bytes(text.substr(0, static_cast<std::size_t>(found.declaredSize)));
    bytes.resize(static_cast<std::size_t>(found.size));
    m_state->WriteAtCursor(found.offset, BytesOf(bytes));
}

std::uint32_t CSTable::ReadCounter(int column) {
    std::array<std::byte, 4> bytes{};
    ReadColumn(column, bytes);
    return GetU32(bytes.data());
}

std::int32_t CSTable::ReadReference(int column) {
    if (!m_state->FindColumn(column)) return CTextStore::NoText;
    return static_cast<std::int32_t>(ReadCounter(column));
}

CTextStore* CSTable::GetTextStore() noexcept {
    return m_state->texts.get();
}

std::uint32_t CSTable::FindMaxCounter(int column) {
    return m_state->MaxCounter(column, m_state->cursor);
}

void CSTable::RaiseCounter(int column, std::uint32_t atLeast) {
    m_state->PresentColumn(column);
    std::uint32_t& counter = m_state->layout.columns[static_cast<std::size_t>(column)].counter;
    counter = std::max(counter, atLeast);
}

void CSTable::Flush() {
    CState& state = *m_state;
    if (!IsOpen() || state.readOnly) return;
    if (state.texts) state.texts->Flush();
    if (!state.file.Flush()) state.Fail("cannot be written.");
    if (state.isNewName) {
        const std::string folder = ParentFolder(state.path);
        if (!Platform::FlushFolder(folder.empty() ? "." : folder)) state.Fail("cannot be written.");
        state.isNewName = false;
    }
    if (state.texts) state.texts->Release();
}

void CSTable::OnReadFault(int column) {
    m_state->Fail(
        ("cannot be read (record " + std::to_string(m_state->cursor) + ", column " + std::to_string(column) + ").")
            .c_str());
}
