// The delivery status notification (RFC 3464) that a server would have sent.

#include <algorithm>
#include <string>

#include "engine/bounces/bounceclassifier.h"
#include "engine/bounces/recipientverdict.h"
#include "mime/mimemultipart.h"
#include "platform/clock.h"
#include "utility/formattext.h"
#include "utility/text.h"

namespace {

std::string AddressText(std::string_view address) {
    std::string text = MakeEvidence(address);
    std::erase_if(text, [](char c) { return c == '<' || c == '>' || c == ';'; });
    return text;
}

bool IsAscii(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// RFC 6533: an address in UTF-8 has a type of its own.
std::string TypedAddress(std::string_view address) {
    return (IsAscii(address) ? "rfc822; " : "utf-8; ") + std::string(address);
}

std::string DomainOf(std::string_view address) {
    const std::size_t at = address.rfind('@');
    return at == std::string_view::npos || at + 1 == address.size() ? "localhost" : std::string(address.substr(at + 1));
}

// What of a boundary may stand in a message id.
std::string IdentifierOf(std::string_view boundary) {
    std::string identifier(boundary);
    std::erase_if(identifier, [](char c) {
        const char lower = ToLowerAscii(c);
        return !(c >= '0' && c <= '9') && !(lower >= 'a' && lower <= 'z');
    });
    return identifier;
}

std::string DateText(std::int64_t now) {
    static constexpr const char* Days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* Months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::tm utc = Platform::UtcTime(now);
    return FormatText("%s, %d %s %d %02d:%02d:%02d +0000", Days[utc.tm_wday % 7], utc.tm_mday, Months[utc.tm_mon % 12],
                      utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
}

// A status is required in a report.
std::string StatusText(const CBouncedRecipient& recipient) {
    if (!recipient.status.empty()) return MakeEvidence(recipient.status);
    const bool isTemporary = recipient.replyCode >= 400 && recipient.replyCode < 500;
    return isTemporary || (recipient.replyCode == 0 && recipient.bounceClass == BounceClass::Soft) ? "4.0.0" : "5.0.0";
}

std::string DiagnosticText(const CBouncedRecipient& recipient, std::string_view diagnostic) {
    const std::string text = MakeEvidence(diagnostic.empty() ? std::string_view(recipient.evidence) : diagnostic);
    const std::string code = recipient.replyCode > 0 ? std::to_string(recipient.replyCode) : std::string();
    if (code.empty() || text.starts_with(code)) return text;
    return code + ' ' + text;
}

}  // namespace

std::string MakeDeliveryNotice(std::string_view listAddress, const CBouncedRecipient& recipient,
                               std::string_view remoteHost, std::string_view diagnostic, std::string_view messageId,
                               std::int64_t now) {
    const std::string list = AddressText(listAddress);
    const std::string domain = DomainOf(list);
    const std::string address = AddressText(recipient.address);
    const std::string original = AddressText(recipient.original);
    const std::string host = MakeEvidence(remoteHost);
    const std::string said = DiagnosticText(recipient, diagnostic);
    const std::string boundary = CMimeMultipart::NewBoundary();
    const bool isGlobal = !IsAscii(address + original);

    std::string text =
        "Return-Path: <>\nFrom: Mail Delivery System <MAILER-DAEMON@" + domain + ">\nTo: <" + list +
        ">\nDate: " + DateText(now) + "\nMessage-ID: <notice." + IdentifierOf(boundary) + '@' + domain +
        ">\nSubject: Undelivered Mail Returned to Sender\nAuto-Submitted: auto-replied\nMIME-Version: 1.0\n"
        "Content-Type: multipart/report; report-type=delivery-status;\n\tboundary=\"" +
        boundary + "\"\n\n";
    text += "--" + boundary +
            "\nContent-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: 8bit\n\n"
            "A message of the list could not be delivered to:\n\n    <" +
            address + ">\n\n" + (host.empty() ? "" : "Server: " + host + "\n") +
            (said.empty() ? "" : "Answer: " + said + "\n") + '\n';
    text += "--" + boundary + "\nContent-Type: message/" + (isGlobal ? "global-delivery-status" : "delivery-status") +
            "\nContent-Transfer-Encoding: 8bit\n\nReporting-MTA: dns; " + domain + "\n\n" +
            (original.empty() ? "" : "Original-Recipient: " + TypedAddress(original) + '\n') +
            "Final-Recipient: " + TypedAddress(address) + "\nAction: failed\nStatus: " + StatusText(recipient) + '\n' +
            (host.empty() ? "" : "Remote-MTA: dns; " + host + '\n') +
            (said.empty() ? "" : "Diagnostic-Code: smtp; " + said + '\n') + '\n';
    if (!messageId.empty())
        text +=
            "--" + boundary + "\nContent-Type: text/rfc822-headers\n\nMessage-ID: " + MakeEvidence(messageId) + "\n\n";
    text += "--" + boundary + "--\n";
    return LfToCrLf(text);
}
