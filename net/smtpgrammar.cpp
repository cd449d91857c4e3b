#include "net/smtpgrammar.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "utility/text.h"

namespace Net {
namespace {

constexpr std::size_t MaxAddress = 512;
constexpr std::size_t MaxDomain = 255;
constexpr std::size_t MaxLabel = 63;

bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}
bool IsLetterOrDigit(char c) noexcept {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsControl(char c) noexcept {
    return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}
bool Is8Bit(char c) noexcept {
    return static_cast<unsigned char>(c) >= 0x80;
}

bool IsAtomText(char c) noexcept {
    return IsLetterOrDigit(c) || Is8Bit(c) || std::string_view("!#$%&'*+-/=?^_`{|}~").find(c) != std::string_view::npos;
}

// The length of up to three digits at the start; 0 when there are none or more.
std::size_t CountDigits(std::string_view text) noexcept {
    std::size_t n = 0;
    while (n < text.size() && IsDigit(text[n]))
        ++n;
    return n <= 3 ? n : 0;
}

// Where the local part ends; npos when it is none.
std::size_t EndOfLocalPart(std::string_view address) noexcept {
    std::size_t i = 0;
    if (address.empty() || address[0] != '"') {
        while (i < address.size() && (IsAtomText(address[i]) || address[i] == '.'))
            ++i;
        return i > 0 ? i : std::string_view::npos;
    }
    for (i = 1; i < address.size(); ++i) {
        if (address[i] == '"') return i + 1;
        if (address[i] == '\\') ++i;
        // Legal here, but too many readers look for the first ">".
        if (i >= address.size() || IsControl(address[i]) || address[i] == '<' || address[i] == '>')
            return std::string_view::npos;
    }
    return std::string_view::npos;
}

bool IsLabel(std::string_view label) noexcept {
    if (label.empty() || label.size() > MaxLabel || label.front() == '-' || label.back() == '-') return false;
    return std::all_of(label.begin(), label.end(),
                       [](char c) { return IsLetterOrDigit(c) || Is8Bit(c) || c == '-' || c == '_'; });
}

bool IsAddressLiteral(std::string_view domain) noexcept {
    if (domain.size() < 3 || domain.front() != '[' || domain.back() != ']') return false;
    const std::string_view inner = domain.substr(1, domain.size() - 2);
    return std::all_of(inner.begin(), inner.end(),
                       [](char c) { return IsLetterOrDigit(c) || c == '.' || c == ':' || c == '-'; });
}

bool IsDomain(std::string_view domain) noexcept {
    if (domain.size() > MaxDomain) return false;
    if (IsAddressLiteral(domain)) return true;
    for (std::size_t begin = 0; begin <= domain.size();) {
        const std::size_t end = std::min(domain.find('.', begin), domain.size());
        if (!IsLabel(domain.substr(begin, end - begin))) return false;
        begin = end + 1;
    }
    return true;
}

void ParseSize(std::string_view argument, SmtpCapabilities& capabilities) {
    capabilities.hasSize = true;
    if (const auto limit = ParseNumber(Trim(argument)); limit && *limit > 0)
        capabilities.sizeLimit = static_cast<std::uint64_t>(*limit);
}

void ParseAuth(std::string_view argument, SmtpCapabilities& capabilities) {
    for (const std::string_view piece : Split(argument, ' ')) {
        std::string mechanism;
        for (const char c : Trim(piece))
            mechanism += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
        if (!mechanism.empty() && !capabilities.HasAuth(mechanism))
            capabilities.authMechanisms.push_back(std::move(mechanism));
    }
}

}  // namespace

void CSmtpReplyParser::Start(bool keepLines) {
    m_reply.code = 0;
    m_reply.enhanced.clear();
    m_reply.text.clear();
    m_lines.clear();
    m_count = 0;
    m_keepLines = keepLines;
}

CSmtpReplyParser::Step CSmtpReplyParser::Add(std::string_view line) {
    if (++m_count > MaxReplyLines || line.size() > MaxReplyLine || line.size() < 3) return Step::Bad;
    if (line[0] < '2' || line[0] > '5' || !IsDigit(line[1]) || !IsDigit(line[2])) return Step::Bad;
    const int code = (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
    if (m_count > 1 && code != m_reply.code) return Step::Bad;
    const char separator = line.size() > 3 ? line[3] : ' ';
    if (separator != ' ' && separator != '-') return Step::Bad;
    m_reply.code = code;
    AddText(line.substr(std::min<std::size_t>(line.size(), 4)));
    return separator == '-' ? Step::More : Step::Done;
}

void CSmtpReplyParser::AddText(std::string_view text) {
    if (m_keepLines) m_lines.push_back(CleanReplyText(text, MaxReplyLine));
    const std::string_view enhanced = FindEnhancedCode(m_reply.code, text);
    if (!enhanced.empty() && (m_count == 1 || enhanced == m_reply.enhanced)) {
        if (m_count == 1) m_reply.enhanced = enhanced;
        text.remove_prefix(enhanced.size());
    }
    text = Trim(text);
    if (text.empty() || m_reply.text.size() >= MaxReplyText) return;
    if (!m_reply.text.empty()) m_reply.text += ' ';
    m_reply.text += CleanReplyText(text, MaxReplyText - std::min(MaxReplyText, m_reply.text.size()));
}

std::string_view FindEnhancedCode(int code, std::string_view text) noexcept {
    if (text.size() < 5 || text[0] - '0' != code / 100 || code / 100 == 3 || text[1] != '.') return {};
    const std::size_t subject = CountDigits(text.substr(2));
    if (subject == 0 || 2 + subject >= text.size() || text[2 + subject] != '.') return {};
    const std::size_t detail = CountDigits(text.substr(3 + subject));
    const std::size_t length = 3 + subject + detail;
    if (detail == 0 || (length < text.size() && text[length] != ' ' && text[length] != '\t')) return {};
    return text.substr(0, length);
}

std::string CleanReplyText(std::string_view text, std::size_t limit) {
    std::string clean(text);
    const bool isUtf8 = IsValidUtf8(clean);
    for (char& c : clean) {
        if (IsControl(c)) c = ' ';
        if (!isUtf8 && Is8Bit(c)) c = '?';
    }
    if (clean.size() > limit) {
        while (limit > 0 && (static_cast<unsigned char>(clean[limit]) & 0xC0) == 0x80)
            --limit;
        clean.resize(limit);
    }
    return clean;
}

bool SmtpCapabilities::HasAuth(std::string_view mechanism) const {
    return std::find(authMechanisms.begin(), authMechanisms.end(), mechanism) != authMechanisms.end();
}

SmtpCapabilities ParseCapabilities(const std::vector<std::string>& lines) {
    static constexpr std::array<std::pair<std::string_view, bool SmtpCapabilities::*>, 6> Flags{{
        {"PIPELINING", &SmtpCapabilities::hasPipelining},
        {"8BITMIME", &SmtpCapabilities::has8BitMime},
        {"STARTTLS", &SmtpCapabilities::hasStartTls},
        {"ENHANCEDSTATUSCODES", &SmtpCapabilities::hasEnhancedCodes},
        {"DSN", &SmtpCapabilities::hasDsn},
        {"SMTPUTF8", &SmtpCapabilities::hasSmtpUtf8},
    }};
    SmtpCapabilities capabilities;
    capabilities.isExtended = true;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string_view line = Trim(lines[i]);
        const std::size_t end = std::min(line.find(' '), line.size());
        const std::string_view word = line.substr(0, end);
        const std::string_view rest = Trim(line.substr(end));
        if (i == 0) {
            capabilities.serverName = word;
            continue;
        }
        for (const auto& [name, flag] : Flags)
            if (EqualNoCase(word, name)) capabilities.*flag = true;
        if (EqualNoCase(word, "SIZE")) ParseSize(rest, capabilities);
        if (EqualNoCase(word, "AUTH")) ParseAuth(rest, capabilities);
        if (StartsWithNoCase(line, "AUTH=")) ParseAuth(line.substr(5), capabilities);  // from before it was a standard
    }
    return capabilities;
}

AddressSyntax CheckAddress(std::string_view address) noexcept {
    if (address.size() > MaxAddress) return AddressSyntax::Bad;
    const std::size_t end = EndOfLocalPart(address);
    if (end == std::string_view::npos) return AddressSyntax::Bad;
    if (end == address.size()) return EqualNoCase(address, "postmaster") ? AddressSyntax::Good : AddressSyntax::Bad;
    if (address[end] != '@' || !IsDomain(address.substr(end + 1))) return AddressSyntax::Bad;
    if (std::none_of(address.begin(), address.end(), Is8Bit)) return AddressSyntax::Good;
    return IsValidUtf8(address) ? AddressSyntax::NeedsSmtpUtf8 : AddressSyntax::Bad;
}

bool AppendMailFrom(std::string& commands, std::string_view sender, const MailParameters& parameters) {
    if (!sender.empty() && CheckAddress(sender) == AddressSyntax::Bad) return false;
    commands.append("MAIL FROM:<").append(sender).append(">");
    if (parameters.size > 0) {
        std::array<char, 24> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), parameters.size).ptr;
        commands.append(" SIZE=").append(digits.data(), end);
    }
    if (parameters.is8Bit) commands += " BODY=8BITMIME";
    if (parameters.isSmtpUtf8) commands += " SMTPUTF8";
    commands += "\r\n";
    return true;
}

bool AppendRecipient(std::string& commands, std::string_view recipient, bool neverNotify) {
    if (CheckAddress(recipient) == AddressSyntax::Bad) return false;
    commands.append("RCPT TO:<").append(recipient).append(neverNotify ? "> NOTIFY=NEVER\r\n" : ">\r\n");
    return true;
}

bool AppendCommand(std::string& commands, std::string_view verb, std::string_view argument) {
    if (std::any_of(argument.begin(), argument.end(), [](char c) { return IsControl(c) || c == ' '; })) return false;
    commands.append(verb);
    if (!argument.empty()) commands.append(" ").append(argument);
    commands += "\r\n";
    return true;
}

std::string EncodeBase64(std::string_view bytes) {
    static constexpr char Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        const std::size_t left = std::min<std::size_t>(3, bytes.size() - i);
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k)
            group = (group << 8) | (k < left ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        for (std::size_t k = 0; k < 4; ++k)
            text += k <= left ? Alphabet[(group >> (18 - 6 * k)) & 63] : '=';
    }
    return text;
}

}  // namespace Net
