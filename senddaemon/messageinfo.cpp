#include "senddaemon/messageinfo.h"

#include <array>
#include <set>
#include <span>
#include <vector>

#include "mime/headerscan.h"
#include "mime/mailbox.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t UsualHeader = 4096;
constexpr std::array<std::string_view, 9> InfoFields = {"X-Lhv-Return-Path-Override",
                                                        "From",
                                                        "X-Lhv-Recipient-Override",
                                                        "To",
                                                        "CC",
                                                        "BCC",
                                                        "X-Lhv-Recipients-Only",
                                                        "X-Lhv-Broadcast",
                                                        "Message-ID"};

std::string GetField(const CHeaderValues& values, std::string_view name) {
    const auto found = values.find(name);
    return found == values.end() ? std::string() : std::string(Trim(found->second));
}

void AppendWithComma(std::string& list, std::string_view more) {
    if (more.empty()) return;
    if (!list.empty()) list += ',';
    list += more;
}

// Addresses travel in lists joined by commas, and in protocol commands.
bool IsUsableAddress(std::string_view address) {
    if (address.empty()) return false;
    for (const char c : address) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= ' ' || byte == 0x7f || c == ',' || c == '<' || c == '>') return false;
    }
    return true;
}

// Most headers are in the first few KiB; a whole step of ReadHeaderFields() is
// for the others.
bool ReadFields(std::string_view path, std::span<const std::string_view> names, CHeaderValues& values,
                HeaderForm form) {
    std::string start;
    if (!ReadFileStart(path, UsualHeader, start)) return false;
    const bool isWhole = start.size() < UsualHeader || start.find("\n\r\n") != std::string::npos ||
                         start.find("\n\n") != std::string::npos;
    if (!isWhole) return ReadHeaderFields(path, names, values, form);
    ScanHeaderFields(start, names, values, form);
    return true;
}

// Of a file's name only the number stays what it is.
std::string GetMessageId(const CHeaderValues& values, std::string_view path) {
    std::string id = GetField(values, "Message-ID");
    if (id.starts_with('<') && id.ends_with('>')) id = id.substr(1, id.size() - 2);
    if (!id.empty()) return id;
    const std::string name = LastPathComponent(path);
    const std::size_t end = name.find_first_not_of("0123456789");
    return end == 0 || end == std::string::npos ? name : name.substr(0, end);
}

bool FailFor(std::string_view path, const char* reason) {
    SetLastErrorFormat("The message \"%s\" %s", std::string(path).c_str(), reason);
    return false;
}

}  // namespace

bool ReadMessageInfo(std::string_view path, CMessageInfo& info) {
    CHeaderValues values;
    info = {};
    if (!ReadFields(path, InfoFields, values, HeaderForm::Stored)) return false;
    info.messageId = GetMessageId(values, path);
    info.broadcast = GetField(values, "X-Lhv-Broadcast");
    std::string sender = GetField(values, "X-Lhv-Return-Path-Override");
    if (sender.empty()) sender = GetField(values, "From");
    std::string recipients = GetField(values, "X-Lhv-Recipient-Override");
    if (recipients.empty()) recipients = GetField(values, "To");
    if (GetField(values, "X-Lhv-Recipients-Only") != "1") {
        AppendWithComma(recipients, GetField(values, "CC"));
        AppendWithComma(recipients, GetField(values, "BCC"));
    }
    if (sender.empty()) return FailFor(path, "names no sender.");
    if (recipients.empty()) return FailFor(path, "names no recipient.");

    const std::vector<CMailbox> senders = ParseMailboxes(sender);
    if (!senders.empty()) info.returnPath = senders.front().address;
    if (sender != "<>" && !IsUsableAddress(info.returnPath)) return FailFor(path, "names no usable sender.");
    for (const CMailbox& mailbox : ParseMailboxes(recipients)) {
        if (!IsUsableAddress(mailbox.address)) return FailFor(path, "names a recipient that cannot be used.");
        AppendWithComma(info.recipients, mailbox.address);
    }
    if (info.recipients.empty()) return FailFor(path, "names no usable recipient.");
    return true;
}

std::vector<std::string> SplitRecipients(std::string_view joined) {
    std::vector<std::string> recipients;
    std::set<std::string_view, CLessNoCase> seen;
    for (const std::string_view recipient : Split(joined, ',')) {
        if (!recipient.empty() && seen.insert(recipient).second) recipients.emplace_back(recipient);
    }
    return recipients;
}

bool ReadMessageTitle(std::string_view path, std::string& subject, std::string& recipient) {
    constexpr std::array<std::string_view, 2> TitleFields = {"Subject", "To"};
    CHeaderValues values;
    subject.clear();
    recipient.clear();
    if (!ReadFields(path, TitleFields, values, HeaderForm::Decoded)) return false;
    subject = OneLine(GetField(values, "Subject"));
    recipient = OneLine(GetField(values, "To"));
    return values.contains("Subject") && values.contains("To");
}

}  // namespace SendDaemon
