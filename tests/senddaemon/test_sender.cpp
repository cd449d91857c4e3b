// Senders: one job at a time, what they report, how they end.

#include <limits>

#include "app/productname.h"
#include "platform/clock.h"
#include "platform/mailslot.h"
#include "senddaemon/configuration.h"
#include "senddaemon/messageinfo.h"
#include "senddaemon/notificationlistener.h"
#include "senddaemon/nullmessagesender.h"
#include "senddaemon/sendevents.h"
#include "senddaemon/threadregistry.h"
#include "tests/senddaemon/gatedsender.h"
#include "tests/senddaemon/sendfixture.h"

namespace SendDaemon {

namespace {

class CEventRecorder : public IMessageSender_SendMessageEvents {
public:
    void OnMessageSent(const std::string& messageFile) override { Add("sent " + messageFile); }
    void OnMessageFailed(const std::string& messageFile) override {
        Add("failed " + messageFile + " " + GetLastErrorText());
    }
    void OnSenderIdle() override { Add("idle"); }

    std::vector<std::string> WaitFor(std::size_t count) {
        std::unique_lock guard(m_lock);
        m_changed.wait_for(guard, CGate::Patience, [&] { return m_events.size() >= count; });
        return m_events;
    }

private:
    void Add(std::string event) {
        const std::lock_guard guard(m_lock);
        m_events.push_back(std::move(event));
        m_changed.notify_all();
    }
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::string> m_events;
};

class Sender : public CSendFixture {
protected:
    void SetUp() override {
        CSendFixture::SetUp();
        m_config = std::make_unique<CConfiguration>(InFolder("account.cfg"));
    }
    std::unique_ptr<CConfiguration> m_config;
    CEventRecorder m_events;
};

TEST_F(Sender, SendsOneMessageAtATime) {
    constexpr double Never = std::numeric_limits<double>::max();
    const auto gate = RegisterGatedKind("Gate");
    const auto sender = CreateSender("Gate");
    ASSERT_NE(sender, nullptr);
    EXPECT_FALSE(sender->IsBusy());
    EXPECT_EQ(sender->GetLastDelivery(), Never);
    ASSERT_TRUE(sender->Send(*m_config, "a", "b-fail", "1", &m_events));
    ASSERT_TRUE(gate->WaitForRunning(1));
    EXPECT_TRUE(sender->IsBusy());
    EXPECT_FALSE(sender->Send(*m_config, "a", "b", "2", &m_events));
    EXPECT_EQ(GetLastErrorText(), "A message is already being sent");
    const auto threads = GetRegisteredThreads();
    EXPECT_TRUE(std::any_of(threads.begin(), threads.end(), [](const auto& t) { return t.second == "Sending Job"; }));
    gate->Open();
    EXPECT_EQ(m_events.WaitFor(2), (std::vector<std::string>{"failed 1 refused", "idle"}));
    EXPECT_EQ(sender->GetLastDelivery(), Never);

    ASSERT_TRUE(sender->Send(*m_config, "a", "throw", "3", &m_events));  // free at once when told so
    m_events.WaitFor(4);
    ASSERT_TRUE(sender->Send(*m_config, "a", "b", "4", &m_events));
    EXPECT_EQ(m_events.WaitFor(6),
              (std::vector<std::string>{"failed 1 refused", "idle", "failed 3 thrown", "idle", "sent 4", "idle"}));
    EXPECT_LT(sender->GetLastDelivery(), 60.0);
    EXPECT_DOUBLE_EQ(CMessageSender::ConcreteLastDelivery(Platform::ClockMilliseconds() + 5000).GetSeconds() < 0, true);
}

TEST_F(Sender, AJobHandedOverBeforeTheEndIsStillDone) {
    const auto gate = RegisterGatedKind("Gate");
    gate->Open();
    for (int i = 0; i < 50; ++i) {
        const auto sender = CreateSender("Gate");
        ASSERT_TRUE(sender->Send(*m_config, "a", "b", "1", &m_events));
        sender->Shutdown();
        EXPECT_TRUE(sender->IsBusy());  // never chosen again
        EXPECT_FALSE(sender->Send(*m_config, "a", "b", "2", &m_events));
    }
    EXPECT_EQ(m_events.WaitFor(100).size(), 100U);
    EXPECT_EQ(CreateSender("Nobody"), nullptr);
}

TEST_F(Sender, TheNullSenderCopiesAndItsWaitCanBeCancelled) {
    const std::string message = MakeFile("q/1.eml", "To: a\r\n\r\nx");
    ASSERT_TRUE(m_config->SetValue("NullSenderWait", "0"));
    CNullMessageSender sender;
    EXPECT_FALSE(sender.DoSend(*m_config, "a", "b", message));  // no TargetFolder
    ASSERT_TRUE(m_config->SetValue("TargetFolder", InFolder("out")));
    ASSERT_TRUE(m_config->SetValue("NullSenderWait", "600000"));
    ASSERT_TRUE(sender.Send(*m_config, "a", "b", message, &m_events));
    while (CountFilesUnder(InFolder("out")) == 0)
        std::this_thread::yield();
    while (m_events.WaitFor(0).empty()) {
        sender.Stop();
        std::this_thread::yield();
    }
    EXPECT_EQ(m_events.WaitFor(2), (std::vector<std::string>{"sent " + message, "idle"}));
}

TEST_F(Sender, NotificationsAreTwoWordsAndAnythingElseEndsTheListening) {
    std::promise<std::uint64_t> heard;
    std::future<std::uint64_t> words = heard.get_future();
    CNotificationListener listener;
    ASSERT_TRUE(listener.Start(
        [&](std::uint32_t first, std::uint32_t second) { heard.set_value(std::uint64_t{first} << 32U | second); }));
    EXPECT_FALSE(CNotificationListener().Start([](std::uint32_t, std::uint32_t) {}));  // the name is taken
    ASSERT_TRUE(SendNotification(0x01020304, 0xF0000000));
    ASSERT_EQ(words.wait_for(CGate::Patience), std::future_status::ready);
    EXPECT_EQ(words.get(), 0x01020304F0000000U);
    ASSERT_TRUE(Platform::WriteToMailslot(NotificationMailslotName, "8 bytes."));
    const auto end = std::chrono::steady_clock::now() + CGate::Patience;
    while (listener.IsListening() && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    EXPECT_FALSE(listener.IsListening());
}

TEST_F(Sender, TheHeaderSaysForWhomAMessageIs) {
    struct CCase {
        const char* header;
        const char* returnPath;  // nullptr: the message cannot be sent
        const char* recipients;
    };
    const CCase cases[] = {
        {"From: A <a@x>\r\nTo: \"B, C\" <b@x>, c@x\r\n", "a@x", "b@x,c@x"},
        {"From: a@x\r\nTo: b@x\r\nCc: D <d@x>\r\nBCC: e@x\r\n", "a@x", "b@x,d@x,e@x"},
        {"From: a@x\r\nTo: b@x\r\nX-Lhv-Recipient-Override: c@x\r\nX-Lhv-Return-Path-Override: bounce@x\r\n",
         "bounce@x", "c@x"},
        {"From: a@x\r\nTo: b@x\r\nX-Lhv-Return-Path-Override: <>\r\n", "", "b@x"},
        {"X-Lhv-Recipient-Override: c@x,\r\n d@x\r\nX-Lhv-Recipients-Only: 1\r\nFrom: a@x\r\nTo: b@x\r\nCC: "
         "e@x\r\nX-Lhv-Recipient-Override: f@x\r\n",
         "a@x", "c@x,d@x"},
        {"From: a@x,\r\n z@x\r\nTo:\r\n b@x\r\n", "a@x", "b@x"},
        {"From: a@x\r\n", nullptr, ""},
        {"To: b@x\r\n", nullptr, ""},
        {"From: nobody\r\nTo: b@x\r\n", nullptr, ""},
        {"From: a@x\r\nTo: nobody\r\n", nullptr, ""},
        {"", nullptr, ""},
    };
    const std::string longHeader = "X-Long: " + std::string(6000, 'x') + "\r\n";
    for (const CCase& each : cases) {
        const std::string header = (&each - cases) % 2 == 0 ? each.header : longHeader + each.header;
        const std::string path = MakeFile("m.eml", header + "\r\nTo: body@x\r\n");
        CMessageInfo info;
        ASSERT_EQ(ReadMessageInfo(path, info), each.returnPath != nullptr) << each.header;
        if (each.returnPath == nullptr) continue;
        EXPECT_EQ(info.returnPath, each.returnPath) << each.header;
        EXPECT_EQ(info.recipients, each.recipients) << each.header;
    }
}

}  // namespace

}  // namespace SendDaemon
