#include "senddaemon/subject.h"

#include <algorithm>

namespace SendDaemon {

void CSubject::Attach(CObserver& observer) {
    const std::lock_guard guard(m_lock);
    if (std::find(m_observers.begin(), m_observers.end(), &observer) == m_observers.end()) {
        m_observers.push_back(&observer);
    }
}

void CSubject::Detach(CObserver& observer) {
    const std::lock_guard guard(m_lock);
    std::erase(m_observers, &observer);
}

void CSubject::Notify(const CSubjectEvent& event) {
    const std::lock_guard guard(m_lock);
    const auto observers = m_observers;  // they may detach themselves while they are told
    for (CObserver* observer : observers)
        observer->OnSubjectChanged(event);
}

}  // namespace SendDaemon
