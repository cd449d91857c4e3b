#include "engine/loglistener.h"

#include <chrono>
#include <utility>

#include "platform/clock.h"
#include "platform/mailslot.h"

namespace {

using LogLineView = std::function<void(const std::string& line)>;

void Show(const LogLineView& view, std::string& line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.pop_back();
    try {
        view(line);
    } catch (...) {  // a view that cannot take a line loses it
    }
}

}  // namespace

CLogListener::~CLogListener() {
    Stop();
}

bool CLogListener::Start(LogLineView view) {
    Stop();
    m_stop = false;
    std::promise<bool> started;
    std::future<bool> isListening = started.get_future();
    m_thread = std::thread(
        [this, shown = std::move(view), promise = std::move(started)]() mutable { Listen(shown, std::move(promise)); });
    return isListening.get();
}

void CLogListener::Stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
}

void CLogListener::Listen(const LogLineView& view, std::promise<bool> started) {
    Platform::CMailslot slot;
    m_listening = slot.Create(LogMailslotName);
    started.set_value(m_listening);
    while (m_listening && !m_stop) {
        std::size_t size = 0;
        std::size_t waiting = 0;
        if (!slot.GetInfo(size, waiting)) break;
        if (waiting == 0) {
            slot.WaitFor(std::chrono::milliseconds(100));
            continue;
        }
        std::string line;
        if (!slot.Read(line) || line.size() != size) break;
        Show(view, line);
        Platform::SleepMilliseconds(1);
    }
    m_listening = false;
}

bool WriteLogLineToMailslot(std::string_view line) {
    return Platform::WriteToMailslot(LogMailslotName, std::string(line) + "\n");
}
