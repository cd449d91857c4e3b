// broadcastrun.h - one pass over a broadcast job, from where it stopped.
//
// The caller holds the job (nobody else runs it) for as long as this lives.
//
// Order of a group of copies: each is written under its .tmp name, and all are
// flushed; the mark with their names is written and flushed; they get their .eml names,
// and their folders are flushed.  So after a crash the names of the last mark
// that are still .tmp were never visible and get visible now, those that are
// gone were; and a .tmp of this job that no mark names was never due.
//
// Errors   false, with the reason in the last-error text, or CLhvException.
//          Either leaves the job as a crash would.

#ifndef LISTHAVEN_ENGINE_BROADCASTRUN_H
#define LISTHAVEN_ENGINE_BROADCASTRUN_H

#include <cstdint>
#include <string>
#include <vector>

#include "engine/broadcast.h"
#include "engine/broadcastfiles.h"
#include "engine/broadcastjob.h"
#include "engine/memberstore.h"
#include "mime/mimemessage.h"
#include "senddaemon/batchfolder.h"

class CBroadcastRun {
public:
    CBroadcastRun(std::string folder, BroadcastSettings& settings);

    bool Run(const BroadcastStop& stop, const BroadcastProgress& progress);
    bool Cancel();  // removes what is not visible yet, and ends the job

private:
    enum class Walk { Done, Stopped, Cancelled, Failed };

    bool Open();
    bool RemoveUnnamed();
    Walk WalkMembers(const BroadcastStop& stop, const BroadcastProgress& progress);
    bool MakeCopy(const BroadcastMember& member);
    bool FindMember(const BroadcastMember& member);
    bool OpenList(std::uint32_t list);
    bool Commit();
    void DropGroup();
    bool End(BroadcastSettings::State state);

    std::string m_folder;
    BroadcastSettings& m_settings;
    CBroadcastPosition m_position;
    BroadcastMark m_mark;  // as written last
    BroadcastMark m_next;  // with the group that is being made
    std::vector<CPreparedMessage> m_group;
    int m_pause = 0;

    CMimeMessage m_message;
    std::uint32_t m_list = 0;  // the one that the members below are of; 0: none yet
    bool m_listIsThere = false;
    CMemberStore m_store;
    CBroadcastMaker m_maker;
    CBatchFolder m_queue;
    CMember m_member;
    std::int32_t m_index = CMemberStore::None;
    std::string m_text;
};

#endif  // LISTHAVEN_ENGINE_BROADCASTRUN_H
