#include "engine/incoming/cycletransaction.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "engine/broadcastjob.h"
#include "engine/incoming/cycleparts.h"
#include "engine/incoming/preparedfiles.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/flushfiles.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

constexpr std::size_t CopyBlock = 256 * 1024;

std::uint64_t NewRecordId() {
    return std::uint64_t{Platform::RandomNumber()} << 32 | Platform::RandomNumber();
}

bool AppendFile(const std::string& source, CNewFile& target) {
    Platform::CFile file;
    std::uint64_t size = 0;
    if (!file.Open(source, Platform::FileMode::Read) || !file.GetSize(size)) {
        SetLastErrorFromSystem();
        return false;
    }
    std::string block(static_cast<std::size_t>(std::min<std::uint64_t>(size, CopyBlock)), '\0');
    for (std::uint64_t offset = 0; offset < size;) {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, block.size()));
        if (!file.ReadAt(offset, block.data(), length)) {
            SetLastErrorFromSystem();
            return false;
        }
        if (!target.Write(std::string_view(block).substr(0, length))) return false;
        offset += length;
    }
    return true;
}

std::string HeaderLines(std::string_view lines) {
    std::string text = LfToCrLf(CrLfToLf(lines));
    if (!text.empty() && !text.ends_with('\n')) text += "\r\n";
    return text;
}

}  // namespace

struct CCycleTransaction::CState {
    explicit CState(CCycleState::CState& owner) : cycle(owner), written(owner.preparing) {}

    // By address, without regard to case: what is to become of the member.
    struct CMemberChange {
        bool isRemoved = false;
        CMember member;
    };

    CCycleState::CState& cycle;
    CycleRecord record;
    std::map<std::string, CMemberChange, CLessNoCase> members;
    Marks marks;
    CPreparedFiles written;              // by others than the caller, and not in the record yet
    std::vector<std::string> unflushed;  // that the caller wrote
    std::int64_t nextTime = 0;           // of the next file, unless 0
    bool isCounted = false;              // among those that have prepared something
    bool isSpoilt = false;  // a flush that failed is not tried again: the system may have dropped the bytes

    bool Begin(std::string_view queueFolder, CNewFile& file);
    bool Add(std::string_view queueFolder, std::string text);
    bool Note(const std::string& temporaryPath);
    bool TakeWritten();
    bool FlushPrepared();
    void RemovePrepared();
    void Forget(bool isFinished);
};

// The file's name is noted before it is there.
bool CCycleTransaction::CState::Begin(std::string_view queueFolder, CNewFile& file) {
    if (!cycle.IsReady()) return false;
    CBatchFolder* const queue = cycle.work.GetQueues().Open(WithoutSeparator(queueFolder));
    return queue && queue->CreateMessage(file, [this](const std::string& path) { return Note(path); });
}

bool CCycleTransaction::CState::Note(const std::string& temporaryPath) {
    if (!std::exchange(isCounted, true)) ++cycle.transactions;
    return cycle.preparing.Add(temporaryPath);
}

// Others write it while the caller goes on.
bool CCycleTransaction::CState::Add(std::string_view queueFolder, std::string text) {
    if (!cycle.IsReady()) return false;
    CBatchFolder* const queue = cycle.work.GetQueues().Open(WithoutSeparator(queueFolder));
    if (!queue) return false;
    if (!std::exchange(isCounted, true)) ++cycle.transactions;
    return written.Add(*queue, std::move(text), std::exchange(nextTime, 0));
}

// Waits until they are on the disk.
bool CCycleTransaction::CState::TakeWritten() {
    if (written.IsEmpty()) return true;
    std::vector<CNewFile> files;
    if (!written.Finish(files)) isSpoilt = true;
    for (CNewFile& file : files) {
        record.files.push_back({file.GetTemporaryPath(), file.GetFinalPath()});
        file.Keep();
    }
    return !isSpoilt;
}

