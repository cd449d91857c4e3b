#include "engine/incoming/preparedfiles.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "engine/incoming/cycleparts.h"
#include "platform/filestatus.h"
#include "platform/process.h"
#include "senddaemon/batchfolder.h"
#include "utility/lasterror.h"

namespace {

constexpr std::size_t FilesInARow = 32;  // that are written before their writing to the disk is begun
constexpr std::size_t MostOpen = 256;    // half of them go to the disk at a time
constexpr std::size_t MostBytes = 4 * 1024 * 1024;

// They wait for the disk, not for a processor.
constexpr std::size_t MostThreads = 16;
constexpr std::size_t FilesPerThread = 8;

// The rest is for connections, locks and what else the process has.
std::size_t MostOpenHere() {
    return std::clamp<std::size_t>(Platform::OpenFileLimit() / 4, 2, MostOpen);
}

}  // namespace

CPreparedFiles::CPreparedFiles(CPreparingList& preparing, std::size_t mostOpen)
    : m_preparing(preparing), m_mostOpen(mostOpen != 0 ? mostOpen : MostOpenHere()) {}

CPreparedFiles::~CPreparedFiles() {
    Abandon();
}

void CPreparedFiles::Abandon() {
    {
        const Lock lock(m_lock);
        m_isEnding = true;
        m_work.notify_all();
    }
    m_threads.clear();
    m_isEnding = false;
    m_files.clear();
    m_written = m_wave = m_taken = m_flushed = m_waiting = 0;
}

bool CPreparedFiles::Add(CBatchFolder& queue, std::string text, std::int64_t time) {
    Lock lock(m_lock);
    while (!m_hasFailed && !HasRoom()) {
        if (!Work(lock)) m_progress.wait(lock);
    }
    if (m_hasFailed) return TellFailure();
    m_waiting += text.size();
    m_files.push_back({&queue, std::move(text), time, {}});
    if (m_files.size() - m_written == FilesInARow) {
        StartThreads(m_files.size() / FilesPerThread);
        m_work.notify_one();
    }
    return true;
}

bool CPreparedFiles::Finish(std::vector<CNewFile>& files) {
    Lock lock(m_lock);
    m_isFinishing = true;
    StartThreads(m_files.size() / FilesPerThread);
    m_work.notify_all();
    while (!IsDone()) {
        if (!Work(lock)) m_progress.wait(lock);
    }
    m_isFinishing = false;
    if (m_hasFailed) return TellFailure();
    for (CFile& it : m_files)
        files.push_back(std::move(it.file));
    m_files.clear();
    m_written = m_wave = m_taken = m_flushed = 0;
    return true;
}

bool CPreparedFiles::TellFailure() const {
    SetLastErrorText(m_reason);
    Platform::SetLastSystemError(m_error);
    return false;
}

bool CPreparedFiles::HasRoom() const {
    return m_files.size() - m_flushed < m_mostOpen + 2 * FilesInARow && m_waiting < MostBytes;
}

bool CPreparedFiles::IsDone() const {
    return m_hasFailed ? m_busy == 0 : m_flushed == m_files.size();
}

// Without threads the caller does everything.
void CPreparedFiles::StartThreads(std::size_t wanted) {
    try {
        while (m_threads.size() < std::min(wanted, MostThreads))
            m_threads.emplace_back([this] { Serve(); });
    } catch (const std::system_error&) {
    }
}

void CPreparedFiles::Serve() {
    Lock lock(m_lock);
    while (!m_isEnding) {
        if (!Work(lock)) m_work.wait(lock);
    }
}

// False: there is nothing to do now.
bool CPreparedFiles::Work(Lock& lock) {
    if (m_hasFailed) return false;
    const bool isWaveDue = m_isFinishing || m_written - m_taken >= m_mostOpen / 2;
    if (m_taken == m_wave && m_written > m_wave && isWaveDue) {
        m_wave = m_written;
        m_work.notify_all();
    }
    std::vector<CFile*> row;
    const bool isWriting = TakeRow(row);
    if (!isWriting) {
        if (m_taken == m_wave) return false;
        row.push_back(&m_files[m_taken++]);
    }
    ++m_busy;
    lock.unlock();
    bool isGood = false;
    try {
        isGood = isWriting ? WriteRow(row) : FinishFile(*row.front());
    } catch (const std::exception& exception) {
        SetLastErrorFromException(exception);
    }
    const Platform::SystemError error = Platform::LastSystemError();
    lock.lock();
    --m_busy;
    if (isWriting) {
        m_isWriting = false;
        m_written += row.size();
    } else {
        ++m_flushed;
    }
    if (!isGood && !std::exchange(m_hasFailed, true)) {
        m_reason = GetLastErrorText();
        m_error = error;
    }
    m_progress.notify_one();
    return true;
}

bool CPreparedFiles::SetTime(const CFile& it) {
    if (it.time == 0) return true;
    const Platform::FileTimes times{.created = it.time, .modified = it.time};
    if (Platform::SetFileTimes(it.file.GetTemporaryPath(), times)) return true;
    SetLastErrorFromSystem();
    return false;
}

// Not every system leaves the time as it is when the file is closed.
bool CPreparedFiles::FinishFile(CFile& it) {
    return it.file.FinishWriting() && SetTime(it);
}

// What one thread writes next; nothing while another one writes.
bool CPreparedFiles::TakeRow(std::vector<CFile*>& row) {
    const std::size_t count = std::min(m_files.size() - m_written, FilesInARow);
    const bool isDue = m_isFinishing || count == FilesInARow || m_waiting >= MostBytes;
    if (m_isWriting || count == 0 || !isDue || m_written - m_flushed >= m_mostOpen) return false;
    for (std::size_t i = 0; i < count; ++i) {
        row.push_back(&m_files[m_written + i]);
        m_waiting -= row.back()->text.size();
    }
    m_isWriting = true;
    return true;
}

// Each name is noted before the file is there.
bool CPreparedFiles::WriteRow(const std::vector<CFile*>& row) {
    const auto note = [this](const std::string& path) { return m_preparing.Add(path); };
    for (CFile* it : row) {
        const std::string text = std::move(it->text);
        if (!it->queue->CreateMessage(it->file, note) || !it->file.Write(text) || !SetTime(*it)) return false;
    }
    for (CFile* it : row)
        it->file.StartFlush();
    return true;
}
