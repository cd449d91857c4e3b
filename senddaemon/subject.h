// subject.h - objects that tell others when they change.
//
// Threads  Any.  Observers are called on the thread that made the change; once
//          Detach() has returned, the observer is not called any more.

#ifndef LISTHAVEN_SENDDAEMON_SUBJECT_H
#define LISTHAVEN_SENDDAEMON_SUBJECT_H

#include <mutex>
#include <string>
#include <vector>

namespace SendDaemon {

struct CSubjectEvent {
    int kind = 0;  // 0: a value was written
    std::string key;
    std::string value;
};

class CObserver {
public:
    virtual ~CObserver() = default;
    virtual void OnSubjectChanged(const CSubjectEvent& event) = 0;
};

class CSubject {
public:
    CSubject() = default;
    CSubject(const CSubject&) {}  // observers stay with the one they observe
    CSubject& operator=(const CSubject&) { return *this; }
    virtual ~CSubject() = default;

    void Attach(CObserver& observer);  // which must outlive this, or be detached
    void Detach(CObserver& observer);

protected:
    void Notify(const CSubjectEvent& event);

private:
    std::recursive_mutex m_lock;
    std::vector<CObserver*> m_observers;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SUBJECT_H
