// cycleparts.h - what CCycleState and CCycleTransaction share.

#ifndef LISTHAVEN_ENGINE_INCOMING_CYCLEPARTS_H
#define LISTHAVEN_ENGINE_INCOMING_CYCLEPARTS_H

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>

#include "engine/incoming/cyclerecord.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/statedatabase.h"
#include "engine/memberstore.h"
#include "platform/file.h"
#include "senddaemon/batchfolder.h"

// The .tmp files that are being written, by name: Inbox/<n>/.preparing.  Whoever
// finds it filled removes those files: other programs leave theirs in the same
// folders.  Not flushed: after a power failure a .tmp file may be left over,
// which nobody reads.
class CPreparingList {
public:
    bool Open(const std::string& path);
    bool Add(const std::string& temporaryPath);  // from any thread
    bool Clear();
    bool RemoveFiles();  // that are named, then the names

private:
    std::mutex m_lock;
    Platform::CFile m_file;
    std::string m_path;
};

// Queue folders that were opened once stay so: each knows where it has room.
class CQueueFolders {
public:
    CBatchFolder* Open(const std::string& path);  // nullptr: the reason is in the last-error text

private:
    std::map<std::string, CBatchFolder, std::less<>> m_folders;
};

// Does what a record says.  Each step is done, or finds that it was done.
class CCycleWork {
public:
    explicit CCycleWork(std::uint32_t listNumber) : m_listNumber(listNumber) {}

    bool CarryOut(const CycleRecord& record);
    CQueueFolders& GetQueues() noexcept { return m_queues; }

private:
    bool MakeTwins(const CycleRecord& record);
    bool PublishFiles(const CycleRecord& record);
    bool ChangeMembers(const CycleRecord& record);
    bool CreateBroadcasts(const CycleRecord& record);
    bool MoveFiles(const CycleRecord& record);
    bool RemoveFiles(const CycleRecord& record);
    bool FlushTouched();

    std::uint32_t m_listNumber;
    CQueueFolders m_queues;
    CMemberStore m_members;
    std::set<std::string> m_touched;  // folders whose names are not flushed yet
};

using Marks = std::map<std::string, std::string>;  // by key in the database; "" removes

struct CCycleState::CState {
    explicit CState(std::uint32_t number) : list(number), work(number) {}

    enum class Result {
        Done,
        Nothing,  // nothing has changed
        Written,  // Recover() will do it
        Unknown,  // Recover() will see whether it is written
    };

    bool IsReady() const;  // for a new transaction, else the reason is in the last-error text
    Result Commit(const CycleRecord& record, const Marks& marks);
    Result Write(const CycleRecord& record, const Marks& marks);
    void ClearRecord();
    bool Recover();
    bool CleanInbox();

    std::uint32_t list;
    CStateDatabase database;
    CPreparingList preparing;
    CCycleWork work;
    std::size_t transactions = 0;  // that have prepared something
    bool hasRecord = false;        // one that was carried out is still in the database
    bool needsRecovery = true;
    std::int64_t lastInOrder = 0;  // time of a file, see CCycleTransaction::KeepOrder()
};

std::string MarkKey(MarkKind kind, std::string_view key);

#endif  // LISTHAVEN_ENGINE_INCOMING_CYCLEPARTS_H
