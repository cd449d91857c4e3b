// daemonfixture.h - a send daemon with one account, on a clock that tests move.

#ifndef LISTHAVEN_TESTS_SENDDAEMON_DAEMONFIXTURE_H
#define LISTHAVEN_TESTS_SENDDAEMON_DAEMONFIXTURE_H

#include <set>

#include "senddaemon/batchfolder.h"
#include "senddaemon/configuration.h"
#include "senddaemon/deliverylog.h"
#include "senddaemon/dispatchcheck.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/messageiterator.h"
#include "senddaemon/senddaemon.h"
#include "senddaemon/sendloop.h"
#include "tests/senddaemon/gatedsender.h"
#include "tests/senddaemon/sendfixture.h"
#include "utility/text.h"

namespace SendDaemon {

class CDaemonFixture : public CSendFixture {
protected:
    void SetUp() override {
        CSendFixture::SetUp();
        m_options.failurePause = std::chrono::milliseconds(1);
        m_root = InFolder("SendDaemon");
        m_account = JoinPath(m_root, "1");
        CConfiguration config(GetAccountConfigPath(m_account));
        ASSERT_TRUE(config.SetValue("SendMethod", "NullMessageSender"));
        ASSERT_TRUE(config.SetValue("NullSenderWait", "0"));
        ASSERT_TRUE(config.SetValue("TargetFolder", InFolder("out")));
        ASSERT_TRUE(config.SetValue("SaveSentMessages", "1"));
    }
    void TearDown() override {
        m_daemon.reset();
        CSendFixture::TearDown();
    }

    bool Start() {
        m_daemon.reset();
        m_daemon = std::make_unique<CSendDaemon>([this] { return Platform::SecondsSince1970() + m_shift; });
        CConfiguration* server = nullptr;
        return m_daemon->Initialize(m_root, server) && m_daemon->LoadChecker() && m_daemon->AddAccount(m_account);
    }
    void Set(std::string_view key, std::string_view value) {
        CConfiguration config(GetAccountConfigPath(m_account));
        ASSERT_TRUE(config.SetValue(key, value));
    }
    void Queue(int count, std::string_view local = "m") {
        CBatchFolder queue;
        ASSERT_TRUE(queue.Open(m_account));
        for (int i = 0; i < count; ++i) {
            std::string newPath;
            ASSERT_TRUE(
                queue.AddMessageText(Message(std::string(local) + std::to_string(i) + "@there.example"), newPath));
        }
    }
    CSendResult RunToEnd() { return RunUntilEmpty(*m_daemon, m_options); }

    // waiting, claimed, sent, errors, expired, parked
    std::string Counts() const {
        const CAccountCounts c = CountAccountMessages(m_account);
        std::string text;
        for (const auto count : {c.waiting, c.claimed, c.sent, c.errors, c.expired, c.parked}) {
            text += (text.empty() ? "" : " ") + std::to_string(count);
        }
        return text;
    }

    std::uint64_t CountDeferred() const { return CountAccountMessages(m_account).deferred; }

    // A kind that reports per recipient, on an account that retries.
    std::shared_ptr<CGate> UseReportingKind() {
        auto gate = RegisterGatedKind("Gate");
        gate->isReporting = true;
        gate->Open();
        Set("SendMethod", "Gate");
        Set("RetryTemporary", "1");
        Set("HostName", "relay.example");
        return gate;
    }

    void QueueFor(const std::string& recipients) {
        CBatchFolder queue;
        std::string newPath;
        ASSERT_TRUE(queue.Open(m_account) && queue.AddMessageText(Message(recipients), newPath));
    }

    // Whom the messages of a folder name, sorted, in parentheses those of one.
    std::string NamedIn(AccountFolder folder) const {
        std::multiset<std::string> messages;
        CMessageIterator walk;
        std::string path;
        walk.Start(GetAccountFolderPath(m_account, folder));
        for (bool isThere = walk.PeekCurrent(path); isThere; isThere = walk.Next() && walk.PeekCurrent(path)) {
            CMessageInfo info;
            EXPECT_TRUE(ReadMessageInfo(path, info));
            messages.insert("(" + info.recipients + ")");
        }
        return Join({messages.begin(), messages.end()}, "");
    }
    std::string Deliverable() const { return NamedIn(AccountFolder::Waiting) + NamedIn(AccountFolder::Deferred); }

    // The delivery log as "status recipient" in its order.
    std::string LogLines() const {
        std::vector<std::string> lines;
        EXPECT_TRUE(ForEachDeliveryLine(m_account, [&](const CDeliveryLine& line) {
            lines.push_back(std::string(GetDeliveryStatusName(line.status)) + " " + line.recipient);
            return true;
        }));
        return Join(lines, ", ");
    }

    std::string m_root;
    std::string m_account;
    std::int64_t m_shift = 0;  // seconds the daemon's clock is ahead
    CSendLoopOptions m_options;
    std::unique_ptr<CSendDaemon> m_daemon;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_TESTS_SENDDAEMON_DAEMONFIXTURE_H
