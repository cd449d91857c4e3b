// messagesender.h - the base of every kind of sender: one thread, one message
// at a time.
//
// A kind derives from this, delivers in DoSend(), and calls Shutdown() in its
// destructor, before its own members go.
//
// Errors   false, with the reason in the last-error text of the caller's
//          thread; DoSend() leaves it in that of the sender's thread, where
//          OnMessageFailed() finds it.
// Threads  Send() by one thread; IsBusy(), Stop() and GetLastDelivery() by any.
//          DoSend() and the events run on the sender's own thread.

#ifndef LISTHAVEN_SENDDAEMON_MESSAGESENDER_H
#define LISTHAVEN_SENDDAEMON_MESSAGESENDER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace SendDaemon {

class CConfiguration;
struct CDeliveryReport;
class IMessageSender_SendMessageEvents;

class CMessageSender {
public:
    class LastDelivery {
    public:
        virtual ~LastDelivery() = default;
        virtual double GetSeconds() const = 0;  // since then
    };
    class NoLastDelivery : public LastDelivery {
    public:
        double GetSeconds() const override;  // the largest finite double
    };
    class ConcreteLastDelivery : public LastDelivery {
    public:
        explicit ConcreteLastDelivery(std::uint32_t clock) noexcept : m_clock(clock) {}
        double GetSeconds() const override;

    private:
        std::uint32_t m_clock;  // milliseconds of the process clock
    };

    CMessageSender();  // starts the thread
    CMessageSender(const CMessageSender&) = delete;
    CMessageSender& operator=(const CMessageSender&) = delete;
    virtual ~CMessageSender();

    virtual bool IsBusy() const;  // a job is pending or running, or the sender was stopped
    virtual bool DoSend(const CConfiguration& config, const std::string& returnPath, const std::string& recipients,
                        const std::string& messageFile) = 0;
    virtual bool Stop();    // a running delivery is to end soon; kinds say how
    virtual void OnIdle();  // there was nothing to dispatch
    virtual std::string_view GetMethodName() const = 0;
    virtual void RunCustomJob();
    virtual void OnEnding();  // the last thing its thread does
    virtual void SetJobName(std::string_view name);

    // Returns at once.  config and events must outlive the job.
    bool Send(const CConfiguration& config, std::string_view returnPath, std::string_view recipients,
              std::string_view messageFile, IMessageSender_SendMessageEvents* events);
    bool StartCustomJob();
    void End();       // after the running job; returns at once, so that many can end at the same time
    void Shutdown();  // waits for that; also several times
    double GetLastDelivery() const;

protected:
    // For DoSend(), right after each transaction with a server: what became of
    // the message for some of its recipients.  Without any report the result of
    // DoSend() holds for all of them; with one it is true when a recipient was
    // accepted.
    void Report(const CDeliveryReport& report) const;

    bool HasJob() const;  // pending or running

    void LogTrace(std::string_view text) const;        // level 4
    void LogInformation(std::string_view text) const;  // level 3
    void LogError(std::string_view text) const;        // level 2

private:
    enum class JobState : std::uint8_t { Idle, Sending, Custom };
    struct CJob {
        const CConfiguration* config = nullptr;
        std::string returnPath;
        std::string recipients;
        std::string messageFile;
        IMessageSender_SendMessageEvents* events = nullptr;
    };

    void Work();
    void RunJob(JobState state, const CJob& job);
    void RunSendJob(const CJob& job);
    bool HandOver(JobState state, CJob job);

    mutable std::mutex m_lock;
    std::condition_variable m_wake;
    CJob m_job;
    JobState m_pending = JobState::Idle;  // handed over, not yet begun: runs even after a stop
    std::atomic<bool> m_work = false;     // the work event: a job is pending or running
    bool m_stop = false;                  // takes no more jobs; the thread ends
    std::unique_ptr<LastDelivery> m_lastDelivery;
    const CJob* m_running = nullptr;  // of the sender's own thread
    std::thread m_thread;             // last: uses all of the above
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_MESSAGESENDER_H
