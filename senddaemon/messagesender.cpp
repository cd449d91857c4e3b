#include "senddaemon/messagesender.h"

#include <limits>
#include <utility>

#include "platform/clock.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/sendevents.h"
#include "senddaemon/threadregistry.h"
#include "utility/lasterror.h"

namespace SendDaemon {

namespace {

// Some ten microseconds: while a queue is being sent, the next message comes
// sooner than this thread could fall asleep and be woken.
constexpr int LooksBeforeSleep = 100;

}  // namespace

double CMessageSender::NoLastDelivery::GetSeconds() const {
    return std::numeric_limits<double>::max();
}

double CMessageSender::ConcreteLastDelivery::GetSeconds() const {
    const auto elapsed = static_cast<std::int32_t>(Platform::ClockMilliseconds() - m_clock);
    return elapsed * 0.001;
}

CMessageSender::CMessageSender() : m_lastDelivery(std::make_unique<NoLastDelivery>()) {
    m_thread = std::thread([this] { Work(); });
}

CMessageSender::~CMessageSender() {
    Shutdown();
}

bool CMessageSender::IsBusy() const {
    const std::lock_guard guard(m_lock);
    return m_work || m_stop;
}

bool CMessageSender::HasJob() const {
    const std::lock_guard guard(m_lock);
    return m_work;
}

bool CMessageSender::Stop() {
    const std::lock_guard guard(m_lock);
    m_stop = true;
    m_wake.notify_all();
    return true;
}

void CMessageSender::OnIdle() {}
void CMessageSender::RunCustomJob() {}
void CMessageSender::OnEnding() {}
void CMessageSender::SetJobName(std::string_view name) {
    SetThreadJobName(name);
}

bool CMessageSender::HandOver(JobState state, CJob job) {
    {
        const std::lock_guard guard(m_lock);
        if (m_stop) {
            SetLastErrorText("The sender has been stopped.");
            return false;
        }
        if (m_work) {
            SetLastErrorText("A message is already being sent");
            return false;
        }
        m_job = std::move(job);
        m_pending = state;
        m_work = true;
    }
    m_wake.notify_all();
    return true;
}

bool CMessageSender::Send(const CConfiguration& config, std::string_view returnPath, std::string_view recipients,
                          std::string_view messageFile, IMessageSender_SendMessageEvents* events) {
    return HandOver(JobState::Sending, {.config = &config,
                                        .returnPath = std::string(returnPath),
                                        .recipients = std::string(recipients),
                                        .messageFile = std::string(messageFile),
                                        .events = events});
}

bool CMessageSender::StartCustomJob() {
    return HandOver(JobState::Custom, {});
}

// A kind's Stop() may mean something else.
void CMessageSender::End() {
    CMessageSender::Stop();
}

void CMessageSender::Shutdown() {
    End();
    if (m_thread.joinable()) m_thread.join();
}

double CMessageSender::GetLastDelivery() const {
    const std::lock_guard guard(m_lock);
    return m_lastDelivery->GetSeconds();
}

void CMessageSender::Work() {
    const CThreadRegistration registration;
    std::unique_lock guard(m_lock);
    for (;;) {
        m_wake.wait(guard, [this] { return m_pending != JobState::Idle || m_stop; });
        const JobState state = std::exchange(m_pending, JobState::Idle);
        if (state == JobState::Idle) break;
        const CJob job = std::exchange(m_job, {});
        guard.unlock();
        RunJob(state, job);
        guard.lock();
        m_work = false;
        guard.unlock();
        if (job.events != nullptr) job.events->OnSenderIdle();
        for (int looks = 0; looks < LooksBeforeSleep && !m_work; ++looks)
            std::this_thread::yield();
        guard.lock();
    }
    guard.unlock();
    OnEnding();
}

void CMessageSender::RunJob(JobState state, const CJob& job) {
    if (state == JobState::Sending) {
        SetJobName("Sending Job");
        RunSendJob(job);
    } else {
        SetJobName("Custom Job");
        try {
            RunCustomJob();
        } catch (const std::exception& exception) {
            LogError(exception.what());
        }
    }
    SetJobName({});
}

void CMessageSender::RunSendJob(const CJob& job) {
    ClearLastErrorText();
    bool isSent = false;
    m_running = &job;
    try {
        isSent = DoSend(*job.config, job.returnPath, job.recipients, job.messageFile);
    } catch (const std::exception& exception) {
        SetLastErrorFromException(exception);
    }
    m_running = nullptr;
    if (job.events == nullptr) return;
    if (isSent) {
        const std::lock_guard guard(m_lock);
        m_lastDelivery = std::make_unique<ConcreteLastDelivery>(Platform::ClockMilliseconds());
    }
    if (isSent) {
        job.events->OnMessageSent(job.messageFile);
    } else {
        job.events->OnMessageFailed(job.messageFile);
    }
}

void CMessageSender::Report(const CDeliveryReport& report) const {
    if (m_running == nullptr || m_running->events == nullptr) return;
    m_running->events->OnRecipientsSettled(m_running->messageFile, report);
}

void CMessageSender::LogTrace(std::string_view text) const {
    Log(LogLevelTrace, text);
}
void CMessageSender::LogInformation(std::string_view text) const {
    Log(LogLevelNotice, text);
}
void CMessageSender::LogError(std::string_view text) const {
    Log(LogLevelFailure, text);
}

}  // namespace SendDaemon
