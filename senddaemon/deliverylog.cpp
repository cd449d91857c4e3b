#include "senddaemon/deliverylog.h"

#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "senddaemon/deliverylogfiles.h"
#include "utility/lasterror.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"

namespace SendDaemon {

namespace {

constexpr std::uint64_t UnknownSize = ~std::uint64_t{0};

bool FailOn(const std::string& path, Platform::SystemError code) {
    SetLastErrorText(path + ": " + Platform::SystemErrorText(code));
    Platform::SetLastSystemError(code);
    return false;
}

// A file that cannot be read is taken to end in the middle of a line: an empty
// line more does no harm.
bool EndsWithLine(const std::string& path, std::uint64_t size) {
    Platform::CFile file;
    char last = 0;
    return file.Open(path, Platform::FileMode::Read) && file.ReadAt(size - 1, &last, 1) && last == '\n';
}

// delivery.log becomes delivery.log.1, that one .2 and so on, up to the first
// gap.  From the other end, so that no rename replaces anything.
bool ShiftFiles(const std::string& root) {
    std::vector<std::uint32_t> numbers;
    if (!ListDeliveryLogs(root, numbers)) return false;
    std::uint32_t count = 0;
    while (count < numbers.size() && numbers[count] == count)
        ++count;
    while (count > 0) {
        if (!Platform::RenameReplacing(GetDeliveryLogPath(root, count - 1), GetDeliveryLogPath(root, count))) {
            return false;
        }
        --count;
    }
    return true;
}

bool RemoveOldFiles(const std::string& root, std::uint32_t keep) {
    std::vector<std::uint32_t> numbers;
    if (keep == 0) return true;
    if (!ListDeliveryLogs(root, numbers)) return false;
    for (const std::uint32_t number : numbers) {
        if (number > keep) Platform::RemoveFile(GetDeliveryLogPath(root, number));
    }
    return true;
}

}  // namespace

// Calls are numbered by "written".  One thread at a time flushes, without the
// lock, for all calls that had been written when it began; the others wait.
struct CDeliveryLog::CState {
    mutable std::mutex lock;
    std::condition_variable flushEnded;

    std::string root;
    std::string path;
    std::unique_ptr<Platform::CNamedMutex> names;  // of the files, which other processes look at
    std::uint64_t maxBytes = 0;
    std::uint32_t keep = 0;

    std::shared_ptr<Platform::CFile> file;  // shared with the thread that flushes
    std::uint64_t identity = 0;             // of the open file
    std::uint64_t size = UnknownSize;       // as we left it
    std::uint64_t rotateAt = 0;             // 0: never
    bool isFolderDirty = false;             // the name is not yet on disk

    std::uint64_t written = 0;
    std::uint64_t flushed = 0;  // every call up to this one
    std::uint64_t lost = 0;     // the last call that a flush failed for
    Platform::SystemError lostCode = 0;
    bool isFlushing = false;
    std::uint64_t flushes = 0;

