// messagerule.h - one rule: which incoming messages it is for, and what is done
// with them.
//
// A rule applies to a message when all its enabled conditions hold (AND); one
// without conditions applies to every message.  Texts and addresses may hold
// data fields, which are expanded when the rule is applied.
//
// Threads  A value; one thread at a time.

#ifndef LISTHAVEN_ENGINE_RULES_MESSAGERULE_H
#define LISTHAVEN_ENGINE_RULES_MESSAGERULE_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "engine/rules/parsefield.h"
#include "mime/mimemessage.h"

// How a list of words is compared.  Neither: any of them; all: each of them;
// all and only: nothing but them.
struct RuleWordOptions {
    bool all = false;
    bool only = false;
    bool regex = false;
};

// Members that count besides the addresses that are listed.
struct RuleMembers {
    bool subscribers = false;  // without it the other two mean nothing
    bool regular = false;      // modes Regular and Both
    bool digestOnly = false;   // mode Digest
};

struct RuleAddressOptions {
    bool regex = false;
    RuleMembers members;
};

struct RuleOverride {
    bool on = false;
    std::string text;
};

// The numbers are those of the file.
enum class RuleBounceKind : std::int32_t { Soft = 1, Hard = 2, Blocked = 4, Any = 65535 };

inline constexpr std::int32_t DigestModeOn = 2;  // of RuleFields::digestMode
inline constexpr std::int32_t DigestModeOff = 0;

struct RuleFields {
    std::string name = "Enter a rule name here";
    bool enabled = true;

    // Conditions
    bool checkFrom = false;
    std::vector<std::string> fromAddresses;
    RuleAddressOptions fromOptions;
    bool checkTo = false;
    std::vector<std::string> toAddresses;
    RuleAddressOptions toOptions;
    bool checkSubject = false;
    std::vector<std::string> subjectWords;
    RuleWordOptions subjectOptions;
    bool checkBody = false;
    std::vector<std::string> bodyWords;
    RuleWordOptions bodyOptions;
    bool replyToSigned = false;  // it is a reply to a signed message
    bool signedMessage = false;  // it is a signed message
    bool checkBounce = false;
    RuleBounceKind bounceKind = RuleBounceKind::Hard;

    // Actions
    bool stopProcessing = false;
    bool removeFromServer = false;
    bool addSender = false;
    bool removeSender = false;
    bool changeDigestMode = false;
    std::int32_t digestMode = DigestModeOff;
    bool addToDigest = false;
    bool reply = false;
    CMimeMessage replyMessage;  // messages without a root are empty
    bool sendMessage = false;
    CMimeMessage messageToSend;
    std::vector<std::string> sendToAddresses;
    RuleMembers sendToMembers;

    // Forward: to addresses, to members, or both
    bool forward = false;
    std::vector<std::string> forwardAddresses;
    RuleMembers forwardMembers;
    RuleOverride fromOverride;
    RuleOverride replyToOverride;
    RuleOverride toOverride;
    RuleOverride subjectOverride;
    RuleOverride returnPathOverride;
    RuleOverride senderOverride;
    bool sign = false;
    bool plainText = false;
    bool stripAttachments = false;
    bool wirelessTrim = false;
    bool addHeader = false;
    CMimeMessage header;
    bool addFooter = false;
    CMimeMessage footer;
    bool subjectTag = false;
    std::string subjectTagText = "[$(List-Name)]";
    CMimeMessage invalidFormatReply;

    std::vector<CParseField> parseFields;
};

// The rule is for all incoming messages; words and addresses stay.
inline void ClearConditions(RuleFields& rule) noexcept {
    for (bool* const condition : {&rule.checkSubject, &rule.checkBody, &rule.checkFrom, &rule.checkTo,
                                  &rule.signedMessage, &rule.replyToSigned, &rule.checkBounce})
        *condition = false;
}

class CMessageRule {
public:
    CMessageRule() = default;  // dirty: it is nowhere yet
    CMessageRule(std::uint32_t id, RuleFields fields) : m_fields(std::move(fields)), m_id(id), m_isDirty(false) {}

    std::uint32_t GetId() const noexcept { return m_id; }  // 0 until it is stored; stays when rules are moved
    const RuleFields& Get() const noexcept { return m_fields; }
    RuleFields& Edit() noexcept {  // messages are shared between copies of a rule: replace them, do not change them
        m_isDirty = true;
        return m_fields;
    }
    bool IsDirty() const noexcept { return m_isDirty; }

    // What of it could not be read, so that it was loaded disabled; "" of a rule that is whole.
    const std::string& GetFault() const noexcept { return m_fault; }
    void SetFault(std::string fault) { m_fault = std::move(fault); }
    void SetStored(std::uint32_t id) noexcept {
        m_id = id;
        m_isDirty = false;
        m_fault.clear();
    }

private:
    RuleFields m_fields;
    std::string m_fault;
    std::uint32_t m_id = 0;
    bool m_isDirty = true;
};

#endif  // LISTHAVEN_ENGINE_RULES_MESSAGERULE_H
