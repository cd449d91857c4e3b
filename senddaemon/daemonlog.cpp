#include "senddaemon/daemonlog.h"

#include <cstdarg>
#include <mutex>
#include <utility>

namespace SendDaemon {

namespace {

class CSilentHandler : public IMessageHandler {
    void OnWarning(const std::string&) override {}
    void OnError(const std::string&) override {}
    void OnFatal(const std::string&) override {}
    void OnInformation(const std::string&) override {}
    void OnTrace(const std::string&) override {}
};

struct CLogState {
    std::mutex lock;
    std::shared_ptr<IMessageHandler> handler = std::make_shared<CSilentHandler>();
};

CLogState& GetLogState() {
    static CLogState state;
    return state;
}

}  // namespace

std::shared_ptr<IMessageHandler> SetMessageHandler(std::shared_ptr<IMessageHandler> handler) {
    if (!handler) handler = std::make_shared<CSilentHandler>();
    CLogState& state = GetLogState();
    const std::lock_guard guard(state.lock);
    return std::exchange(state.handler, std::move(handler));
}

bool Log(int level, std::string_view text) {
    CLogState& state = GetLogState();
    const std::lock_guard guard(state.lock);
    const std::string line(text);
    switch (level) {
        case 0:
            state.handler->OnWarning(line);
            return true;
        case 1:
            state.handler->OnError(line);
            return true;
        case 2:
            state.handler->OnFatal(line);
            return true;
        case 3:
            state.handler->OnInformation(line);
            return true;
        case 4:
            state.handler->OnTrace(line);
            return true;
        default:
            return false;
    }
}

bool LogFormat(int level, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = FormatTextV(format, arguments);
    va_end(arguments);
    return Log(level, text);
}

}  // namespace SendDaemon
