// senddaemon.h - the sending side of the engine: accounts, each with its
// configuration and its dispatcher, and what they share.
//
// One process at a time sends from a root folder: the first AddAccount() takes
// a presence of that name, and fails when another program has it.  Adding
// messages to a queue needs no daemon.
//
// Errors   false, with the reason in the last-error text.
// Threads  One thread adds accounts and dispatches.  GetSentCount(),
//          GetTotals(), WaitForProgress() and the events may come from any.
// Order    Initialize(), LoadChecker(), SetExpiry(), AddAccount() for each,
//          ConfigureAccount() (configureaccount.h), then dispatching.

#ifndef LISTHAVEN_SENDDAEMON_SENDDAEMON_H
#define LISTHAVEN_SENDDAEMON_SENDDAEMON_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "senddaemon/dispatcher.h"
#include "senddaemon/sendevents.h"

namespace SendDaemon {

class CDispatchChecker;

// What one round over all dispatchers did: how many of them.
struct CDispatchRound {
    std::uint32_t handedOn = 0;
    std::uint32_t allBusy = 0;
    std::uint32_t failed = 0;
    std::uint32_t backedOff = 0;
    std::string reason;       // of the last failure
    bool isPassOver = false;  // each has come to the end of its queue since this was set last
};

// An account whose host takes no messages now, and how many wait for it.
struct CBackedOffAccount {
    std::string rootFolder;
    CBackOffNotice notice;
    std::uint64_t waiting = 0;
};

class CSendDaemon : public IDispatcher_SendMessageEvents {
public:
    explicit CSendDaemon(DaemonClock clock = {});  // {}: the system's
    CSendDaemon(const CSendDaemon&) = delete;
    CSendDaemon& operator=(const CSendDaemon&) = delete;
    ~CSendDaemon() override;  // cancels what is being sent, and waits for it

    bool Initialize(std::string_view rootFolder, CConfiguration*& serverConfig);  // owned by this
    bool LoadChecker();
    CDispatchChecker& GetChecker();
    void SetExpiry(std::optional<std::int64_t> seconds);  // for all accounts; none: never
    void SetEventSink(ISendEvents* sink);                 // nullptr: none

    // True when this process may send from the root folder, from then on until
    // this is destroyed.  AddAccount() asks by itself.
    bool ClaimSending();
    bool IsSendingElsewhere() const;  // another program has the claim

    bool AddAccount(std::string_view rootFolder);  // one added before is replaced
    bool RemoveAccount(std::string_view rootFolder);
    bool FindAccountByRootFolder(std::string_view rootFolder, std::size_t& index);
    std::vector<std::string> GetAccounts() const;  // in the order added
    CConfiguration* GetAccountConfig(std::string_view rootFolder);
    CDispatcher* GetDispatcher(std::string_view rootFolder);
    bool SetAccountValue(std::string_view rootFolder, std::string_view key, std::string_view value);

    bool CreateAccountConfig(std::string_view rootFolder, std::unique_ptr<CConfiguration>& config);
    bool CreateDispatcher(std::string_view rootFolder, CConfiguration* config,
                          std::unique_ptr<CDispatcher>& dispatcher);

    // One step of every dispatcher.  False when none had anything to do; the
    // last-error text is then, as always, "Nothing to dispatch".
    bool DispatchAll();
    CDispatchRound DispatchRound();

    // One step of every dispatcher that has not reached the end of its queue
    // since StartPass().
    void StartPass();
    CDispatchRound DispatchPassRound();

    bool IsAnySending();
    bool GetSentCount(std::uint32_t& count) const;
    CDispatchTotals GetTotals() const;
    std::vector<CBackedOffAccount> GetBackedOff() const;  // counts files: O(messages) of those accounts
    void CancelSenders();                                 // of all accounts; waits until nothing is being sent

    // A number that grows whenever a sender has become free.  The wait returns
    // when it has passed "seen", at the latest after "limit".
    std::uint64_t GetProgress() const;
    void WaitForProgress(std::uint64_t seen, std::chrono::milliseconds limit);

    bool CanSendMessage(const CConfiguration& config, const std::string& messageFile) override;
    void OnMessageSent(const std::string& messageFile, const std::string& returnPath,
                       const std::string& recipients) override;
    void OnMessageFailed() override;
    void OnSenderIdle() override;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

bool IsSendingFrom(const std::string& rootFolder);  // any program, this one included

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_SENDDAEMON_H
