// gatedsender.h - a kind of sender for tests: deliveries wait at a gate.
//
// A kind is registered per gate; the account's SendMethod names it.

#ifndef LISTHAVEN_TESTS_SENDDAEMON_GATEDSENDER_H
#define LISTHAVEN_TESTS_SENDDAEMON_GATEDSENDER_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "senddaemon/deliveryoutcome.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/senderfactory.h"
#include "utility/lasterror.h"

namespace SendDaemon {

// What all senders of one kind share.
class CGate {
public:
    static constexpr std::chrono::seconds Patience{60};

    std::mutex lock;
    std::condition_variable changed;
    bool isOpen = false;
    bool isCancelled = false;
    int running = 0;
    int mostRunning = 0;
    int cancelled = 0;
    int idleCalls = 0;
    int ending = 0;       // threads that are about to end
    int endTogether = 0;  // each waits for so many
    int endedAlone = 0;
    std::vector<std::string> delivered;  // recipients; one by one when reporting

    // With isReporting "refuse" and "defer" in a recipient say what is reported
    // of it, and who has "early" in it is taken before the gate.
    bool isReporting = false;
    bool isDown = false;  // nobody is taken
    std::function<void()> beforeReport;
    std::function<void()> afterReport;

    void Open() {
        const std::lock_guard guard(lock);
        isOpen = true;
        changed.notify_all();
    }
    CDeliveryReport Answer(const std::string& recipients, bool isEarly) {
        CDeliveryReport report;
        report.isHostUnavailable = isDown;
        for (const std::string& recipient : SplitRecipients(recipients)) {
            const auto has = [&](const char* word) { return recipient.find(word) != std::string::npos; };
            if (has("early") != isEarly) continue;
            CRecipientReport& entry = report.recipients.emplace_back();
            entry.recipient = recipient;
            entry.host = "mx.example";
            entry.outcome = isDown || has("defer") ? RecipientOutcome::Deferred
                            : has("refuse")        ? RecipientOutcome::Refused
                                                   : RecipientOutcome::Accepted;
            entry.code = isDown ? 0 : entry.outcome == RecipientOutcome::Accepted ? 250 : 450;
            entry.text = isDown ? "Connection refused" : "the server's words";
            if (entry.outcome == RecipientOutcome::Accepted) delivered.push_back(recipient);
        }
        return report;
    }
    bool WaitForRunning(int count) {
        std::unique_lock guard(lock);
        return changed.wait_for(guard, Patience, [&] { return running >= count; });
    }
};

class CGatedSender : public CMessageSender {
public:
    CGatedSender(std::shared_ptr<CGate> gate, std::string name) : m_gate(std::move(gate)), m_name(std::move(name)) {}
    ~CGatedSender() override { Shutdown(); }

    // "fail" and "throw" in the recipient say how the delivery ends.
    bool DoSend(const CConfiguration& /*config*/, const std::string& /*returnPath*/, const std::string& recipients,
                const std::string& /*messageFile*/) override {
        std::unique_lock guard(m_gate->lock);
        if (m_gate->isReporting) Report(m_gate->Answer(recipients, true));
        m_gate->mostRunning = std::max(m_gate->mostRunning, ++m_gate->running);
        m_gate->changed.notify_all();
        m_gate->changed.wait_for(guard, CGate::Patience, [this] { return m_gate->isOpen || m_gate->isCancelled; });
        --m_gate->running;
        if (recipients.find("throw") != std::string::npos) throw std::runtime_error("thrown");
        SetLastErrorText("refused");
        if (recipients.find("fail") != std::string::npos) return false;
        if (!m_gate->isOpen) {
            ++m_gate->cancelled;
            return false;
        }
        if (m_gate->isReporting) {
            if (m_gate->beforeReport) m_gate->beforeReport();
            const CDeliveryReport report = m_gate->Answer(recipients, false);
            Report(report);
            if (m_gate->afterReport) m_gate->afterReport();
            return std::any_of(report.recipients.begin(), report.recipients.end(),
                               [](const auto& each) { return each.outcome == RecipientOutcome::Accepted; });
        }
        m_gate->delivered.push_back(recipients);
        return true;
    }
    bool Stop() override {
        const std::lock_guard guard(m_gate->lock);
        m_gate->isCancelled = true;
        m_gate->changed.notify_all();
        return true;
    }
    void OnIdle() override {
        const std::lock_guard guard(m_gate->lock);
        ++m_gate->idleCalls;
    }
    void OnEnding() override {
        std::unique_lock guard(m_gate->lock);
        ++m_gate->ending;
        m_gate->changed.notify_all();
        const auto isTogether = [this] { return m_gate->ending >= m_gate->endTogether; };
        if (!m_gate->changed.wait_for(guard, CGate::Patience, isTogether)) ++m_gate->endedAlone;
    }
    std::string_view GetMethodName() const override { return m_name; }

private:
    std::shared_ptr<CGate> m_gate;
    std::string m_name;
};

inline std::shared_ptr<CGate> RegisterGatedKind(const std::string& name) {
    auto gate = std::make_shared<CGate>();
    RegisterSenderKind(name, [gate, name] { return std::make_unique<CGatedSender>(gate, name); });
    return gate;
}

}  // namespace SendDaemon

#endif  // LISTHAVEN_TESTS_SENDDAEMON_GATEDSENDER_H
