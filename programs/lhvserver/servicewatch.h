// servicewatch.h - tells the service manager that the server gets on, for as
// long as it does.
//
// The thread that sends says it by calling Look(); the mail thread's heart is
// listened to.  A conversation with a POP3 server has its own time limits, which
// are added to what the service manager allows.
//
// Threads  One.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_SERVICEWATCH_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_SERVICEWATCH_H

#include <chrono>

#include "app/heartbeat.h"

class CServiceWatch {
public:
    explicit CServiceWatch(const CHeartbeat& mail) : m_mail(mail) {}

    void Look();  // as often as one likes, at least once a second

private:
    bool IsMailStuck() const;

    const CHeartbeat& m_mail;
    std::chrono::steady_clock::time_point m_next;
    bool m_wasStuck = false;
};

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_SERVICEWATCH_H
