#include <algorithm>
#include <charconv>
#include <cstring>

#include "engine/eventlog.h"
#include "engine/littleendian.h"
#include "engine/stable.h"
#include "engine/stablestate.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SourceName = "Shared/Engine/stable";
constexpr std::byte Live{'N'};
constexpr std::byte Deleted{'Y'};

std::int64_t NumberIn(std::string_view text) noexcept {
    text = TrimLeft(text);
    std::int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::string_view UpToNul(std::span<const std::byte> bytes) noexcept {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return text.substr(0, std::min(text.find('\0'), text.size() - 1));
}

void CheckSize(bool fits, int line) {
    if (!fits) ThrowInternalError(SourceName, line, InternalErrorKind::InvalidArguments);
}

}  // namespace

std::int64_t CSTable::ReadNumber(int column) {
    return NumberIn(ReadText(column));
}
void CSTable::WriteNumber(int column, std::int64_t value) {
    WriteText(column, std::to_string(value));
}

void CSTable::ReadRecord(std::span<std::byte> record) {
    CheckSize(record.size() == static_cast<std::size_t>(m_state->recordSize), __LINE__);
    ReadRecords(record);
}

void CSTable::ReadRecords(std::span<std::byte> records) {
    CState& state = *m_state;
    state.CheckStop();
    const auto size = static_cast<std::size_t>(state.recordSize);
    CheckSize(size > 0 && records.size() % size == 0 && state.cursor >= 0, __LINE__);
    Platform::SetLastSystemError(0);
    if (!state.file.ReadAt(state.OffsetOf(state.cursor), records.data(), records.size())) OnReadFault(0);
}

void CSTable::WriteRecord(std::span<const std::byte> record) {
    CheckSize(record.size() == static_cast<std::size_t>(m_state->recordSize), __LINE__);
    m_state->WriteAtCursor(0, record);
}

std::int32_t CSTable::AppendRecords(std::span<std::byte> records) {
    CState& state = *m_state;
    state.CheckStop();
    CheckSize(IsOpen() && !state.readOnly, __LINE__);
    Log(LogDebug2, "### Appending new record to %s\n", state.path.c_str());
    const auto size = static_cast<std::size_t>(state.recordSize);
    CheckSize(records.size() % size == 0, __LINE__);
    ReopenIfReplaced();
    CheckSize(static_cast<std::size_t>(state.recordSize) == size, __LINE__);
    const std::int32_t count = state.Count();
    if (records.empty()) return count;
    if (records.size() / size > static_cast<std::size_t>(INT32_MAX - count)) state.Fail("is full.");
    if (count != state.knownCount) state.LoadCounters();
    for (std::size_t at = 0; at < records.size(); at += size) {
        records[at] = Live;
        for (CState::Column& column : state.layout.columns) {
            if (column.type != ColumnType::Counter || column.offset < 0) continue;
            PutU32(records.data() + at + column.offset, ++column.counter);
        }
    }
    const std::uint64_t end = state.OffsetOf(count);
    if (!state.file.WriteAt(end, records.data(), records.size())) {
        const Platform::SystemError code = Platform::LastSystemError();
        state.file.SetSize(end);  // what got there of a write that failed
        Platform::SetLastSystemError(code);
        state.Fail("cannot be written.");
    }
    state.knownCount = count + static_cast<std::int32_t>(records.size() / size);
    state.cursor = state.knownCount - 1;
    return count;
}

std::vector<std::byte> CSTable::MakeRecord() const {
    std::vector<std::byte> record(static_cast<std::size_t>(m_state->recordSize));
    if (record.empty()) return record;
    record[0] = Live;
    for (const CState::Column& column : m_state->layout.columns) {
        if (column.type == ColumnType::StoredText && column.offset >= 0) {
            PutU32(record.data() + column.offset, static_cast<std::uint32_t>(CTextStore::NoText));
        }
    }
    return record;
}

std::string_view CSTable::TextOf(std::span<const std::byte> record, int column) const {
    const CState::Column* const found = m_state->FindColumn(column);
    if (!found) return {};
    CheckSize(found->type == ColumnType::Text && record.size() == static_cast<std::size_t>(m_state->recordSize),
              __LINE__);
    return UpToNul(record.subspan(static_cast<std::size_t>(found->offset), static_cast<std::size_t>(found->size)));
}

std::int64_t CSTable::NumberOf(std::span<const std::byte> record, int column) const {
    return NumberIn(TextOf(record, column));
}

std::uint32_t CSTable::CounterOf(std::span<const std::byte> record, int column) const {
    const CState::Column* const found = m_state->FindColumn(column);
    if (!found) return 0;
    CheckSize(found->size == 4 && record.size() == static_cast<std::size_t>(m_state->recordSize), __LINE__);
    return GetU32(record.data() + found->offset);
}

std::int32_t CSTable::ReferenceOf(std::span<const std::byte> record, int column) const {
    if (!m_state->FindColumn(column)) return CTextStore::NoText;
    return static_cast<std::int32_t>(CounterOf(record, column));
}

void CSTable::PutText(std::span<std::byte> record, int column, std::string_view text) const {
    const CState::Column& found = m_state->PresentColumn(column);
    CheckSize(found.type == ColumnType::Text && record.size() == static_cast<std::size_t>(m_state->recordSize),
              __LINE__);
    text = text.substr(0, static_cast<std::size_t>(found.declaredSize));
    std::byte* const to = record.data() + found.offset;
    std::memset(to, 0, static_cast<std::size_t>(found.size));
    if (!text.empty()) std::memcpy(to, text.data(), text.size());
}

void CSTable::PutNumber(std::span<std::byte> record, int column, std::int64_t value) const {
    PutText(record, column, std::to_string(value));
}

void CSTable::PutReference(std::span<std::byte> record, int column, std::int32_t reference) const {
    const CState::Column& found = m_state->PresentColumn(column);
    CheckSize(found.type == ColumnType::StoredText && record.size() == static_cast<std::size_t>(m_state->recordSize),
              __LINE__);
    PutU32(record.data() + found.offset, static_cast<std::uint32_t>(reference));
}

bool CSTable::IsDeletedRecord(std::span<const std::byte> record) noexcept {
    return !record.empty() && record[0] == Deleted;
}

int CSTable::GetColumnCount() const noexcept {
    return static_cast<int>(m_state->layout.columns.size());
}

bool CSTable::HasColumn(int column) const noexcept {
    return IsOpen() && column >= 0 && column < GetColumnCount() &&
           m_state->layout.columns[static_cast<std::size_t>(column)].offset >= 0;
}

std::int32_t CSTable::GetColumnSize(int column) const {
    return m_state->PresentColumn(column).size;
}
std::int32_t CSTable::GetColumnOffset(int column) const {
    return m_state->PresentColumn(column).offset;
}
