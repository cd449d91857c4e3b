// daemonlog.h - the send daemon's own log.
//
// The daemon knows no event log: a program installs a handler that has one
// operation per level.  Without one, what is logged goes nowhere.
//
// Threads  Any; the handler is called by one thread at a time and must not log.

#ifndef LISTHAVEN_SENDDAEMON_DAEMONLOG_H
#define LISTHAVEN_SENDDAEMON_DAEMONLOG_H

#include <memory>
#include <string>
#include <string_view>

#include "utility/formattext.h"

namespace SendDaemon {

inline constexpr int LogLevelWarning = 0;
inline constexpr int LogLevelFailure = 2;  // moves that failed
inline constexpr int LogLevelNotice = 3;   // for the operator
inline constexpr int LogLevelTrace = 4;

// By level, from 0.
class IMessageHandler {
public:
    virtual ~IMessageHandler() = default;
    virtual void OnWarning(const std::string& text) = 0;
    virtual void OnError(const std::string& text) = 0;
    virtual void OnFatal(const std::string& text) = 0;
    virtual void OnInformation(const std::string& text) = 0;
    virtual void OnTrace(const std::string& text) = 0;
};

std::shared_ptr<IMessageHandler> SetMessageHandler(std::shared_ptr<IMessageHandler> handler);  // returns the former

bool Log(int level, std::string_view text);  // false for a level outside 0 to 4
bool LogFormat(int level, const char* format, ...) LHV_PRINTF(2, 3);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_DAEMONLOG_H
