// deliveryfixture.h - a send daemon with as many accounts as a test wants, and
// what became of their messages.

#ifndef LISTHAVEN_TESTS_DELIVERY_DELIVERYFIXTURE_H
#define LISTHAVEN_TESTS_DELIVERY_DELIVERYFIXTURE_H

#include <chrono>
#include <utility>

#include "senddaemon/deliverylog.h"
#include "senddaemon/senddaemon.h"
#include "senddaemon/sendloop.h"
#include "tests/senddaemon/sendfixture.h"
#include "utility/text.h"

namespace SendDaemon {

using CSettings = std::vector<std::pair<std::string, std::string>>;

class CDeliveryFixture : public CSendFixture {
protected:
    static constexpr std::chrono::seconds Patience{90};  // for a whole run

    void TearDown() override {
        m_daemon.reset();
        CSendFixture::TearDown();
    }

    // A relay account that tries again; returns its root folder.
    std::string MakeAccount(const std::string& host, std::uint16_t port, const CSettings& settings) {
        m_accounts.push_back(InFolder("SendDaemon/" + std::to_string(m_accounts.size() + 1)));
        Configure(m_accounts.back(), host, port, settings);
        return m_accounts.back();
    }
    static void Configure(const std::string& account, const std::string& host, std::uint16_t port,
                          const CSettings& settings) {
        std::map<std::string, std::string> all = {{"SendMethod", "SmtpMessageSender2"},
                                                  {"HostName", host},
                                                  {"Port", std::to_string(port)},
                                                  {"Timeout", "30"},
                                                  {"DataTimeout", "30"},
                                                  {"RetryTemporary", "1"},
                                                  {"SaveSentMessages", "1"}};
        for (const auto& [key, value] : settings)
            all[key] = value;
        std::string text = "[Configuration]\n";
        for (auto& [key, value] : all) {
            ReplaceAll(value, "\\", "\\\\");
            text += key + "=" + value + "\n";
        }
        ASSERT_TRUE(EnsureFolder(account) && WriteFileAtomically(GetAccountConfigPath(account), text));
    }
    static void Queue(const std::string& account, const std::string& text) {
        CBatchFolder queue;
        std::string newPath;
        ASSERT_TRUE(queue.Open(account) && queue.AddMessageText(text, newPath)) << GetLastErrorText();
    }

    // A daemon that starts, sends what can be sent now, and ends.
    void Run() {
        m_daemon = std::make_unique<CSendDaemon>([this] { return Platform::SecondsSince1970() + m_shift; });
        CConfiguration* server = nullptr;
        ASSERT_TRUE(m_daemon->Initialize(InFolder("SendDaemon"), server) && m_daemon->LoadChecker());
        for (const std::string& account : m_accounts)
            ASSERT_TRUE(m_daemon->AddAccount(account)) << GetLastErrorText();
        const auto end = std::chrono::steady_clock::now() + Patience;
        CSendLoopOptions options;
        options.stopRequested = [end] { return std::chrono::steady_clock::now() > end; };
        EXPECT_FALSE(RunUntilEmpty(*m_daemon, options).wasStopped) << "something hangs";
        m_daemon.reset();
    }

    // "Sent*2 Errors": the folders of the account that hold messages, and how many when it is not one.
    static std::string DescribeFolders(const std::string& account) {
        std::map<std::string, int> counts;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(account)) {
            if (entry.path().extension() != ".eml") continue;
            const std::string folder = entry.path().lexically_relative(account).begin()->string();
            ++counts[folder.starts_with('.') ? folder.substr(1) : "waiting"];
        }
        std::string text;
        for (const auto& [folder, count] : counts) {
            text += (text.empty() ? "" : " ") + folder + (count == 1 ? "" : "*" + std::to_string(count));
        }
        return text;
    }

    // "sent 250, failed 550": the last status of each message and recipient,
    // in the order of their first lines, with the last code that is known.
    static std::string DescribeLedger(const std::string& account, std::string& texts) {
        std::vector<CDeliveryLine> last;
        EXPECT_TRUE(ForEachDeliveryLine(account, [&](const CDeliveryLine& line) {
            texts += line.text + "\n";
            const auto found = std::find_if(last.begin(), last.end(), [&](const CDeliveryLine& other) {
                return other.message == line.message && other.recipient == line.recipient;
            });
            if (found == last.end()) {
                EXPECT_NE(line.status, DeliveryStatus::Sent) << "sent, and never accepted";
                last.push_back(line);
                return true;
            }
            EXPECT_NE(found->status, DeliveryStatus::Sent) << "a line after the message had been sent";
            found->status = line.status;
            if (line.code != 0) found->code = line.code;
            return true;
        }));
        std::string text;
        for (const CDeliveryLine& line : last) {
            text += (text.empty() ? "" : ", ") + std::string(GetDeliveryStatusName(line.status));
            if (line.code != 0) text += " " + std::to_string(line.code);
        }
        return text;
    }

    std::vector<std::string> m_accounts;
    std::int64_t m_shift = 0;  // seconds the daemon's clock is ahead
    std::unique_ptr<CSendDaemon> m_daemon;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_TESTS_DELIVERY_DELIVERYFIXTURE_H
