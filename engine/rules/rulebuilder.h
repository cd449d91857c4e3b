// rulebuilder.h - makes the standard rules, and the usage text that goes with
// them.
//
// Addresses and names are data fields, which are expanded when a rule is
// applied; so a list can change its address and keeps its rules.
//
// Errors   CLhvException: an unknown bounce mode is an internal error; storing
//          fails as CRuleStore says.
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_RULES_RULEBUILDER_H
#define LISTHAVEN_ENGINE_RULES_RULEBUILDER_H

#include <string>
#include <string_view>
#include <vector>

#include "engine/catalogue.h"
#include "engine/rules/messagerule.h"

class CRuleStore;

class CRuleBuilder {
public:
    static constexpr int IgnoreBounces = 0;
    static constexpr int RemoveBouncing = 1;
    static constexpr int RemoveHardBouncing = 2;

    CRuleBuilder() { Reset(); }

    void Reset();
    void SetDisplayName(std::string_view name) { m_displayName = name; }
    void SetListAddress(std::string_view address) { m_listAddress = address; }
    void SetCommandAddress(std::string_view address) { m_commandAddress = address; }
    void SetRemoveMatched(bool on) noexcept { m_removeMatched = on; }  // from the POP3 server
    void SetAddToDigest(bool on) noexcept { m_addToDigest = on; }
    void SetTagSubject(bool on) noexcept { m_tagSubject = on; }

    // Messages without a root: no reply.  A command that is "" is none: every
    // message to the address.
    void AddSubscribeStep1(const CMimeMessage& confirmationRequest, std::string_view command = "SUBSCRIBE");
    void AddSubscribeStep2(const CMimeMessage& confirmationRequest, const CMimeMessage& welcome);
    void AddUnsubscribe(const CMimeMessage& goodbye, std::string_view command = "UNSUBSCRIBE");
    void AddDigestOn(const CMimeMessage& reply, std::string_view command = "DIGEST ON");
    void AddDigestOff(const CMimeMessage& reply, std::string_view command = "DIGEST OFF");
    void AddHelp(const CMimeMessage& help, std::string_view command = "HELP");
    void AddBroadcast(const CMimeMessage& invalidFormatReply);
    void AddAuthorizedBroadcast(const CMimeMessage& invalidFormatReply);
    void AddAutoresponse(const CMimeMessage& response, std::string_view keyword);
    void AddBounceMessages(const CMimeMessage& reply);
    void AddBounceCommandMessages(const CMimeMessage& reply);
    void AddHandleBounces(int mode);
    void AddRemoveFromServer();

    const std::vector<CMessageRule>& GetRules() const noexcept { return m_rules; }
    std::vector<CMessageRule>& GetRules() noexcept { return m_rules; }
    const std::string& GetUsage() const noexcept { return m_usage; }

    void WriteTo(CRuleStore& store);  // appends all, in this order, in one step

private:
    CMessageRule& Begin(std::string_view defaultName);
    std::string UniqueName(std::string_view defaultName) const;
    void SetCommand(RuleFields& rule, std::string_view address, std::string_view command, const CMimeMessage& reply);
    void SetForward(RuleFields& rule, const CMimeMessage& invalidFormatReply);
    void AddUsage(const char* format, std::string_view address, std::string_view command,
                  std::string_view subject = {});
    std::string ListSender() const;

    std::vector<CMessageRule> m_rules;
    bool m_removeMatched = false;
    bool m_addToDigest = true;
    bool m_tagSubject = false;
    std::string m_usage;
    std::string m_displayName;
    std::string m_listAddress;
    std::string m_commandAddress;
};

// The rules of a new list with the standard texts.  How its account treats
// copies on the POP3 server decides what the rules remove there.
void BuildStandardRules(CRuleBuilder& builder, ListKind kind, bool leavesCopies, bool removesMatched);

#endif  // LISTHAVEN_ENGINE_RULES_RULEBUILDER_H
