// failure.h - why a conversation with another host did not go on.

#ifndef LISTHAVEN_NET_FAILURE_H
#define LISTHAVEN_NET_FAILURE_H

#include <cstdint>
#include <string>

namespace Net {

enum class FailureKind : std::uint8_t {
    None,
    NameNotFound,  // the host has no address
    NameUnknown,   // nobody could say whether it has: the name servers failed
    Refused,       // no connection to any of its addresses
    TimedOut,
    Closed,  // by the other side
    Tls,     // the handshake failed, or TLS was required and is not offered
    Certificate,
    Protocol,   // the other side does not keep to it
    Reply,      // it answered, with a refusal
    Local,      // the message, the file or this system
    Cancelled,  // by Cancel()
};

struct Failure {
    FailureKind kind = FailureKind::None;
    std::string text;  // one sentence for the operator; one line
};

}  // namespace Net

#endif  // LISTHAVEN_NET_FAILURE_H
