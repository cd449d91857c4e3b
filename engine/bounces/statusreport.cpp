#include "engine/bounces/statusreport.h"

#include <algorithm>

#include "mime/mimeheader.h"
#include "utility/text.h"

namespace {

constexpr std::size_t MaxRecipients = 100;
constexpr std::size_t MaxDiagnostic = 8 * 1024;

DeliveryAction ActionOf(std::string_view value) noexcept {
    const std::string_view text = Trim(value);
    if (StartsWithNoCase(text, "fail") || StartsWithNoCase(text, "expired")) return DeliveryAction::Failed;
    if (StartsWithNoCase(text, "delay") || StartsWithNoCase(text, "defer")) return DeliveryAction::Delayed;
    if (StartsWithNoCase(text, "deliver") || StartsWithNoCase(text, "relay") || StartsWithNoCase(text, "expand"))
        return DeliveryAction::Delivered;
    return DeliveryAction::Unknown;
}

// "smtp; 550 ..." without the type.
std::string_view WithoutType(std::string_view value) noexcept {
    const std::size_t end = value.find(';');
    if (end == std::string_view::npos || end > 20) return Trim(value);
    const std::string_view type = Trim(value.substr(0, end));
    const bool isType = !type.empty() && type.find_first_of(" @<") == std::string_view::npos;
    return isType ? Trim(value.substr(end + 1)) : Trim(value);
}

bool IsEmpty(const CRecipientStatus& recipient) noexcept {
    return recipient.finalRecipient.empty() && recipient.originalRecipient.empty() &&
           recipient.otherRecipient.empty() && recipient.action == DeliveryAction::Unknown && !recipient.status &&
           recipient.diagnostic.empty();
}

void Join(CRecipientStatus& to, const CRecipientStatus& from) {
    if (to.originalRecipient.empty()) to.originalRecipient = from.originalRecipient;
    if (to.otherRecipient.empty()) to.otherRecipient = from.otherRecipient;
    if (to.action == DeliveryAction::Unknown || from.action == DeliveryAction::Failed) to.action = from.action;
    if (!to.status) to.status = from.status;
    if (!from.diagnostic.empty() && to.diagnostic.size() + from.diagnostic.size() < MaxDiagnostic)
        to.diagnostic += (to.diagnostic.empty() ? "" : " ") + from.diagnostic;
}

class CReportParser {
public:
    explicit CReportParser(std::vector<CRecipientStatus>& recipients) : m_recipients(recipients) {}

    void Take(std::string_view name, std::string_view value) {
        if (EqualNoCase(name, "Final-Recipient")) {
            if (!m_current.finalRecipient.empty()) End();
            m_current.finalRecipient = AddressOfRecipientField(value);
        } else if (EqualNoCase(name, "Original-Recipient")) {
            if (!m_current.originalRecipient.empty()) End();
            m_current.originalRecipient = AddressOfRecipientField(value);
        } else if (EqualNoCase(name, "X-Actual-Recipient")) {
            m_current.otherRecipient = AddressOfRecipientField(value);
        } else if (EqualNoCase(name, "Action")) {
            m_current.action = ActionOf(value);
        } else if (EqualNoCase(name, "Will-Retry-Until")) {
            if (m_current.action == DeliveryAction::Unknown) m_current.action = DeliveryAction::Delayed;
        } else if (EqualNoCase(name, "Status")) {
            m_current.status = FindStatusCode(value);
        } else if (EqualNoCase(name, "Diagnostic-Code") || EqualNoCase(name, "X-Supplementary-Info")) {
            AddDiagnostic(WithoutType(value));
        }
    }

    void EndGroup() {
        if (!m_current.finalRecipient.empty() || !m_current.originalRecipient.empty()) End();
    }

    void End() {
        if (IsEmpty(m_current)) return;
        CRecipientStatus recipient;
        std::swap(recipient, m_current);
        for (CRecipientStatus& other : m_recipients) {
            if (!recipient.finalRecipient.empty() && EqualNoCase(other.finalRecipient, recipient.finalRecipient))
                return Join(other, recipient);
        }
        if (m_recipients.size() < MaxRecipients) m_recipients.push_back(std::move(recipient));
    }

private:
    void AddDiagnostic(std::string_view text) {
        if (m_current.diagnostic.size() + text.size() >= MaxDiagnostic) return;
        if (!m_current.diagnostic.empty()) m_current.diagnostic += ' ';
        m_current.diagnostic += text;
    }

    std::vector<CRecipientStatus>& m_recipients;
    CRecipientStatus m_current;
};

}  // namespace

std::string AddressOfRecipientField(std::string_view value) {
    std::string_view text = WithoutType(value);
    const std::size_t open = text.find('<');
    const std::size_t close = text.find('>', open == std::string_view::npos ? 0 : open);
    if (open != std::string_view::npos && close != std::string_view::npos)
        text = text.substr(open + 1, close - open - 1);
    text = Trim(text);
    if (text.size() > 2 && text.front() != '"') text = text.substr(0, text.find_first_of(" \t("));
    while (!text.empty() && (text.back() == ',' || text.back() == ';' || text.back() == '.' || text.back() == '>'))
        text.remove_suffix(1);
    constexpr std::size_t MaxAddress = 320;
    return OneLine(text.substr(0, MaxAddress));
}

std::vector<CRecipientStatus> ParseStatusReport(std::string_view text) {
    std::vector<CRecipientStatus> recipients;
    CReportParser parser(recipients);
    while (!text.empty()) {
        std::size_t end = std::min(text.find('\n'), text.size());
        while (end + 1 < text.size() && (text[end + 1] == ' ' || text[end + 1] == '\t')) {
            if (Trim(text.substr(end + 1, std::min(text.find('\n', end + 1), text.size()) - end - 1)).empty()) break;
            end = std::min(text.find('\n', end + 1), text.size());
        }
        const std::string_view field = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t colon = field.find(':');
        if (Trim(field).empty())
            parser.EndGroup();
        else if (colon != std::string_view::npos)
            parser.Take(Trim(field.substr(0, colon)), Trim(CMimeHeader::Unfold(field.substr(colon + 1))));
    }
    parser.End();
    // Some put Original-Recipient into a group of its own.
    std::erase_if(recipients, [&](const CRecipientStatus& one) {
        return one.finalRecipient.empty() && one.action == DeliveryAction::Unknown && !one.status &&
               recipients.size() > 1;
    });
    return recipients;
}

std::size_t FindStatusReport(std::string_view text) noexcept {
    for (std::size_t at = FindNoCase(text, "-Recipient:"); at != std::string_view::npos;
         at = FindNoCase(text, "-Recipient:", at + 1)) {
        const std::size_t start = text.rfind('\n', at);
        const std::size_t lineStart = start == std::string_view::npos ? 0 : start + 1;
        const std::string_view name = text.substr(lineStart, at - lineStart);
        if (EqualNoCase(name, "Final") || EqualNoCase(name, "Original")) return lineStart;
    }
    return std::string_view::npos;
}
