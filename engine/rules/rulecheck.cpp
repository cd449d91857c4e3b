#include <algorithm>

#include "engine/rules/boundedregex.h"
#include "engine/rules/rulefieldnames.h"
#include "engine/rules/rulestore.h"
#include "utility/text.h"

namespace {

constexpr std::size_t EntryLimit = 1024;  // bytes, of the columns
constexpr std::size_t NameLimit = 256;
constexpr std::size_t TextLimit = 512;
constexpr std::size_t FormatLimit = 1024;

bool IsOneLine(std::string_view text) {
    return text.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

std::string Quoted(std::string_view text) {
    return "\"" + OneLine(text.substr(0, 80)) + "\"";
}

std::string CheckTexts(const RuleFields& rule) {
    std::string fault;
    VisitRuleTexts(rule, [&](std::string_view key, RuleColumn column, const std::string& text) {
        const std::size_t limit = column == RuleColumn::Name ? NameLimit : TextLimit;
        if (!fault.empty()) return;
        if (!IsOneLine(text)) fault = std::string(key) + " must be one line.";
        if (!IsValidUtf8(text)) fault = std::string(key) + " is not UTF-8.";
        if (text.size() > limit) fault = std::string(key) + " takes at most " + std::to_string(limit) + " bytes.";
    });
    VisitRuleLists(rule, [&](std::string_view key, RuleFile, const std::vector<std::string>& entries) {
        for (const std::string& entry : entries) {
            if (!fault.empty()) return;
            if (Trim(entry).empty()) fault = std::string(key) + " holds an empty entry.";
            if (!IsOneLine(entry)) fault = std::string(key) + " holds an entry of several lines.";
            if (!IsValidUtf8(entry)) fault = std::string(key) + " holds an entry that is not UTF-8.";
            if (entry.size() > EntryLimit) fault = std::string(key) + ": an entry takes at most 1024 bytes.";
        }
    });
    return fault;
}

std::string CheckPatterns(const std::vector<std::string>& patterns) {
    std::string reason;
    for (const std::string& pattern : patterns) {
        if (!CheckPattern(pattern, reason)) return Quoted(pattern) + " is no regular expression: " + reason;
    }
    return {};
}

std::string CheckParseFields(const std::vector<CParseField>& fields) {
    std::string reason;
    for (const CParseField& field : fields) {
        if (field.pattern.empty() || !IsOneLine(field.pattern) || !IsOneLine(field.format)) {
            return "A parse field needs a pattern and a format of one line.";
        }
        if (!IsValidUtf8(field.pattern) || !IsValidUtf8(field.format)) return "A parse field is not UTF-8.";
        if (field.format.size() > FormatLimit) return "The format of a parse field takes at most 1024 bytes.";
        if (field.target < 0 || field.target >= CParseField::FirstSlot + 64) {
            return "A parse field names a member field that there is not.";
        }
        if (!CheckPattern(field.pattern, reason)) return Quoted(field.pattern) + " is no regular expression: " + reason;
    }
    return {};
}

bool IsMissing(const CMimeMessage& message) {
    return !message.GetRoot();
}

bool IsNobody(const RuleMembers& members) {
    return !members.subscribers || (!members.regular && !members.digestOnly);
}

// What an enabled condition or action lacks.
std::string CheckWhole(const RuleFields& rule) {
    const struct {
        bool isMissing;
        const char* text;
    } needs[] = {
        {rule.checkFrom && rule.fromAddresses.empty() && IsNobody(rule.fromOptions.members),
         "The From condition has neither addresses nor subscribers."},
        {rule.checkTo && rule.toAddresses.empty() && IsNobody(rule.toOptions.members),
         "The To condition has neither addresses nor subscribers."},
        {rule.checkSubject && rule.subjectWords.empty(), "The subject condition has no words."},
        {rule.checkBody && rule.bodyWords.empty(), "The body condition has no words."},
        {rule.reply && IsMissing(rule.replyMessage), "The rule replies, but has no reply message."},
        {rule.sendMessage && IsMissing(rule.messageToSend), "The rule sends a message, but has none."},
        {rule.sendMessage && rule.sendToAddresses.empty() && IsNobody(rule.sendToMembers),
         "The rule sends a message, but to nobody."},
        {rule.forward && rule.forwardAddresses.empty() && IsNobody(rule.forwardMembers),
         "The rule forwards the message, but to nobody."},
        {rule.addHeader && IsMissing(rule.header), "The rule adds a header, but has none."},
        {rule.addFooter && IsMissing(rule.footer), "The rule adds a footer, but has none."},
        {rule.subjectTag && Trim(rule.subjectTagText).empty(), "The rule tags the subject, but has no tag."},
    };
    for (const auto& need : needs) {
        if (need.isMissing) return need.text;
    }
    const struct {
        const RuleOverride& entry;
        const char* line;
    } overrides[] = {
        {rule.fromOverride, "From"},       {rule.replyToOverride, "Reply-To"},       {rule.toOverride, "To"},
        {rule.subjectOverride, "Subject"}, {rule.returnPathOverride, "Return-Path"}, {rule.senderOverride, "Sender"}};
    for (const auto& each : overrides) {
        if (each.entry.on && Trim(each.entry.text).empty()) {
            return std::string("The rule overrides the ") + each.line + " line, but has no text for it.";
        }
    }
    return {};
}

}  // namespace

std::string CheckRule(const RuleFields& rule, std::span<const CMessageRule> others, std::uint32_t ownId) {
    if (Trim(rule.name).empty()) return "Please enter a name for this rule.";
    for (const CMessageRule& other : others) {
        const bool isOwn = ownId != 0 && other.GetId() == ownId;
        if (!isOwn && EqualNoCase(Trim(other.Get().name), Trim(rule.name))) {
            return "There is already a rule with this name. Please enter a different name.";
        }
    }
    if (std::string fault = CheckTexts(rule); !fault.empty()) return fault;
    const struct {
        bool isRegex;
        const std::vector<std::string>& patterns;
    } lists[] = {{rule.fromOptions.regex, rule.fromAddresses},
                 {rule.toOptions.regex, rule.toAddresses},
                 {rule.subjectOptions.regex, rule.subjectWords},
                 {rule.bodyOptions.regex, rule.bodyWords}};
    for (const auto& list : lists) {
        if (!list.isRegex) continue;
        if (std::string fault = CheckPatterns(list.patterns); !fault.empty()) return fault;
    }
    if (std::string fault = CheckParseFields(rule.parseFields); !fault.empty()) return fault;
    if (rule.digestMode != DigestModeOn && rule.digestMode != DigestModeOff)
        return "The digest mode is neither on nor off.";
    return rule.enabled ? CheckWhole(rule) : std::string();
}
