// queuename.h - what the name of a queued message's file says, so that one
// rename changes it:
//
//   NUMBER.eml                          waiting
//   NUMBER-QUEUED.eml                   since then (seconds since 1970)
//   NUMBER-QUEUED-ATTEMPTS.eml          after so many failed attempts
//   NUMBER-QUEUED-ATTEMPTS-DUE.eml      not to be tried before then
//
// Threads  Any; pure functions.

#ifndef LISTHAVEN_SENDDAEMON_QUEUENAME_H
#define LISTHAVEN_SENDDAEMON_QUEUENAME_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace SendDaemon {

struct CQueueName {
    std::string number;                  // decimal
    std::optional<std::int64_t> queued;  // in names of 2001 and later: "2026-11.eml" is another's own
    std::uint32_t attempts = 0;
    std::optional<std::int64_t> due;

    bool operator==(const CQueueName&) const = default;
};

// Of a name or a path.  False for a name of another kind.
bool ParseQueueName(std::string_view path, CQueueName& name);

// Fields behind a missing one are left out.
std::string FormatQueueName(const CQueueName& name);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_QUEUENAME_H
