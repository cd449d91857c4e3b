// broadcastfiles.h - the files of one broadcast job, Broadcasts/<id>/.
//
// docs/formats.md describes their bytes.
//
// Errors   false, with the reason in the last-error text.
// Threads  An object belongs to one thread at a time.

#ifndef LISTHAVEN_ENGINE_BROADCASTFILES_H
#define LISTHAVEN_ENGINE_BROADCASTFILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/broadcastjob.h"
#include "platform/file.h"

// Paths in the folder of a job.
std::string BroadcastFile(std::string_view jobFolder, std::string_view name);
inline constexpr std::string_view BroadcastMessageFile = "message.eml";
inline constexpr std::string_view BroadcastSettingsFile = "job.cfg";
inline constexpr std::string_view BroadcastSnapshotFile = "snapshot";
inline constexpr std::string_view BroadcastPositionFile = "position";
inline constexpr std::string_view BroadcastCancelFile = "cancel";

// job.cfg.  It makes a folder a job: it is written last.
struct BroadcastSettings {
    enum class State { Running, Done, Cancelled };

    std::string subject;
    std::vector<std::uint32_t> lists;
    BroadcastModes modes;
    State state = State::Running;
    bool hasBegun = false;  // some Run() has been at it
    std::int64_t started = 0;
    std::uint64_t total = 0;
    std::uint64_t position = 0;  // these two count once the job has ended
    BroadcastCounts counts;      // until then "skipped" is what the snapshot left out
};
bool ReadBroadcastSettings(std::string_view jobFolder, BroadcastSettings& settings);
bool WriteBroadcastSettings(std::string_view jobFolder, const BroadcastSettings& settings);

// How far a job has come, and the copies that became visible last, or are to.
struct BroadcastMark {
    struct Name {
        std::uint32_t list = 0;
        std::string name;  // below the list's account root: "BATCH/NUMBER"
    };

    std::uint64_t sequence = 0;  // grows with every write
    std::uint64_t offset = 0;    // in the snapshot
    std::uint64_t position = 0;  // in members
    BroadcastCounts counts;      // without what the snapshot left out
    std::vector<Name> group;
};

// The file "position": two slots that are written in turn, so that a torn
// write leaves the mark before it.
class CBroadcastPosition {
public:
    static constexpr std::size_t SlotSize = 4096;

    bool Create(const std::string& path);  // with a mark of nothing
    bool Open(const std::string& path);
    bool Read(BroadcastMark& mark) const;
    bool Write(const BroadcastMark& mark);  // flushed; a failure may have written it all the same

private:
    Platform::CFile m_file;
};

// The file "snapshot": one line per member, "LIST TAB INDEX TAB ADDRESS LF".
struct BroadcastMember {
    std::uint32_t list = 0;
    std::int32_t index = 0;
    std::string address;
};

class CSnapshotWriter {
public:
    bool Create(const std::string& path);
    bool Add(std::uint32_t list, std::int32_t index, std::string_view address);
    bool Finish();  // flushes

private:
    bool WriteBuffer();

    Platform::CFile m_file;
    std::string m_buffer;
};

class CSnapshotReader {
public:
    enum class Step { Member, End, Failed };

    bool Open(const std::string& path, std::uint64_t offset);
    Step Next(BroadcastMember& member);
    std::uint64_t GetOffset() const noexcept { return m_offset; }  // behind the last member given

private:
    bool Fill();

    Platform::CFile m_file;
    std::string m_buffer;
    std::size_t m_taken = 0;  // of the buffer
    std::uint64_t m_offset = 0;
    std::uint64_t m_size = 0;
};

#endif  // LISTHAVEN_ENGINE_BROADCASTFILES_H
