// messageplan.h - what is to be done with one message, decided without doing it.
//
// Order    Loop test, then the enabled rules in their order until one that
//          applies stops the walk.  Conditions see what earlier rules did.
// Ends     The walk ends early, with one note and nothing done by that rule:
//          - a sender whom the access list denies, at the first rule that would
//            add him, send him a message to be signed, or post;
//          - a reply whose signature is changed, foreign or too old, at the rule
//            that it fails;
//          - on a moderated list, at the first rule that would post or collect
//            for the digest: the message waits as a whole, nothing else is done
//            with it before it is accepted; then all rules apply once more.
// Programs What no person wrote (WhyAutomatic) adds, changes and is answered
//          nothing, and is neither posted nor collected.  A program may post by a
//          rule whose From condition lists addresses and admits no members.
//          Removing works for everybody.  For a bounce, members whom the notice
//          names take the place of the sender; they are removed, or their mode
//          is changed.
// Web form An Email parse field takes the place of the sender's address only
//          for a rule whose From condition lists addresses and admits no
//          members: otherwise anybody could subscribe somebody else.  From lines
//          can be forged: such an address should be known to nobody, or the
//          rule should answer with a message to be signed.
// Errors   CLhvException from the view.
// Threads  One at a time in the process: data fields are shared.

#ifndef LISTHAVEN_ENGINE_INCOMING_MESSAGEPLAN_H
#define LISTHAVEN_ENGINE_INCOMING_MESSAGEPLAN_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "engine/member.h"
#include "engine/rules/messagerule.h"
#include "engine/rules/rulematch.h"

enum class ActionKind : std::uint8_t {
    Reply,         // rule's reply message to "address"
    AddMember,     // "member": what the message says of him; values that are empty say nothing.  He is active again
    RemoveMember,  // "address"
    SetMode,       // "address", member.mode
    UpdateMember,  // "member", as for AddMember, by the parse fields of a rule that does not add
    Forward,       // the message, by the rule's options; "address" gets the invalid-format reply, "": nobody
    SendMessage,   // the rule's message to send
    AddToDigest,   // "address" as for Forward
    Hold,          // for the moderator
    RedirectLoop,  // the message as it is, to "address"
};

struct CAction {
    ActionKind kind = ActionKind::Reply;
    std::size_t rule = 0;  // index in the rules
    std::string address;
    CMember member;
};

struct CRuleStep {
    std::size_t rule = 0;
    CRuleResult result;
    std::vector<std::string> done;  // for people: what it does, or why it does not
};

struct CMessagePlan {
    std::vector<CRuleStep> steps;  // the enabled rules up to where the walk ended
    std::vector<CAction> actions;
    std::vector<std::string> notes;  // for the log
    bool isLoop = false;
    bool isHeld = false;
    bool isRepeat = false;          // a member's post that says what he has posted before; the notes are warnings
    std::string postedText;         // key of a member's post; postedtext.h
    bool removeFromServer = false;  // a rule that applies, or an option for loops, wants it
    bool matched = false;           // some rule applied
};

struct LoopOptions {
    std::int64_t bits = 3;
    bool redirect = false;
    std::string redirectAddress;
    bool remove = false;
};

// The data fields of list and message must be set.
CMessagePlan PlanMessage(std::span<const CMessageRule> rules, const CIncomingMessage& message, const LoopOptions& loops,
                         IListView& list);

// Why nobody must be sent an automatic answer to this message; "" when one may
// be.  Source: RFC 3834, 2.
std::string WhyNotAnswered(const CIncomingMessage& message, const BroadcastList& list);

// By a loop header that the bits ask for; whatever they say, also when the
// message shows that this very list sent it.  A bounce is no loop: it is never
// answered and never posted.
bool IsLoop(const CIncomingMessage& message, std::int64_t bits, const BroadcastList& list);

#endif  // LISTHAVEN_ENGINE_INCOMING_MESSAGEPLAN_H
