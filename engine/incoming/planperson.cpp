#include "engine/incoming/planperson.h"

#include <algorithm>

#include "engine/customfields.h"
#include "utility/text.h"

bool ListsItsSenders(const RuleFields& rule) noexcept {
    return rule.checkFrom && !rule.fromAddresses.empty() && !rule.fromOptions.members.subscribers;
}

CPerson FindPerson(const RuleFields& rule, const CIncomingMessage& message, IListView& list) {
    CPerson person;
    person.member.address = Trim(message.sender.address);
    person.member.name = message.sender.displayName;
    if (rule.parseFields.empty()) return person;
    CCustomFields customFields;
    customFields.Load(list.GetList().number);
    std::string email;
    CMember parsed = person.member;
    person.hasParsed = ExtractParseFields(rule.parseFields, message, customFields, parsed, email);
    const bool isForm = ListsItsSenders(rule) &&
                        std::any_of(rule.parseFields.begin(), rule.parseFields.end(),
                                    [](const CParseField& field) { return field.target == CParseField::Email; });
    if (email.empty() && isForm) {
        person.remark = "the message names no address (Email field of the rule)";
        person.member = CMember();  // and not the address of the form
    } else if (email.empty() || EqualNoCase(email, person.member.address)) {
        person.member = std::move(parsed);
    } else if (isForm) {
        person.remark = "the message is about " + OneLine(email) + " (Email field of the rule)";
        if (parsed.name == message.sender.displayName) parsed.name.clear();  // that of the form
        person.member = std::move(parsed);
        person.member.address = email;
    } else {
        person.remark =
            "the address in the message does not count: the rule's From condition must list addresses, and no members";
        person.member = std::move(parsed);
    }
    return person;
}

std::string DescribeMembers(const RuleMembers& members) {
    if (members.regular && members.digestOnly) return "members";
    return members.regular ? "regular members" : "digest members";
}
