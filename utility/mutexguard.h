// mutexguard.h - holds a named mutex for a scope.

#ifndef LISTHAVEN_UTILITY_MUTEXGUARD_H
#define LISTHAVEN_UTILITY_MUTEXGUARD_H

#include "platform/namedmutex.h"

class CMutexGuard {
public:
    explicit CMutexGuard(Platform::CNamedMutex& mutex) : m_mutex(mutex) { m_mutex.Lock(); }
    CMutexGuard(const CMutexGuard&) = delete;
    CMutexGuard& operator=(const CMutexGuard&) = delete;
    ~CMutexGuard() { m_mutex.Unlock(); }

private:
    Platform::CNamedMutex& m_mutex;
};

#endif  // LISTHAVEN_UTILITY_MUTEXGUARD_H