// The record must not name a file that a power failure takes away.
bool CCycleTransaction::CState::FlushPrepared() {
    if (isSpoilt) {
        SetLastErrorText("What was prepared did not get onto the disk.");
        return false;
    }
    if (!TakeWritten()) return false;
    std::set<std::string> folders;
    for (const CycleRecord::CFile& file : record.files)
        folders.insert(ParentFolder(file.temporaryPath));
    for (const CycleRecord::CBroadcast& broadcast : record.broadcasts)
        folders.insert(ParentFolder(broadcast.messagePath));
    for (const CycleRecord::CTwin& twin : record.twins)  // of which the name alone counts
        folders.insert(ParentFolder(twin.temporaryPath));
    isSpoilt = !FlushTogether(unflushed, std::vector<std::string>(folders.begin(), folders.end()));
    return !isSpoilt;
}

void CCycleTransaction::CState::RemovePrepared() {
    const std::string reason = GetLastErrorText();
    written.Abandon();
    for (const CycleRecord::CFile& file : record.files)
        Platform::RemoveFile(file.temporaryPath);
    for (const CycleRecord::CTwin& twin : record.twins)
        Platform::RemoveFile(twin.temporaryPath);
    for (const CycleRecord::CBroadcast& broadcast : record.broadcasts)
        Platform::RemoveFile(broadcast.messagePath);
    SetLastErrorText(reason);
}

// The list of names is emptied when nobody needs it any more.
void CCycleTransaction::CState::Forget(bool isFinished) {
    record = {};
    unflushed.clear();
    members.clear();
    marks.clear();
    if (std::exchange(isCounted, false) && --cycle.transactions == 0 && isFinished) {
        const std::string reason = GetLastErrorText();
        cycle.preparing.Clear();
        SetLastErrorText(reason);
    }
}

CCycleTransaction::CCycleTransaction(CCycleState& state) : m_state(std::make_unique<CState>(*state.m_state)) {}

CCycleTransaction::~CCycleTransaction() {
    m_state->RemovePrepared();
    m_state->Forget(!m_state->cycle.needsRecovery);
}

bool CCycleTransaction::BeginMessage(std::string_view queueFolder, CNewFile& file) {
    return m_state->Begin(queueFolder, file);
}

bool CCycleTransaction::FinishMessage(CNewFile& file, std::string* newPath) {
    // Those that others write come first: a twin is of the last one.
    if (!m_state->TakeWritten() || !file.CloseUnflushed()) return false;
    if (const std::int64_t time = std::exchange(m_state->nextTime, 0); time != 0) {
        if (!Platform::SetFileTimes(file.GetTemporaryPath(), {.created = time, .modified = time})) {
            SetLastErrorFromSystem();
            return false;
        }
    }
    m_state->record.files.push_back({file.GetTemporaryPath(), file.GetFinalPath()});
    m_state->unflushed.push_back(file.GetTemporaryPath());
    if (newPath) *newPath = file.GetFinalPath();
    file.Keep();
    return true;
}

bool CCycleTransaction::AddMessage(std::string_view queueFolder, std::string_view text, std::string* newPath) {
    constexpr std::size_t LargestGiven = 1u << 20;  // to others: more is not to be in memory twice
    if (newPath == nullptr && text.size() <= LargestGiven) return m_state->Add(queueFolder, std::string(text));
    CNewFile file;
    return BeginMessage(queueFolder, file) && file.Write(text) && FinishMessage(file, newPath);
}

bool CCycleTransaction::AddCopy(std::string_view queueFolder, std::string_view source, std::string_view extraHeaders,
                                std::string* newPath) {
    CNewFile file;
    return BeginMessage(queueFolder, file) && file.Write(HeaderLines(extraHeaders)) &&
           AppendFile(std::string(source), file) && FinishMessage(file, newPath);
}

bool CCycleTransaction::AddCopyOf(std::string_view queueFolder, std::string_view text, std::string_view extraHeaders) {
    return m_state->Add(queueFolder, HeaderLines(extraHeaders).append(text));
}

