#include "engine/incoming/listheaders.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>
#include <vector>

#include "engine/messagetemplate.h"
#include "engine/utf8text.h"
#include "mime/mailbox.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MostFurther = 200;  // fields that no reader needs
constexpr std::size_t MostFurtherSize = 32768;
constexpr std::size_t LongestField = 16384;
constexpr std::size_t MostLoopMarks = 20;

constexpr auto ForeignFields = std::to_array<std::string_view>({"Received",
                                                                "Return-Path",
                                                                "Delivered-To",
                                                                "X-Delivered-To",
                                                                "Envelope-To",
                                                                "X-Envelope-To",
                                                                "X-Envelope-From",
                                                                "X-Original-To",
                                                                "X-Received",
                                                                "Apparently-To",
                                                                "Errors-To",
                                                                "Received-SPF",
                                                                "Authentication-Results",
                                                                "X-Authentication-Results",
                                                                "DKIM-Signature",
                                                                "X-Google-DKIM-Signature",
                                                                "DomainKey-Signature",
                                                                "Disposition-Notification-To",
                                                                "Disposition-Notification-Options",
                                                                "Return-Receipt-To",
                                                                "Return-Receipt-Requested",
                                                                "Generate-Delivery-Report",
                                                                "X-Confirm-Reading-To",
                                                                "Read-Receipt-To",
                                                                "Mail-Followup-To",
                                                                "Precedence",
                                                                "BCC",
                                                                "Approved",
                                                                "X-Approved",
                                                                "X-No-Archive",
                                                                "Status",
                                                                "X-Status",
                                                                "X-UIDL",
                                                                "X-Mozilla-Status",
                                                                "Lines",
                                                                "Content-Length"});

constexpr auto ForeignStarts = std::to_array<std::string_view>({"ARC-", "List-", "Resent-", "X-Lhv-", "X-Zq-"});

constexpr auto NeededFields = std::to_array<std::string_view>(
    {"From", "To", "Reply-To", "CC", "Sender", "Subject", "Date", "MIME-Version", "Message-ID", "In-Reply-To",
     "References", "X-Priority", "Auto-Submitted", "Content-Type", "Content-Transfer-Encoding", "Content-Disposition",
     "Content-ID", "Content-Description", "Content-Language"});

bool IsOneOf(std::string_view name, std::span<const std::string_view> names) noexcept {
    return std::any_of(names.begin(), names.end(), [name](std::string_view one) { return EqualNoCase(name, one); });
}

bool IsForeign(std::string_view name) noexcept {
    // Some programs leave such bytes out, and then read another name.
    if (std::any_of(name.begin(), name.end(), [](char c) { return c <= ' ' || c > '~'; })) return true;
    if (IsOneOf(name, ForeignFields)) return true;
    return std::any_of(ForeignStarts.begin(), ForeignStarts.end(),
                       [name](std::string_view start) { return StartsWithNoCase(name, start); });
}

// May stand once; what a stranger says twice could be read in two ways.
bool StandsOnce(std::string_view name) noexcept {
    return IsOneOf(name, NeededFields);
}

bool IsLoopMark(std::string_view name) noexcept {
    return EqualNoCase(name, "X-Loop") || EqualNoCase(name, "X-ZQ-Loop");
}

// For the value of a mailto URL (RFC 6068).
std::string Escaped(std::string_view text) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                             std::string_view("-._~@").find(c) != std::string_view::npos;
        if (isPlain)
            result += c;
        else
            result.append({'%', Digits[byte >> 4], Digits[byte & 15]});
    }
    return result;
}

// "news.harbour.example" of "news@harbour.example".
std::string ListIdentifier(const BroadcastList& list) {
    std::string id = LowerAscii(list.address.empty() ? list.commandAddress : list.address);
    std::replace(id.begin(), id.end(), '@', '.');
    const bool isPlain =
        !id.empty() && id.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-._+") == std::string::npos;
    return isPlain ? id : LowerAscii(list.guid) + ".listhaven.invalid";
}

