#include "programs/listhaven/rulejson.h"

#include <algorithm>
#include <array>
#include <optional>

#include "engine/rules/rulefieldnames.h"
#include "mime/transferencoding.h"
#include "programs/listhaven/command.h"
#include "programs/listhaven/jsonoutput.h"
#include "utility/files.h"
#include "utility/text.h"

namespace {

namespace json = boost::json;

struct KindName {
    RuleBounceKind kind;
    std::string_view name;
};
constexpr std::array KindNames = {KindName{RuleBounceKind::Any, "any"}, KindName{RuleBounceKind::Hard, "hard"},
                                  KindName{RuleBounceKind::Soft, "soft"}, KindName{RuleBounceKind::Blocked, "blocked"}};

constexpr std::array<std::string_view, CParseField::FirstSlot> TargetNames = {"Email", "Name", "First-Name",
                                                                              "Last-Name"};

[[noreturn]] void FailOn(std::string_view key, const std::string& what) {
    throw CCommandFailure(std::string(key) + ": " + what);
}

RuleBounceKind BounceKindOf(std::string_view key, std::string_view text) {
    for (const KindName& each : KindNames) {
        if (EqualNoCase(each.name, text) || std::to_string(static_cast<int>(each.kind)) == text) return each.kind;
    }
    FailOn(key, "use any, hard, soft or blocked");
}

bool FlagOf(std::string_view key, std::string_view text) {
    for (const std::string_view yes : {"1", "yes", "on", "true"}) {
        if (EqualNoCase(text, yes)) return true;
    }
    for (const std::string_view no : {"0", "no", "off", "false"}) {
        if (EqualNoCase(text, no)) return false;
    }
    FailOn(key, "use yes or no");
}

std::int32_t DigestModeOf(std::string_view key, std::string_view text) {
    return text == "2" || FlagOf(key, text) ? DigestModeOn : DigestModeOff;
}

std::string TargetName(std::int32_t target, const CCustomFields& fields) {
    if (target >= 0 && target < CParseField::FirstSlot)
        return std::string(TargetNames[static_cast<std::size_t>(target)]);
    const std::int32_t slot = target - CParseField::FirstSlot;
    const bool isNamed = slot >= 0 && slot < CCustomFields::SlotCount && !fields.GetSlot(slot).IsFree();
    return isNamed ? fields.GetSlot(slot).name : "slot " + std::to_string(slot);
}

std::int32_t TargetOf(std::string_view name, const CCustomFields& fields) {
    for (std::size_t i = 0; i < TargetNames.size(); ++i) {
        if (EqualNoCase(TargetNames[i], name)) return static_cast<std::int32_t>(i);
    }
    int slot = fields.FindSlot(name);
    if (slot < 0 && StartsWithNoCase(name, "slot ")) slot = static_cast<int>(ParseNumber(name.substr(5)).value_or(-1));
    if (slot < 0 || slot >= CCustomFields::SlotCount)
        FailOn("parseFields", "the list has no field \"" + std::string(name) + "\"");
    return CParseField::FirstSlot + slot;
}

json::value MessageAsJson(const CMimeMessage& message) {
    const std::string text = message.GetText();
    if (IsValidUtf8(text)) return JsonText(text);
    std::string encoded;
    EncodeBase64(text.data(), text.data() + text.size(), encoded);
    return json::object{{"base64", JsonText(CrLfToLf(encoded))}};
}

json::array ParseFieldsAsJson(const std::vector<CParseField>& parseFields, const CCustomFields& fields) {
    json::array array;
    for (const CParseField& field : parseFields) {
        json::object object{{"target", JsonText(TargetName(field.target, fields))},
                            {"source", field.fromBody ? "body" : "header"},
                            {"pattern", JsonText(field.pattern)},
                            {"format", JsonText(field.format)},
                            {"trim", field.trim}};
        if (CFormField form; RecognizeFormField(field.pattern, form)) {
            object["formField"] = JsonText(form.name);
            if (form.hasTerminator) object["terminator"] = JsonText(form.terminator);
        }
        array.push_back(std::move(object));
    }
    return array;
}

std::string TextOf(std::string_view key, const json::value& value) {
    if (!value.is_string()) FailOn(key, "a text is wanted");
    return std::string(value.get_string());
}

bool FlagOf(std::string_view key, const json::value& value) {
    if (!value.is_bool()) FailOn(key, "true or false is wanted");
    return value.get_bool();
}

std::vector<std::string> ListOf(std::string_view key, const json::value& value) {
    if (!value.is_array()) FailOn(key, "an array of texts is wanted");
    std::vector<std::string> entries;
    for (const json::value& entry : value.get_array())
        entries.push_back(TextOf(key, entry));
    return entries;
}

CMimeMessage MessageFromText(std::string_view key, const std::string& text) {
    CMimeMessage message;
    if (text.empty()) return message;
    if (!message.LoadText(text)) FailOn(key, "this is no message");
    return message;
}

CMimeMessage MessageOf(std::string_view key, const json::value& value) {
    const json::object* const object = value.if_object();
    const json::value* const encoded = object ? object->if_contains("base64") : nullptr;
    return MessageFromText(key, encoded ? DecodeBase64Text(TextOf(key, *encoded)) : TextOf(key, value));
}

// The simple notation, "NAME: value", in place of a pattern.
void TakeFormField(const json::object& object, CParseField& field) {
    const json::value* const name = object.if_contains("formField");
    const json::value* const terminator = object.if_contains("terminator");
    if (name == nullptr && terminator != nullptr) FailOn("terminator", "it needs a formField");
    if (name == nullptr) return;
    CFormField form{TextOf("formField", *name), terminator != nullptr, {}};
    if (terminator != nullptr) form.terminator = TextOf("terminator", *terminator);
    CParseField made;
    std::string reason;
    if (!MakeParseField(form, &made, reason)) FailOn("formField", reason);
    if (!field.pattern.empty() && field.pattern != made.pattern) FailOn("formField", "the pattern says something else");
    field.pattern = made.pattern;
}

CParseField ParseFieldOf(const json::value& value, const CCustomFields& fields) {
    if (!value.is_object()) FailOn("parseFields", "an array of objects is wanted");
    CParseField field;
    field.format = "$1";
    for (const auto& [key, content] : value.get_object()) {
        if (key == "target") {
            field.target = TargetOf(TextOf("target", content), fields);
        } else if (key == "source") {
            const std::string source = TextOf("source", content);
            if (source != "body" && source != "header") FailOn("source", "use body or header");
            field.fromBody = source == "body";
        } else if (key == "pattern") {
            field.pattern = TextOf("pattern", content);
        } else if (key == "format") {
            field.format = TextOf("format", content);
        } else if (key == "trim") {
            field.trim = FlagOf("trim", content);
        } else if (key != "formField" && key != "terminator") {
            FailOn("parseFields", "there is no \"" + std::string(key) + "\"");
        }
    }
    TakeFormField(value.get_object(), field);
    return field;
}

std::vector<CParseField> ParseFieldsOf(const json::value& value, const CCustomFields& fields) {
    if (!value.is_array()) FailOn("parseFields", "an array of objects is wanted");
    std::vector<CParseField> parseFields;
    for (const json::value& field : value.get_array())
        parseFields.push_back(ParseFieldOf(field, fields));
    return parseFields;
}

// False when there is no such field.
bool TakeJson(RuleFields& rule, std::string_view wanted, const json::value& value, const CCustomFields& fields) {
    bool found = true;
    if (wanted == "bounceKind") {
        rule.bounceKind = BounceKindOf(wanted, TextOf(wanted, value));
    } else if (wanted == "digestMode") {
        rule.digestMode = DigestModeOf(wanted, TextOf(wanted, value));
    } else if (wanted == "parseFields") {
        rule.parseFields = ParseFieldsOf(value, fields);
    } else {
        found = false;
    }
    const auto take = [&](std::string_view key, const auto& read) {
        if (key != wanted) return;
        found = true;
        read();
    };
    VisitRuleFlags(
        rule, [&](std::string_view key, RuleColumn, bool& flag) { take(key, [&] { flag = FlagOf(key, value); }); });
    VisitRuleTexts(rule, [&](std::string_view key, RuleColumn, std::string& text) {
        take(key, [&] { text = TextOf(key, value); });
    });
    VisitRuleLists(rule, [&](std::string_view key, RuleFile, std::vector<std::string>& entries) {
        take(key, [&] { entries = ListOf(key, value); });
    });
    VisitRuleMessages(rule, [&](std::string_view key, RuleFile, CMimeMessage& message) {
        take(key, [&] { message = MessageOf(key, value); });
    });
    return found;
}

bool IsRegexList(const RuleFields& rule, RuleFile file) {
    switch (file) {
        case RuleFile::FromAddresses:
            return rule.fromOptions.regex;
        case RuleFile::ToAddresses:
            return rule.toOptions.regex;
        case RuleFile::SubjectWords:
            return rule.subjectOptions.regex;
        case RuleFile::BodyWords:
            return rule.bodyOptions.regex;
        default:
            return false;
    }
}

std::vector<std::string> SplitEntries(const std::string& value, bool isRegex) {
    const bool hasLines = value.find('\n') != std::string::npos;
    std::vector<std::string> entries;
    for (const std::string_view entry : Split(value, hasLines || isRegex ? '\n' : ',')) {
        if (!Trim(entry).empty()) entries.emplace_back(isRegex ? TrimRight(entry) : Trim(entry));
    }
    return entries;
}

std::string ValueOf(std::string_view key, const std::string& value) {
    if (!value.starts_with('@')) return value;
    std::string content;
    if (!ReadWholeFile(value.substr(1), content)) FailWithLastError(std::string(key));
    return content;
}

}  // namespace

