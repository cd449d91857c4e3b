#include "engine/loglistener.h"

#include <chrono>
#include <memory>
#include <utility>

#include "platform/clock.h"
#include "platform/mailslot.h"

namespace {

using LogLineView = std::function<void(const std::string& line)>;

constexpr int Starting = 0;
constexpr int Failed = 1;
constexpr int Running = 2;

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
    auto outcome = std::make_shared<std::atomic<int>>(Starting);
    m_thread = std::thread([this, outcome, shown = std::move(view)] { Listen(shown, *outcome); });
    outcome->wait(Starting);
    return *outcome == Running;
}

void CLogListener::Stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
}

void CLogListener::Listen(const LogLineView& view, std::atomic<int>& outcome) {
    Platform::CMailslot slot;
    m_listening = slot.Create(LogMailslotName);
    outcome = m_listening ? Running : Failed;
    outcome.notify_all();
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
