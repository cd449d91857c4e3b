#include <algorithm>

#include "app/pumpmessages.h"
#include "engine/eventlog.h"
#include "engine/stable.h"
#include "engine/stablestate.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

namespace {

constexpr std::string_view SourceName = "Shared/Engine/stable";
constexpr std::byte Deleted{'Y'};

}  // namespace

void CSTable::CState::CollectReferences(std::span<const std::byte> record,
                                        std::vector<std::int32_t>& references) const {
    for (const Column& column : layout.columns) {
        if (column.type != ColumnType::StoredText || column.offset < 0) continue;
        const std::int32_t reference = ReferenceAt(record, column);
        if (reference >= 0) references.push_back(reference);
    }
}

// Whole records per step: a crash leaves records double, never a mixture of two.
void CSTable::RemoveRange(std::int32_t count) {
    CState& state = *m_state;
    const std::int32_t first = state.cursor;
    const std::int32_t total = state.Count();
    state.CheckStop();
    if (state.readOnly || count < 0 || first < 0 || first > total || count > total - first) {
        ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    }
    Log(LogDebug2, "### RemoveRange (from: %i, count: %i) in %s\n", first, count, state.path.c_str());
    const auto size = static_cast<std::size_t>(state.recordSize);
    std::vector<std::int32_t> freed;
    std::vector<std::byte> record(size);
    for (std::int32_t i = 0; state.texts && i < count; ++i) {
        Go(first + i);
        ReadRecord(record);
        state.CollectReferences(record, freed);
    }
    Go(first);
    if (first + count != total) {
        Log(LogDebug2, "### Copying records (from: i, to: %i) in %s\n", first, state.path.c_str());
        std::vector<std::byte> block(std::max(CState::BlockBytes / size, std::size_t{1}) * size);
        const std::uint64_t end = state.OffsetOf(total);
        std::uint64_t from = state.OffsetOf(first + count);
        for (std::uint64_t to = state.OffsetOf(first); from < end;) {
            state.CheckStop();
            const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), end - from));
            if (!state.file.ReadAt(from, block.data(), part)) state.Fail("cannot be read.");
            if (!state.file.WriteAt(to, block.data(), part)) state.Fail("cannot be written.");
            from += part;
            to += part;
        }
    }
    state.SetLength(state.OffsetOf(total - count));
    state.knownCount = std::min(state.knownCount, total) - count;
    for (const std::int32_t reference : freed)
        state.texts->Free(reference);
}

void CSTable::RemoveAll() {
    CState& state = *m_state;
    state.CheckStop();
    if (!IsOpen() || state.readOnly) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    Log(LogDebug2, "### Removing all records in %s\n", state.path.c_str());
    if (!state.file.SetSize(0)) state.Fail("cannot be emptied.");
    state.cursor = -1;
    state.knownCount = 0;
    if (state.texts) state.texts->RemoveAll();
}

std::vector<CSTable::CState::Run> CSTable::CState::FindDeletedRuns() const {
    std::vector<Run> runs;
    ForEachBlock([&](std::int32_t first, std::span<const std::byte> block) {
        std::int32_t index = first;
        for (std::size_t at = 0; at < block.size(); at += static_cast<std::size_t>(recordSize), ++index) {
            if (block[at] != Deleted) continue;
            if (!runs.empty() && runs.back().first + runs.back().count == index) {
                ++runs.back().count;
            } else {
                runs.push_back({index, 1});
            }
        }
        return true;
    });
    return runs;
}

// The live records, in order, to P.new.
void CSTable::CState::WritePacked(std::vector<std::int32_t>& freed) {
    Platform::CFile to;
    if (!to.Open(path + ".new", Platform::FileMode::CreateOrEmpty)) Fail("cannot be packed.");
    ForEachBlock([&](std::int32_t, std::span<const std::byte> block) {
        std::string kept;
        for (std::size_t at = 0; at < block.size(); at += static_cast<std::size_t>(recordSize)) {
            const auto record = block.subspan(at, static_cast<std::size_t>(recordSize));
            if (record[0] == Deleted) {
                CollectReferences(record, freed);
            } else {
                kept.append(reinterpret_cast<const char*>(record.data()), record.size());
            }
        }
        if (!to.Write(kept)) Fail("cannot be packed.");
        PumpMessages();
        return true;
    });
    if (!to.Flush() || !to.Close()) Fail("cannot be packed.");
}

void CSTable::CState::ReplaceByNew() {
    file.Close();
    const bool replaced = Platform::RenameReplacing(path + ".new", path);
    const Platform::SystemError code = Platform::LastSystemError();
    if (!replaced) Platform::RemoveFile(path + ".new");
    if (!file.Open(path, Platform::FileMode::ReadWrite)) {
        recordSize = 0;
        texts.reset();
        Fail("cannot be opened after it was packed.");
    }
    Platform::SetLastSystemError(code);
    if (!replaced) Fail("cannot be packed.");
    Platform::FileStatus status;
    identity = Platform::GetFileStatus(path, status) ? status.identity : 0;
    const std::string folder = ParentFolder(path);
    if (!Platform::FlushFolder(folder.empty() ? "." : folder)) Fail("was packed, but perhaps not on the disk.");
}

// The runs go from the end towards the start, as far as anyone can see; the
// records are copied once, and the packed file takes the place of the other.
void CSTable::Pack() {
    CState& state = *m_state;
    state.CheckStop();
    if (!IsOpen() || state.readOnly) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    Log(LogDebug2, "### Packing %s\n", state.path.c_str());
    const std::vector<CState::Run> runs = state.FindDeletedRuns();
    state.cursor = -1;
    if (runs.empty()) return;
    const std::int32_t total = state.Count();
    const bool isTailOnly = runs.size() == 1 && runs[0].first + runs[0].count == total;
    if (isTailOnly) {
        Log(LogDebug2, "### Found a deleted record in %s\n", state.path.c_str());
        PumpMessages();
        state.cursor = runs[0].first;
        RemoveRange(runs[0].count);
    } else {
        std::vector<std::int32_t> freed;
        try {
            state.WritePacked(freed);
        } catch (...) {
            Platform::RemoveFile(state.path + ".new");
            throw;
        }
        const bool isLogged = IsLogged(LogDebug2);
        for (auto run = runs.rbegin(); isLogged && run != runs.rend(); ++run) {
            Log(LogDebug2, "### Found a deleted record in %s\n", state.path.c_str());
            Log(LogDebug2, "### RemoveRange (from: %i, count: %i) in %s\n", run->first, run->count, state.path.c_str());
        }
        const std::uint64_t oldLength = state.Length();
        state.ReplaceByNew();
        state.knownCount = state.Count();
        Log(LogDebug2, "### Setting length of %s to %lli (old length: %lli)\n", state.path.c_str(),
            static_cast<long long>(state.Length()), static_cast<long long>(oldLength));
        for (const std::int32_t reference : freed)
            state.texts->Free(reference);
    }
    state.cursor = -1;
    Flush();
}
