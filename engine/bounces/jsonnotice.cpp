#include "engine/bounces/jsonnotice.h"

#include <algorithm>
#include <string>

#include "engine/bounces/recipientverdict.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxRecipients = 100;

// The string that stands for a key in text, from a place on; "" when there is
// none.  Line breaks, which transport has put in, are left out.
std::string StringOf(std::string_view text, std::string_view key) {
    const std::string quoted = '"' + std::string(key) + '"';
    std::size_t at = text.find(quoted);
    if (at == std::string_view::npos) return {};
    at = text.find_first_not_of(" \t\n:", at + quoted.size());
    if (at == std::string_view::npos || text[at] != '"') return {};
    std::string value;
    for (++at; at < text.size() && text[at] != '"'; ++at) {
        if (text[at] == '\n') continue;
        if (text[at] == '\\' && at + 1 < text.size()) ++at;
        value += text[at];
    }
    return value;
}

// The array that stands for a key, up to its end.
std::string_view ArrayOf(std::string_view text, std::string_view key) {
    const std::size_t at = text.find('"' + std::string(key) + '"');
    if (at == std::string_view::npos) return {};
    const std::size_t end = text.find(']', at);
    return text.substr(at, end == std::string_view::npos ? end : end - at);
}

void ReadRecipients(std::string_view array, std::string_view bounceType, CBounceReport& report) {
    constexpr std::string_view Key = "\"emailAddress\"";
    for (std::size_t at = array.find(Key); at != std::string_view::npos && report.recipients.size() < MaxRecipients;) {
        const std::size_t next = array.find(Key, at + Key.size());
        const std::string_view object = array.substr(at, next == std::string_view::npos ? next : next - at);
        CBouncedRecipient recipient;
        recipient.address = OneLine(StringOf(object, "emailAddress"));
        CStatusCode status;
        ReadStatusCode(StringOf(object, "status"), status);
        if (!status && bounceType == "Permanent") status = {5, 1, 0};
        if (!status && bounceType == "Transient") status = {4, 0, 0};
        std::string diagnostic = StringOf(object, "diagnosticCode");
        if (diagnostic.starts_with("smtp;")) diagnostic.erase(0, 5);
        JudgeRecipient(recipient, status, diagnostic, {});
        if (report.kind == NoticeKind::AbuseReport) recipient.bounceClass = BounceClass::Blocked;
        if (!recipient.address.empty()) report.recipients.push_back(std::move(recipient));
        at = next;
    }
}

}  // namespace

bool ReadJsonNotice(std::string_view text, CBounceReport& report) {
    if (!TrimLeft(text).starts_with('{')) return false;
    std::string plain(text);
    ReplaceAll(plain, "\\\"", "\"");  // of a notice that is a string of another one
    std::string type = StringOf(plain, "notificationType");
    if (type.empty()) type = StringOf(plain, "eventType");
    if (type == "Delivery") {
        report.kind = NoticeKind::Success;
    } else if (type == "Bounce") {
        report.kind = NoticeKind::Bounce;
        ReadRecipients(ArrayOf(plain, "bouncedRecipients"), StringOf(plain, "bounceType"), report);
    } else if (type == "Complaint") {
        report.kind = NoticeKind::AbuseReport;
        ReadRecipients(ArrayOf(plain, "complainedRecipients"), {}, report);
    } else {
        return false;
    }
    return true;
}