json::object RuleAsJson(const RuleFields& rule, const CCustomFields& fields) {
    json::object document;
    VisitRuleTexts(rule,
                   [&](std::string_view key, RuleColumn, const std::string& text) { document[key] = JsonText(text); });
    VisitRuleFlags(rule, [&](std::string_view key, RuleColumn, bool flag) { document[key] = flag; });
    VisitRuleLists(rule, [&](std::string_view key, RuleFile, const std::vector<std::string>& entries) {
        json::array array;
        for (const std::string& entry : entries)
            array.emplace_back(JsonText(entry));
        document[key] = std::move(array);
    });
    VisitRuleMessages(rule, [&](std::string_view key, RuleFile, const CMimeMessage& message) {
        document[key] = MessageAsJson(message);
    });
    document["bounceKind"] = JsonText(BounceKindName(rule.bounceKind));
    document["digestMode"] = rule.digestMode == DigestModeOn ? "on" : "off";
    document["parseFields"] = ParseFieldsAsJson(rule.parseFields, fields);
    return document;
}

RuleFields RuleFromJson(const json::value& document, const CCustomFields& fields) {
    if (!document.is_object()) throw CCommandFailure("a rule is a JSON object");
    RuleFields rule;
    for (const auto& [key, value] : document.get_object()) {
        if (key == "number" || key == "id" || key == "fault") continue;
        if (!TakeJson(rule, key, value, fields)) FailOn(key, "a rule has no such field");
    }
    return rule;
}

