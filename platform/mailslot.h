// mailslot.h - one-way messages between processes of one machine.
//
// One process makes the slot and reads, any other writes.  One Write() is one
// Read(): messages are never joined or cut.  A name has the form
// "\\.\mailslot\NAME"; where the system has no mailslots it becomes a socket
// in the folder given to SetNamedObjectFolder() (namedmutex.h).  Either way it
// belongs to one data folder.
//
// Errors   false, with the reason in LastSystemError().  Writing never waits: where
//          the system limits what may lie unread, it fails.
// Threads  A CMailslot belongs to one thread; WriteToMailslot() may be called
//          from any.
// Crash    Messages not yet read are lost with the process that made the slot.

#ifndef LISTHAVEN_PLATFORM_MAILSLOT_H
#define LISTHAVEN_PLATFORM_MAILSLOT_H

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace Platform {

class CMailslot {
public:
    CMailslot();
    CMailslot(const CMailslot&) = delete;
    CMailslot& operator=(const CMailslot&) = delete;
    ~CMailslot();  // closes

    // Fails when another process has made it; takes over what a dead one left.
    // Anyone who may use the data folder may write.
    bool Create(std::string_view name);
    void Close() noexcept;

    // size of the next message, and how many wait at least (0 when none; a
    // system that cannot count says 1 for any number).
    bool GetInfo(std::size_t& size, std::size_t& waiting);
    bool Read(std::string& message);                // does not wait; fails when none waits
    bool WaitFor(std::chrono::milliseconds limit);  // true when one waits

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

bool WriteToMailslot(std::string_view name, std::string_view message);  // fails when nobody made it

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_MAILSLOT_H
