// planexecution.h - carries out what was planned for a message: answers, members,
// posts, the digest, the moderator's folder, what bounces lead to.
//
// Nothing is written: what is to be done is collected (messageeffects.h), and
// member changes are those of the message in the view.
//
// Errors   CLhvException: the message cannot be processed now.
// Threads  One at a time in the process: data fields are shared.
// Order    The data fields of the message and its list are set before.

#ifndef LISTHAVEN_ENGINE_INCOMING_PLANEXECUTION_H
#define LISTHAVEN_ENGINE_INCOMING_PLANEXECUTION_H

#include <span>
#include <string>

#include "engine/blockedaddresses.h"
#include "engine/incoming/answers.h"
#include "engine/incoming/bounceeffects.h"
#include "engine/incoming/messageeffects.h"
#include "engine/incoming/messageplan.h"

class CPlanExecution {
public:
    // Of one list; view must outlive this object.  List settings are those of now.
    explicit CPlanExecution(CListView& view);

    void Execute(const CMessagePlan& plan, std::span<const CMessageRule> rules, const CIncomingMessage& message,
                 CMessageEffects& effects);

    // Of a message whose header alone was fetched: the sender is told.
    void AnswerTooLarge(const CIncomingMessage& message, std::int64_t loopBits, CMessageEffects& effects);

private:
    struct CStep;  // one action of one message

    void Perform(const CStep& step);
    void Answer(const CStep& step, const CMimeMessage& reply);
    void AnswerInvalid(const CStep& step, const std::string& reason);
    void ChangeMember(const CStep& step);
    void Forward(const CStep& step);
    void Send(const CStep& step);
    void Collect(const CStep& step);
    void Hold(const CStep& step);
    void Redirect(const CStep& step);
    void Post(const CStep& step, const CMimeMessage& message, const RuleMembers& members);
    bool Enqueue(const CStep& step, CopyResult result, std::string text);

    CListView& m_view;
    CAnswerMaker m_answers;
    CBlockedAddresses m_blocked;
    std::string m_queue;  // of the list's account
    bool m_removeMatched = false;
    RemovedMembers m_removed;          // of the message
    bool m_isAnsweredInvalid = false;  // the message has been
    std::string m_whyInvalid;          // what the log has been told of it
};

#endif  // LISTHAVEN_ENGINE_INCOMING_PLANEXECUTION_H
