// eventlog.h - the log of the whole engine: log.txt in the data folder.
//
// One line per message: local time, level tag, context of the thread, text.
// docs/formats.md gives the bytes.  The settings [Service] EnableLogging,
// LogErrorsOnly and [Execution] DebugMode are looked at on every call.
//
// Errors   Logging never throws and never tells: a line that cannot be written
//          is lost.  Only SaveLogAs() throws CLhvException.
// Threads  Any.  Processes of one data folder write whole lines in turn, under
//          the named mutex of the log.
// Crash    The last lines may be missing after a power failure; trimming leaves
//          the old or the trimmed file.

#ifndef LISTHAVEN_ENGINE_EVENTLOG_H
#define LISTHAVEN_ENGINE_EVENTLOG_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/namedmutex.h"
#include "utility/formattext.h"

enum LogLevel : int {
    LogWarning = 0,
    LogError = 1,
    LogFatal = 2,
    LogInfo = 3,
    LogDebug = 4,   // DebugMode 1 and 2
    LogDebug2 = 5,  // DebugMode 2
};

void Log(int level, const char* format, ...) LHV_PRINTF(2, 3);

// Whether a message of that level would be written now: for callers that would
// have to work for the text.
bool IsLogged(int level);

// "[ERROR]"; "" for a level that is none.
std::string_view LogLevelTag(int level) noexcept;

// Also gets every line that is logged, without its line end, on the thread that
// logs and after the file has it.  What it throws is dropped.  {} ends it.
void SetLogView(std::function<void(const std::string& line)> view);

// While it lives, the lines of its thread are kept, and written together when it
// ends: for many lines in a moment.
class CLogGroup {
public:
    CLogGroup();
    CLogGroup(const CLogGroup&) = delete;
    CLogGroup& operator=(const CLogGroup&) = delete;
    ~CLogGroup();

private:
    std::vector<std::string> m_lines;
    CLogGroup* m_outer;
    friend void Log(int level, const char* format, ...);
};

std::string GetLogFileName();
Platform::CNamedMutex& GetLogMutex();
std::uint64_t GetLogSize();  // bytes; 0 when there is none

// A log longer than maxBytes keeps the whole lines of its last maxBytes / 2
// bytes; 0 empties it.
void TrimLog(std::uint64_t maxBytes);
void SaveLogAs(std::string_view path);  // replaces what is there

// Takes a line apart.  False when it has no tag, or an unknown one while the
// level is wanted.  level and message may be null.
bool ParseLogLine(std::string_view line, std::string& time, int* level, std::string* message);

#endif  // LISTHAVEN_ENGINE_EVENTLOG_H
