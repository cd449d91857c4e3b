// logcontext.h - a short name that the event log puts before a thread's messages.

#ifndef LISTHAVEN_APP_LOGCONTEXT_H
#define LISTHAVEN_APP_LOGCONTEXT_H

#include <string>

// The calling thread's name while this lives; then again the one before.
class CLogContext {
public:
    explicit CLogContext(std::string name);
    CLogContext(const CLogContext&) = delete;
    CLogContext& operator=(const CLogContext&) = delete;
    ~CLogContext();

private:
    std::string m_former;
};

const std::string& GetLogContext();  // of the calling thread; "" when it has none

#endif  // LISTHAVEN_APP_LOGCONTEXT_H
