// answers.h - the messages that a rule sends out by itself: replies, messages to
// fixed addresses, redirected messages.
//
// A reply is from the list ("name" <command address>) when it has no From, and
// its subject "Re: $(Original-Subject)" when it has none.  It has
// "Auto-Submitted: auto-replied", "Precedence: bulk", In-Reply-To and
// References, the loop headers, and, unless the operator's message names
// another one, an empty envelope sender.
//
// Errors   CopyResult as of a broadcast; Failed with the reason in the
//          last-error text.  Skipped: nobody to answer, logged.
// Threads  One at a time in the process: data fields are shared.
// Source   RFC 3834; RFC 5322, 3.6.4.

#ifndef LISTHAVEN_ENGINE_INCOMING_ANSWERS_H
#define LISTHAVEN_ENGINE_INCOMING_ANSWERS_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/broadcast.h"
#include "engine/rules/incomingmessage.h"

class CAnswerMaker {
public:
    explicit CAnswerMaker(BroadcastList list);
    CAnswerMaker(const CAnswerMaker&) = delete;
    CAnswerMaker& operator=(const CAnswerMaker&) = delete;
    ~CAnswerMaker();

    // text: a queue file (CR LF).  The fields of SetIncomingFields() are set
    // here; others that are set, such as custom fields of the sender, can be
    // used by the message too.
    CopyResult MakeReply(const CMimeMessage& reply, const CIncomingMessage& original, std::int64_t now,
                         std::string& text);
    // address: may be "Name <address>" and hold data fields.  Auto-Submitted is
    // "auto-generated", and it refers to no message: it answers none.
    CopyResult MakeMessageTo(const CMimeMessage& message, std::string_view address, const CIncomingMessage& original,
                             std::int64_t now, std::string& text);
    // The message as it came, for one address, "Resent-From" the list in front of
    // it; the envelope sender is empty.
    // Skipped when the address is one of the list's own.
    CopyResult MakeRedirected(const CIncomingMessage& original, std::string_view address, std::int64_t now,
                              std::string& text);

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

#endif  // LISTHAVEN_ENGINE_INCOMING_ANSWERS_H
