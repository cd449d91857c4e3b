// preparedfiles.h - the new messages of a transaction, written and flushed by
// threads of their own while the caller goes on.
//
// One thread at a time makes files, a few in a row; once enough of them wait
// they are flushed together, all others helping: file systems with a journal
// put what is flushed at the same time into one commit.  Each file stays open
// until it is flushed.
//
// Errors   false, with the reason of the first failure in the last-error text
//          and in Platform::LastSystemError(); nothing more is written then.
// Threads  One at a time calls; its own end with the object.  It waits for
//          them where more than a few megabytes, or the files that may be open, wait.
// Crash    The names are .tmp names, in the list of what is being prepared.
//          Finish() true: the bytes survive a power failure, the names do once
//          their folders are flushed.

#ifndef LISTHAVEN_ENGINE_INCOMING_PREPAREDFILES_H
#define LISTHAVEN_ENGINE_INCOMING_PREPAREDFILES_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/systemerror.h"
#include "utility/uniquename.h"

class CBatchFolder;
class CPreparingList;

class CPreparedFiles {
public:
    // mostOpen: files that wait for the disk, each open; 0: as many as are good for its speed, where the system
    // lets this process have so many.
    explicit CPreparedFiles(CPreparingList& preparing, std::size_t mostOpen = 0);
    CPreparedFiles(const CPreparedFiles&) = delete;
    CPreparedFiles& operator=(const CPreparedFiles&) = delete;
    ~CPreparedFiles();

    // A message of that queue, which must outlive this object.  time of the file: nanoseconds since 1970, 0 for now.
    bool Add(CBatchFolder& queue, std::string text, std::int64_t time = 0);
    bool Finish(std::vector<CNewFile>& files);  // appends them, as they were added; then it is empty
    void Abandon();                             // removes what Finish() did not hand over
    bool IsEmpty() const noexcept { return m_files.empty(); }
    std::size_t GetCount() const noexcept { return m_files.size(); }

private:
    struct CFile {
        CBatchFolder* queue = nullptr;
        std::string text;
        std::int64_t time = 0;
        CNewFile file;
    };
    using Lock = std::unique_lock<std::mutex>;

    bool Work(Lock& lock);
    static bool SetTime(const CFile& it);
    static bool FinishFile(CFile& it);
    bool TakeRow(std::vector<CFile*>& row);
    bool WriteRow(const std::vector<CFile*>& row);
    bool HasRoom() const;
    bool IsDone() const;
    bool TellFailure() const;
    void StartThreads(std::size_t wanted);
    void Serve();

    CPreparingList& m_preparing;
    const std::size_t m_mostOpen;
    std::mutex m_lock;
    std::condition_variable m_work;      // there is some
    std::condition_variable m_progress;  // some was done
    std::deque<CFile> m_files;           // written, flushed in this order
    std::size_t m_written = 0;
    std::size_t m_wave = 0;      // up to here they are to be flushed now
    std::size_t m_taken = 0;     // up to here somebody flushes them
    std::size_t m_flushed = 0;   // how many
    std::size_t m_waiting = 0;   // bytes that are not written
    std::size_t m_busy = 0;      // threads at work
    bool m_isWriting = false;    // one of them
    bool m_isFinishing = false;  // the caller waits
    bool m_hasFailed = false;
    bool m_isEnding = false;
    std::string m_reason;
    Platform::SystemError m_error{};
    std::vector<std::jthread> m_threads;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_PREPAREDFILES_H