void SetRuleField(RuleFields& rule, std::string_view key, const std::string& value, const CCustomFields& fields) {
    if (key == "allMessages") {
        if (!FlagOf(key, std::string_view(value))) FailOn(key, "use yes; each condition is set by its own key");
        return ClearConditions(rule);
    }
    std::optional<json::value> converted;
    VisitRuleFlags(rule, [&](std::string_view each, RuleColumn, bool) {
        if (each == key) converted = FlagOf(key, std::string_view(value));
    });
    VisitRuleLists(rule, [&](std::string_view each, RuleFile file, std::vector<std::string>& entries) {
        if (each != key) return;
        entries = SplitEntries(CrLfToLf(ValueOf(key, value)), IsRegexList(rule, file));
        converted = RuleAsJson(rule, fields).at(key);
    });
    VisitRuleMessages(rule, [&](std::string_view each, RuleFile, CMimeMessage& message) {
        if (each != key) return;
        if (!value.empty() && !value.starts_with('@')) FailOn(key, "name the file of the message, as in @reply.eml");
        message = MessageFromText(key, ValueOf(key, value));
        converted = MessageAsJson(message);
    });
    if (key == "parseFields") {
        boost::system::error_code fault;
        converted = json::parse(ValueOf(key, value), fault);
        if (fault) FailOn(key, "this is no JSON: " + fault.message());
    }
    if (!TakeJson(rule, key, converted ? *converted : json::value(JsonText(value)), fields))
        FailOn(key, "a rule has no such field");
}

std::vector<RuleFieldText> RuleAsTexts(const RuleFields& rule, const CCustomFields& fields) {
    std::vector<RuleFieldText> texts;
    RuleFields plain;
    plain.name.clear();
    plain.enabled = !rule.enabled;
    const json::object defaults = RuleAsJson(plain, fields);
    for (const auto& [key, value] : RuleAsJson(rule, fields)) {
        if (value == defaults.at(key)) continue;
        std::string text;
        if (const json::array* const array = value.if_array(); array && key != "parseFields") {
            for (const json::value& entry : *array)
                text += (text.empty() ? "" : "\n") + std::string(entry.get_string());
        } else if (value.is_string()) {
            text = value.get_string();
        } else {
            text = value.is_bool() ? (value.get_bool() ? "yes" : "no") : json::serialize(value);
        }
        texts.push_back({key, text});
    }
    return texts;
}

std::string_view BounceKindName(RuleBounceKind kind) noexcept {
    const auto found =
        std::find_if(KindNames.begin(), KindNames.end(), [kind](const KindName& each) { return each.kind == kind; });
    return found == KindNames.end() ? std::string_view() : found->name;
}
