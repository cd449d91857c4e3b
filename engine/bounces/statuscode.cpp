#include "engine/bounces/statuscode.h"

#include <algorithm>
#include <array>

#include "utility/text.h"

namespace {

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

bool IsLetterOrDigit(char c) noexcept {
    const char lower = ToLowerAscii(c);
    return IsDigit(c) || (lower >= 'a' && lower <= 'z');
}

// Up to three digits; 0 when there are none or more.
std::size_t ReadNumber(std::string_view text, int& number) noexcept {
    std::size_t count = 0;
    number = 0;
    while (count < text.size() && IsDigit(text[count])) {
        if (count == 3) return 0;
        number = number * 10 + (text[count++] - '0');
    }
    return count;
}

bool IsReplyCodeAt(std::string_view text) noexcept {
    if (text.size() < 3 || (text[0] != '4' && text[0] != '5') || text[1] > '5' || !IsDigit(text[1]) ||
        !IsDigit(text[2]))
        return false;
    return text.size() == 3 || std::string_view(" \t\r\n-:;,'\"<)#]").find(text[3]) != std::string_view::npos;
}

// Whether a reply code may stand behind this, the text before it.
bool InvitesCode(std::string_view before) noexcept {
    const std::size_t end = before.find_last_not_of(" \t");
    if (end == std::string_view::npos || before[end] == '\n') return true;
    if (std::string_view(":;<>([\"'#=.-*|").find(before[end]) != std::string_view::npos)
        return end + 1 < before.size() || before[end] != '.';
    std::size_t start = end + 1;
    while (start > 0 && IsLetterOrDigit(before[start - 1]))
        --start;
    constexpr std::array<std::string_view, 12> Words = {"said",  "error", "code",    "returned", "status",   "smtp",
                                                        "reply", "with",  "reports", "says",     "response", "of"};
    return std::any_of(Words.begin(), Words.end(),
                       [&](std::string_view word) { return EqualNoCase(before.substr(start, end + 1 - start), word); });
}

}  // namespace

std::string CStatusCode::GetText() const {
    if (classCode == 0) return {};
    return std::to_string(classCode) + '.' + std::to_string(subject) + '.' + std::to_string(detail);
}

std::size_t ReadStatusCode(std::string_view text, CStatusCode& status) noexcept {
    if (text.size() < 5 || (text[0] != '2' && text[0] != '4' && text[0] != '5') || text[1] != '.') return 0;
    int subject = 0;
    int detail = 0;
    const std::size_t subjectSize = ReadNumber(text.substr(2), subject);
    const std::size_t dot = 2 + subjectSize;
    if (subjectSize == 0 || dot >= text.size() || text[dot] != '.') return 0;
    const std::size_t detailSize = ReadNumber(text.substr(dot + 1), detail);
    const std::size_t end = dot + 1 + detailSize;
    if (detailSize == 0) return 0;
    if (end < text.size() && IsLetterOrDigit(text[end])) return 0;
    if (end + 1 < text.size() && text[end] == '.' && IsDigit(text[end + 1])) return 0;
    status = {text[0] - '0', subject, detail};
    return end;
}

CStatusCode FindStatusCode(std::string_view text) noexcept {
    CStatusCode status;
    for (std::size_t at = 0; at + 5 <= text.size(); ++at) {
        if (text[at + 1] != '.') continue;
        if (at != 0 && (IsLetterOrDigit(text[at - 1]) || text[at - 1] == '.')) continue;
        if (ReadStatusCode(text.substr(at), status) != 0) break;
    }
    return status;
}

CReplyCodes FindReplyCodes(std::string_view text) noexcept {
    CReplyCodes codes;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if ((c != '4' && c != '5') || (at != 0 && (IsLetterOrDigit(text[at - 1]) || text[at - 1] == '.'))) continue;
        const std::string_view before = text.substr(0, at);
        const std::string_view rest = text.substr(at);
        if (IsReplyCodeAt(rest) && InvitesCode(before)) {
            if (codes.reply == 0) {
                codes.reply = (rest[0] - '0') * 100 + (rest[1] - '0') * 10 + rest[2] - '0';
                codes.position = at;
            }
            const std::size_t next = rest.find_first_not_of(" \t-#", 3);
            if (next != std::string_view::npos && !codes.status) ReadStatusCode(rest.substr(next), codes.status);
        } else if (!codes.status && InvitesCode(before)) {
            ReadStatusCode(rest, codes.status);
        }
        if (codes.reply != 0 && codes.status) break;
    }
    return codes;
}

CReplyMeaning MeaningOfStatus(const CStatusCode& status) noexcept {
    using enum BounceClass;
    constexpr auto Precise = ReplyWeight::Clear;
    constexpr auto General = ReplyWeight::Likely;
    if (status.classCode != 4 && status.classCode != 5) return {};
    const bool isPermanent = status.classCode == 5;
    const BounceClass byClass = isPermanent ? Hard : Soft;
    switch (status.subject) {
        case 1:  // address
            if (status.detail == 7 || status.detail == 8) return {Blocked, Precise};
            if (status.detail == 0) return {byClass, General};
            return {byClass, Precise};
        case 2:  // mailbox
            if (status.detail == 1) return {Soft, General};
            if (status.detail == 0) return {byClass, ReplyWeight::Vague};
            return {Soft, Precise};
        case 3:  // mail system
            return {isPermanent && status.detail == 0 ? Hard : Soft, ReplyWeight::Vague};
        case 4:  // network and routing
            if (isPermanent && (status.detail == 1 || status.detail == 4)) return {Hard, General};
            return {Soft, General};
        case 5:  // protocol
            return {Soft, ReplyWeight::Vague};
        case 6:  // content
            return {Blocked, General};
        case 7:  // policy; the registry of codes has some that are about the recipient
            if (status.detail == 13) return {Soft, Precise};                            // his account is disabled
            if (status.detail == 17 || status.detail == 18) return {byClass, Precise};  // it is somebody else's now
            return {Blocked, General};
        default:
            return {byClass, ReplyWeight::Vague};
    }
}

CReplyMeaning MeaningOfReplyCode(int code) noexcept {
    if (code >= 400 && code < 500) return {BounceClass::Soft, ReplyWeight::Vague};
    if (code == 552) return {BounceClass::Soft, ReplyWeight::Vague};
    if (code == 521) return {BounceClass::Blocked, ReplyWeight::Vague};
    if (code == 530 || code == 535 || code == 538) return {BounceClass::Blocked, ReplyWeight::Vague};
    if (code >= 500 && code < 505) return {BounceClass::Soft, ReplyWeight::Vague};
    if (code >= 500 && code < 600) return {BounceClass::Hard, ReplyWeight::Vague};
    return {};
}
