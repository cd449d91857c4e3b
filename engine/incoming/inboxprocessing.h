// inboxprocessing.h - messages of a list's inbox, planned and carried out in
// groups: each group is one transaction.
//
// A message that cannot be processed stays where it is, or comes into the inbox
// from memory, with a line in the log; after three attempts it goes to .Failed.  A transaction that fails is given
// up, and its messages are tried one by one up to the one that fails.
//
// Errors   false or CLhvException: nothing more can be processed now (damaged
//          rules, a full disk), and what was not done waits in the inbox.
// Threads  One at a time in the process: data fields are shared.
// Crash    Each message is processed once: cycletransaction.h.

#ifndef LISTHAVEN_ENGINE_INCOMING_INBOXPROCESSING_H
#define LISTHAVEN_ENGINE_INCOMING_INBOXPROCESSING_H

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "engine/incoming/inboxmessage.h"
#include "engine/incoming/notifications.h"
#include "engine/incoming/planexecution.h"
#include "engine/rules/rulestore.h"

class CInboxProcessing {
public:
    static constexpr std::size_t GroupSize = 512;    // messages
    static constexpr std::size_t GroupFiles = 1000;  // a group that prepares more of them ends
    static constexpr int MaxAttempts = 3;

    // The caller holds the CCycleLock; state must outlive this object.
    CInboxProcessing(std::uint32_t listNumber, CCycleState& state, std::int64_t now);

    // Throws when the list cannot process anything: without its rules it would
    // take every message in and do nothing with it, and without one of them it
    // would take that rule's messages for the next one's.
    void CheckRules(std::int64_t now);
    bool HasRules(std::int64_t now);  // and all of them are whole

    // Asked before each message: when it says so, what is done counts, and the rest waits.
    void StopWhen(std::function<bool()> stop) { m_stop = std::move(stop); }

    // In this order, at most GroupSize of them.  Behind a post that becomes a broadcast
    // no member changes in its transaction: it goes to those who are members by then.
    bool Process(std::span<const CInboxMessage> messages, std::int64_t now, CCycleTotals& totals);

private:
    enum class Handled : std::uint8_t {
        Taken,
        NotTaken,  // the transaction has failed
        Later,     // not in a transaction that has broadcasts already: it changes members
    };

    bool IsToStop() const { return m_stop && m_stop(); }
    void Refresh(std::int64_t now);
    bool ProcessGroup(std::span<const CInboxMessage> messages, std::size_t& count, CCycleTotals& totals);
    bool ProcessSingly(std::span<const CInboxMessage> messages, CCycleTotals& totals);
    Handled Handle(const CInboxMessage& waiting, bool hasBroadcasts, CCycleTransaction& transaction,
                   CMessageEffects& effects);
    void Plan(CIncomingMessage& message, CMessageEffects& effects);
    bool TakeNotification(const CIncomingMessage& message, CMessageEffects& effects) const;
    bool CountAttempt(const CInboxMessage& waiting, const std::string& title, const std::string& reason,
                      CCycleTransaction& transaction, CCycleTotals& totals);

    std::uint32_t m_list;
    std::function<bool()> m_stop;
    CCycleState& m_state;
    CListView m_view;
    CRuleStore m_store;
    std::string m_stamp;
    std::vector<CMessageRule> m_rules;
    std::vector<std::string> m_ownAddresses;
    LoopOptions m_loops;
    NotificationTreatment m_notifications = NotificationTreatment::Process;
    std::optional<CPlanExecution> m_execution;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_INBOXPROCESSING_H
