// broadcastwork.h - the broadcasts that the server runs: at its start all that
// are interrupted, later those that are new, and its own that had to wait.
//
// One that an operator has stopped since is his; one that another program runs
// is left to it.  One that fails is tried again later and later, up to half an
// hour.
//
// Threads  One; data fields are shared.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_BROADCASTWORK_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_BROADCASTWORK_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "engine/broadcastjob.h"

class CBroadcastWork {
public:
    // Until there is nothing to do now, or stop says so; asked before each copy.
    // Whether there was anything to do.
    bool Run(std::int64_t now, const std::function<bool()>& stop);
    bool HasMore() const noexcept { return m_wasStopped; }

private:
    struct COwn {
        std::int64_t nextTry = 0;
        std::int64_t pause = 0;  // seconds, behind the next failure
        bool isThere = true;
    };
    bool IsOurs(const BroadcastInfo& info);
    void RunOne(const std::string& id, std::int64_t now, const std::function<bool()>& stop);

    CBroadcastJobs m_jobs;
    std::map<std::string, COwn> m_own;
    bool m_hasStarted = false;
    bool m_wasStopped = false;
};

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_BROADCASTWORK_H
