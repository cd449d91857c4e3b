// outgoingfixture.h - a list, and posts to it as the rules see them.

#ifndef LISTHAVEN_TESTS_ENGINE_INCOMING_OUTGOINGFIXTURE_H
#define LISTHAVEN_TESTS_ENGINE_INCOMING_OUTGOINGFIXTURE_H

#include "engine/broadcast.h"
#include "engine/rules/incomingmessage.h"
#include "tests/engine/messagefixture.h"
#include "utility/text.h"

class OutgoingTest : public MessageTest {
protected:
    OutgoingTest() {
        list = {.number = MakeList("Harbour (West)", {}),
                .name = "Harbour (West)",
                .guid = "{01234567-89AB-CDEF-0123-456789ABCDEF}",
                .usage = "\"UNSUBSCRIBE\" and \"Help\" to $(Command-Email).",
                .address = "news@harbour.example",
                .commandAddress = "news-do@harbour.example",
                .authorizedAddress = {},
                .postAddress = {}};
    }

    static CMimeMessage Message(const std::string& text) {
        CMimeMessage message;
        EXPECT_TRUE(message.LoadText(CMimeSource(text)));
        return message;
    }

    CIncomingMessage Incoming(const std::string& text) {
        CIncomingMessage incoming;
        incoming.message = Message(text);
        incoming.path = WriteMessage(LfToCrLf(text));
        incoming.headerText = text.substr(0, text.find("\n\n") + 1);
        incoming.from = ParseMailboxes(incoming.message.GetRoot()->GetHeader().FindStored("From"));
        if (!incoming.from.empty()) incoming.sender = incoming.from.front();
        return incoming;
    }

    static void ExpectFields(const std::string& text, const std::vector<std::pair<const char*, const char*>>& fields) {
        const CMimeMessage message = Message(text);
        for (const auto& [name, value] : fields)
            EXPECT_EQ(message.GetRoot()->GetField(name), value) << name;
    }

    BroadcastList list;
};

#endif  // LISTHAVEN_TESTS_ENGINE_INCOMING_OUTGOINGFIXTURE_H