std::string ListPhrase(const BroadcastList& list) {
    const bool isPlain = !list.name.empty() && IsAsciiText(list.name) && list.name.find("$(") == std::string::npos &&
                         list.name.find("=?") == std::string::npos;
    if (!isPlain) return {};
    const std::string mailbox = FormatMailbox({list.name, "x"});
    return mailbox.substr(0, mailbox.size() - 3);  // without "<x>"
}

void RemoveAll(CMimeHeader& header, const char* name) {
    while (header.HasField(name))
        header.RemoveField(name);
}

}  // namespace

void RemoveForeignFields(CMimeHeader& header) {
    std::vector<std::string> seen;
    CMimeHeader kept;  // one by one they would be taken out in quadratic time
    std::size_t further = 0;
    std::size_t furtherSize = 0;
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        const CMimeField& field = header.GetStoredField(i);
        bool isKept = !IsForeign(field.name) || IsLoopMark(field.name);
        if (isKept && StandsOnce(field.name)) {
            const std::string name = LowerAscii(field.name);
            isKept = field.value.size() <= LongestField && std::find(seen.begin(), seen.end(), name) == seen.end();
            if (isKept) seen.push_back(name);
        } else if (isKept) {
            furtherSize += field.name.size() + field.value.size();
            isKept = ++further <= MostFurther && furtherSize <= MostFurtherSize;
        }
        if (!isKept) continue;
        kept.AddField(field.name, "-");
        std::string value = field.value;
        std::erase(value, '\0');
        kept.SetStoredField(kept.GetFieldCount() - 1, value);
    }
    header = std::move(kept);
}

void AddListFields(CMimeHeader& header, const BroadcastList& list, bool membersPost) {
    header.SetField("Precedence", "list");
    header.SetField("List-Id", ListPhrase(list) + "<" + ListIdentifier(list) + ">");
    header.SetField("List-Post",
                    membersPost && !list.address.empty() ? "<mailto:" + Escaped(list.address) + ">" : "NO");
    if (list.commandAddress.empty()) return;
    constexpr std::array<std::pair<const char*, std::string_view>, 3> Commands = {
        {{"List-Help", "HELP"}, {"List-Subscribe", "SUBSCRIBE"}, {"List-Unsubscribe", "UNSUBSCRIBE"}}};
    for (const auto& [field, command] : Commands) {
        const std::string quoted = "\"" + std::string(command) + "\"";
        if (FindNoCase(list.usage, quoted) == std::string_view::npos) continue;
        header.SetField(field, "<mailto:" + Escaped(list.commandAddress) + "?subject=" + std::string(command) + ">");
    }
}

void AddLoopMarks(CMimeHeader& header, const BroadcastList& list) {
    const std::string& own = list.commandAddress.empty() ? list.address : list.commandAddress;
    for (const char* name : {"X-Loop", "X-ZQ-Loop"}) {
        std::vector<std::string> marks;
        for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
            if (EqualNoCase(header.GetStoredField(i).name, name)) marks.push_back(OneLine(header.DecodeField(i)));
        }
        RemoveAll(header, name);
        header.AddField(name, "-");  // each copy puts its own mark into the first one
        for (const std::string* address : {&list.address, &own}) {
            const bool isNew = std::find(marks.begin(), marks.end(), *address) == marks.end();
            if (!address->empty() && isNew) marks.push_back(*address);
        }
        const std::size_t first = marks.size() > MostLoopMarks ? marks.size() - MostLoopMarks : 0;
        for (std::size_t i = first; i < marks.size(); ++i) {
            if (marks[i].size() < 320 && marks[i].find("$(") == std::string::npos) header.AddField(name, marks[i]);
        }
    }
}

void SetEnvelopeSender(CMimeHeader& header, std::string_view text, const BroadcastList& list) {
    RemoveAll(header, ControlHeader::ReturnPathOverride);
    const std::string& own = list.commandAddress.empty() ? list.address : list.commandAddress;
    const bool isEmpty = text.empty() && (list.emptySender || own.empty());
    header.SetField(ControlHeader::ReturnPathOverride, isEmpty ? "<>" : text.empty() ? own : std::string(text));
}