// The clock that stamps files stands still for some milliseconds at a time.
void CCycleTransaction::KeepOrder() {
    constexpr std::int64_t Step = 1000;  // nanoseconds; file systems know a tenth of it
    std::int64_t& last = m_state->cycle.lastInOrder;
    last = std::max(Platform::NanosecondsSince1970(), last + Step);
    m_state->nextTime = last;
}

bool CCycleTransaction::AddTwin(std::string_view queueFolder) {
    if (!m_state->TakeWritten()) return false;
    CycleRecord& record = m_state->record;
    if (record.files.empty()) {
        SetLastErrorText("There is no message that could lie in another folder too.");
        return false;
    }
    CNewFile file;
    if (!m_state->Begin(queueFolder, file) || !file.CloseUnflushed()) return false;
    const CycleRecord::CFile& source = record.files.back();
    record.twins.push_back({source.temporaryPath, source.finalPath, file.GetTemporaryPath(), file.GetFinalPath()});
    file.Keep();
    return true;
}

void CCycleTransaction::MoveMessage(std::string_view source, std::string_view queueFolder) {
    m_state->record.moves.push_back({std::string(source), WithoutSeparator(queueFolder)});
}

void CCycleTransaction::RemoveMessage(std::string_view path) {
    m_state->record.removals.emplace_back(path);
}

void CCycleTransaction::PutMember(const CMember& member) {
    m_state->members[member.address] = {false, member};
}

void CCycleTransaction::RemoveMember(std::string_view address) {
    m_state->members[std::string(address)] = {true, {}};
}

bool CCycleTransaction::AddBroadcast(std::string_view text, const BroadcastModes& modes, std::string& identifier) {
    CState& s = *m_state;
    const std::string folder = GetPostsFolder(s.cycle.list);
    CNewFile file;
    const auto note = [&](const std::string& path) { return s.Note(path); };
    if (!s.cycle.IsReady() || !EnsureFolder(folder) || !file.Create(folder, "eml", note) || !file.Write(text) ||
        !file.CloseUnflushed() || !CBroadcastJobs::Check(file.GetTemporaryPath(), {s.cycle.list}, modes)) {
        return false;
    }
    identifier = CBroadcastJobs().NewIdentifier();
    s.unflushed.push_back(file.GetTemporaryPath());
    s.record.broadcasts.push_back({identifier, file.GetTemporaryPath(), modes});
    file.Keep();
    return true;
}

void CCycleTransaction::SetMark(MarkKind kind, std::string_view key, std::string_view value) {
    m_state->marks[MarkKey(kind, key)] = value;
}

bool CCycleTransaction::GetMark(MarkKind kind, std::string_view key, std::string& value) const {
    const std::string stored = MarkKey(kind, key);
    const auto found = m_state->marks.find(stored);
    if (found == m_state->marks.end()) return m_state->cycle.database.Get(stored, value);
    value = found->second;
    return !value.empty();
}

bool CCycleTransaction::IsEmpty() const noexcept {
    return m_state->record.IsEmpty() && m_state->written.IsEmpty() && m_state->members.empty() &&
           m_state->marks.empty();
}

std::size_t CCycleTransaction::CountFiles() const noexcept {
    const CycleRecord& record = m_state->record;
    return m_state->written.GetCount() + record.files.size() + record.twins.size() + record.broadcasts.size();
}

bool CCycleTransaction::Commit() {
    if (IsEmpty()) return true;
    CState& s = *m_state;
    if (!s.cycle.IsReady() || !s.FlushPrepared()) return false;
    CycleRecord& record = s.record;
    record.id = NewRecordId();
    record.members.clear();
    record.removedMembers.clear();
    for (const auto& [address, change] : s.members) {
        if (change.isRemoved)
            record.removedMembers.push_back(address);
        else
            record.members.push_back(change.member);
    }
    const auto result = s.cycle.Commit(record, s.marks);
    using Result = CCycleState::CState::Result;
    if (result == Result::Nothing) return false;
    s.Forget(result == Result::Done);
    return result == Result::Done;
}
