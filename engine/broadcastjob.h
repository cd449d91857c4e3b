// broadcastjob.h - broadcasts that survive the end of the program.
//
// A broadcast is a folder Broadcasts/<id>/ with the message, the chosen lists
// and modes, the addresses as they were at its creation and the position
// reached; docs/formats.md describes the bytes.  An address that is a member of
// several chosen lists gets one copy: from the first of them.
//
// Copies become visible in groups.  The names of a group are on disk before the
// first of it is visible, so after a crash each member of the group has exactly
// one copy, however many of them were sent meanwhile.
//
// Errors   false, with the reason in the last-error text.  A job whose Run()
//          failed is interrupted and can be run again.
// Threads  One broadcast at a time in the process (data fields are shared); List()
//          and Cancel() from any thread and process.  One process runs a job.
// Crash    See above.  A power failure between the renames of a group and their
//          flush can double what was sent in between.
// Cost     Memory does not depend on the number of members.

#ifndef LISTHAVEN_ENGINE_BROADCASTJOB_H
#define LISTHAVEN_ENGINE_BROADCASTJOB_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/broadcast.h"

enum class BroadcastState {
    Running,      // some process is at it
    Interrupted,  // can be resumed
    Done,
    Cancelled,
};
std::string_view BroadcastStateName(BroadcastState state) noexcept;  // "running", "interrupted", ...

struct BroadcastInfo {
    std::string id;
    std::string subject;
    std::vector<std::uint32_t> lists;
    BroadcastModes modes;
    BroadcastState state = BroadcastState::Interrupted;
    bool hasBegun = false;       // some program has been at it
    std::uint64_t position = 0;  // members of the snapshot that are dealt with
    std::uint64_t total = 0;     // members in the snapshot
    std::int64_t started = 0;    // seconds since 1970
    BroadcastCounts counts;      // skipped: members that the snapshot left out, and those that became unfit since
};

// Asked before each member: true stops the run, and the job stays resumable.
using BroadcastStop = std::function<bool()>;
using BroadcastProgress = std::function<void(std::uint64_t position, std::uint64_t total)>;

class CBroadcastJobs {
public:
    static constexpr std::size_t GroupSize = 32;  // copies that become visible together, at most

    CBroadcastJobs();                                // of the data folder
    explicit CBroadcastJobs(std::string_view root);  // the folder of the jobs, for tests

    // Fails, leaving nothing, when a list is unknown, the message cannot be
    // loaded or none of it can be sent.  The message file may go afterwards.
    bool Create(std::string_view messagePath, const std::vector<std::uint32_t>& lists, const BroadcastModes& modes,
                std::string& id);

    // Under an identifier that the caller has chosen (NewIdentifier()): may be
    // called again after a crash.  A job that is there already is left as it is.
    bool CreateAs(std::string_view id, std::string_view messagePath, const std::vector<std::uint32_t>& lists,
                  const BroadcastModes& modes);
    std::string NewIdentifier() const;  // of no job that is there
    bool Exists(std::string_view id) const;

    // Whether a job can be created of it: false, with the reason, for what no
    // later attempt would change.
    static bool Check(std::string_view messagePath, const std::vector<std::uint32_t>& lists,
                      const BroadcastModes& modes);
    static bool Check(const CMimeMessage& message, const std::vector<std::uint32_t>& lists,
                      const BroadcastModes& modes);

    // From where it stopped to the end.  True also when it was stopped or
    // cancelled: info says so.  Fails at once for a job that another process runs.
    bool Run(std::string_view id, const BroadcastStop& stop, const BroadcastProgress& progress, BroadcastInfo& info);

    // Runs every interrupted job, oldest first; goes on with the next when one fails.
    bool ResumeAll(const BroadcastStop& stop, const BroadcastProgress& progress, std::vector<BroadcastInfo>& ran);

    bool Get(std::string_view id, BroadcastInfo& info) const;
    bool List(std::vector<BroadcastInfo>& jobs) const;  // oldest first
    // In no order; there may be very many.  visit must not remove any.
    bool ForEach(const std::function<void(const BroadcastInfo& job)>& visit) const;

    // Ends a job for good; copies that are visible stay.  One that another
    // process runs ends before its next member.  Fails for one that is done.
    bool Cancel(std::string_view id);

    // Removes the jobs that were done or cancelled before that time, and counts
    // them.  Goes on with the next when one cannot be removed, and then fails.
    bool PruneDone(std::int64_t before, std::size_t& pruned);

private:
    std::string m_root;
};

#endif  // LISTHAVEN_ENGINE_BROADCASTJOB_H
