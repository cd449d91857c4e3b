// failurelog.h - what fails again and again is logged once, then counted.
//
// Threads  One.

#ifndef LISTHAVEN_PROGRAMS_LHVSERVER_FAILURELOG_H
#define LISTHAVEN_PROGRAMS_LHVSERVER_FAILURELOG_H

#include <cstdint>
#include <map>
#include <string>

class CFailureLog {
public:
    // what: such as "The mail of the list "News"".  key: what it is, also after it was renamed.
    void NoteFailure(const std::string& key, const std::string& what, const std::string& reason, std::int64_t now);
    void NoteSuccess(const std::string& key, const std::string& what);  // logs how often it had failed
    bool IsFailing(const std::string& key) const { return m_failures.contains(key); }

private:
    struct CFailure {
        std::uint64_t count = 0;
        std::int64_t since = 0;
    };
    std::map<std::string, CFailure> m_failures;
};

#endif  // LISTHAVEN_PROGRAMS_LHVSERVER_FAILURELOG_H