    void LeaveFile();
    bool OpenFile(Platform::FileStatus& status);
    bool MakeReady(std::size_t bytes, bool& needsLineEnd);
    bool Rotate(Platform::FileStatus& status);
    bool Write(std::string text);
    bool FlushUpTo(std::uint64_t call, std::unique_lock<std::mutex>& guard);
    void FlushOnce(std::unique_lock<std::mutex>* guard);
};

// Flushes what has been written by now; with a guard, the lock is free meanwhile.
void CDeliveryLog::CState::FlushOnce(std::unique_lock<std::mutex>* guard) {
    const std::shared_ptr<Platform::CFile> current = file;
    const std::uint64_t target = written;
    const bool withFolder = std::exchange(isFolderDirty, false);
    ++flushes;
    if (guard) {
        isFlushing = true;
        guard->unlock();
    }
    const bool isDone = current->Flush() && (!withFolder || Platform::FlushFolder(root));
    const Platform::SystemError code = isDone ? 0 : Platform::LastSystemError();
    if (guard) {
        guard->lock();
        isFlushing = false;
        flushEnded.notify_all();
    }
    if (!isDone) {
        // The system may report a failure once only: who waits for these bytes
        // must not take the next success for theirs.
        lost = target;
        lostCode = code;
        isFolderDirty = isFolderDirty || withFolder;
    }
    if (target > flushed) flushed = target;
}

bool CDeliveryLog::CState::FlushUpTo(std::uint64_t call, std::unique_lock<std::mutex>& guard) {
    while (flushed < call) {
        if (isFlushing) {
            flushEnded.wait(guard);
        } else {
            FlushOnce(&guard);
        }
    }
    return call > lost || FailOn(path, lostCode);
}

// The open file is no longer the one of that name, or is about to be renamed.
// Whoever waits for lines in it is served first.
void CDeliveryLog::CState::LeaveFile() {
    if (file && flushed < written) FlushOnce(nullptr);
    file.reset();
    size = UnknownSize;
}

bool CDeliveryLog::CState::OpenFile(Platform::FileStatus& status) {
    LeaveFile();
    const CMutexGuard guard(*names);
    const bool isNew = !Platform::FileIsThere(path);
    auto opened = std::make_shared<Platform::CFile>();
    if (!opened->Open(path, Platform::FileMode::Append) || !Platform::GetFileStatus(path, status)) {
        return FailOn(path, Platform::LastSystemError());
    }
    file = std::move(opened);
    identity = status.identity;
    isFolderDirty = isFolderDirty || isNew;
    rotateAt = maxBytes;
    return true;
}

// A ledger that cannot be rotated goes on growing: a line lost were worse.
bool CDeliveryLog::CState::Rotate(Platform::FileStatus& status) {
    const std::uint64_t later = status.size + maxBytes;
    LeaveFile();
    bool isRotated = false;
    {
        const CMutexGuard guard(*names);
        Platform::FileStatus now;
        const bool isOurs = Platform::GetFileStatus(path, now) && now.identity == identity;
        isRotated = isOurs && ShiftFiles(root) && RemoveOldFiles(root, keep);
    }
    if (!OpenFile(status)) return false;
    if (!isRotated) rotateAt = later;
    return true;
}

// One look at the name per call: another program may have renamed or removed
// the file, or added to it.
bool CDeliveryLog::CState::MakeReady(std::size_t bytes, bool& needsLineEnd) {
    Platform::FileStatus status;
    const bool isOurs = file && Platform::GetFileStatus(path, status) && status.identity == identity;
    if (!isOurs && !OpenFile(status)) return false;
    if (rotateAt != 0 && status.size != 0 && status.size + bytes > rotateAt && !Rotate(status)) return false;
    needsLineEnd = status.size != 0 && status.size != size && !EndsWithLine(path, status.size);
    size = status.size;
    return true;
}

bool CDeliveryLog::CState::Write(std::string text) {
    bool needsLineEnd = false;
    if (!MakeReady(text.size(), needsLineEnd)) return false;
    if (needsLineEnd) text.insert(0, 1, '\n');
    if (!file->Write(text)) {
        const Platform::SystemError code = Platform::LastSystemError();
        size = UnknownSize;
        return FailOn(path, code);
    }
    size += text.size();
    ++written;
    return true;
}

CDeliveryLog::CDeliveryLog() : m_state(std::make_unique<CState>()) {}
CDeliveryLog::~CDeliveryLog() = default;

void CDeliveryLog::SetUp(std::string_view accountRoot, std::uint64_t maxBytes, std::uint32_t keep) {
    const std::lock_guard guard(m_state->lock);
    m_state->LeaveFile();
    m_state->root = WithoutSeparator(accountRoot);
    m_state->path = GetDeliveryLogPath(m_state->root);
    m_state->names = std::make_unique<Platform::CNamedMutex>(GetDeliveryLogMutexName(m_state->root));
    m_state->maxBytes = maxBytes;
    m_state->keep = keep;
}

bool CDeliveryLog::Open() {
    const std::lock_guard guard(m_state->lock);
    bool needsLineEnd = false;
    return !m_state->root.empty() && m_state->MakeReady(0, needsLineEnd);
}

bool CDeliveryLog::Append(std::span<const CDeliveryLine> lines, Flush flush) {
    if (lines.empty()) return true;
    std::string text;
    for (const CDeliveryLine& line : lines)
        text += FormatDeliveryLine(line);
    std::unique_lock guard(m_state->lock);
    if (m_state->root.empty()) {
        SetLastErrorText("The delivery log is not set up.");
        return false;
    }
    if (!m_state->Write(std::move(text))) return false;
    return flush == Flush::No || m_state->FlushUpTo(m_state->written, guard);
}

std::uint64_t CDeliveryLog::GetFlushCount() const {
    const std::lock_guard guard(m_state->lock);
    return m_state->flushes;
}

}  // namespace SendDaemon
