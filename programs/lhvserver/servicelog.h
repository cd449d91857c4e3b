// servicelog.h - which lines of the event log the system's log gets too: errors,
// and not so many that they drown those of other programs.
//
// Threads  Any.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_SERVICELOG_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_SERVICELOG_H

#include <cstdint>
#include <mutex>
#include <string>

class CServiceLog {
public:
    static constexpr unsigned MostPerHour = 60;

    // line: of the event log; now: seconds since 1970.  What the system's log is
    // to get for it; "": nothing.
    std::string Filter(const std::string& line, std::int64_t now);

private:
    std::mutex m_lock;
    std::int64_t m_hour = 0;  // when it began
    unsigned m_count = 0;     // since then
};

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_SERVICELOG_H
