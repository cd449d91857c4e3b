// sessionfixture.h - sessions with servers of the test's own.

#ifndef LISTHAVEN_TESTS_NET_SESSIONFIXTURE_H
#define LISTHAVEN_TESTS_NET_SESSIONFIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "net/smtpsession.h"
#include "tests/net/tinypeer.h"
#include "tests/platform/temporaryfolder.h"
#include "tests/smtpscript/scriptedserver.h"

class CSessionFixture : public testing::Test {
protected:
    CSessionFixture() { Put(m_message.file, "Subject: x\n\n.dot\n"); }

    Net::SmtpOptions OptionsFor(std::uint16_t port) const {
        Net::SmtpOptions options;
        options.connect.host = "127.0.0.1";
        options.connect.port = port;
        options.heloName = "client.example";
        options.replyTimeout = options.dataTimeout = std::chrono::seconds(30);
        return options;
    }
    bool Open(std::uint16_t port) { return m_session.Open(OptionsFor(port)); }
    bool Send(std::vector<std::string> recipients) {
        m_message.recipients = std::move(recipients);
        return m_session.Send(m_message, m_result);
    }
    // "A250 D421 R0": state and code of each recipient.
    std::string Results() const {
        std::string text;
        for (const Net::SmtpRecipientResult& one : m_result.recipients) {
            text += text.empty() ? "" : " ";
            text += "ARD"[static_cast<int>(one.state)] + std::to_string(one.code);
        }
        return text;
    }
    // The server's view: the commands without their line ends.
    static std::string Commands(const SmtpScript::CScriptedServer& server) {
        std::string commands;
        const std::string all = server.GetTranscript();
        for (std::size_t begin = 0; begin < all.size();) {
            const std::size_t end = all.find('\n', begin);
            if (all.compare(begin, 3, "C: ") == 0) commands += all.substr(begin + 3, end - begin - 3) + '\n';
            begin = end + 1;
        }
        return commands;
    }

    CTemporaryFolder m_folder;
    Net::CSmtpSession m_session;
    Net::SmtpMessage m_message{.envelopeSender = "list@example.org",
                               .recipients = {},
                               .file = m_folder / "message.eml",
                               .size = 17,
                               .is8Bit = true};
    Net::SmtpSendResult m_result;
};

#endif  // LISTHAVEN_TESTS_NET_SESSIONFIXTURE_H
