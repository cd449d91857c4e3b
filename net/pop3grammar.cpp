#include "net/pop3grammar.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>

#include "utility/text.h"

namespace Net {
namespace {

constexpr std::size_t MaxArgument = 255;
constexpr std::size_t MaxUid = 255;  // the standard says 70

template <class Number>
bool TakeNumber(std::string_view& text, Number& number) {
    if (text.empty() || text.front() < '0' || text.front() > '9') return false;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool TakeBlanks(std::string_view& text) {
    const std::size_t count = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(count);
    return count > 0;
}

bool IsVisible(char c) noexcept {
    return c > ' ' && c < 0x7f;
}

}  // namespace

bool ParsePop3Reply(std::string_view line, Pop3Reply& reply) {
    reply.isPositive = StartsWithNoCase(line, "+OK");
    if (!reply.isPositive && !StartsWithNoCase(line, "-ERR")) return false;
    line.remove_prefix(reply.isPositive ? 3 : 4);
    if (!line.empty() && line.front() != ' ') return false;
    reply.text = Trim(line);
    return true;
}

std::string_view FindTimeStamp(std::string_view greeting) {
    const std::size_t start = greeting.find('<');
    const std::size_t end = greeting.find('>', std::min(start, greeting.size()));
    if (end == std::string_view::npos) return {};
    const std::string_view stamp = greeting.substr(start, end - start + 1);
    const std::size_t at = stamp.find('@');
    const bool isIdentifier = at != std::string_view::npos && at > 1 && at + 2 < stamp.size() &&
                              stamp.find_first_of("<@", at + 1) == std::string_view::npos &&
                              stamp.find('<', 1) == std::string_view::npos &&
                              std::all_of(stamp.begin(), stamp.end(), IsVisible);
    return isIdentifier ? stamp : std::string_view();
}

std::string MakeApopDigest(std::string_view timeStamp, std::string_view password) {
    std::string secret(timeStamp);
    secret += password;
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(secret.data(), secret.size(), digest.data(), &size, EVP_md5(), nullptr) != 1) return {};
    return EncodeHex({reinterpret_cast<const char*>(digest.data()), size});
}

bool ParseMailboxStatus(std::string_view text, std::uint32_t& count, std::uint64_t& octets) {
    return TakeNumber(text, count) && TakeBlanks(text) && TakeNumber(text, octets) &&
           (text.empty() || text.front() == ' ');
}

bool IsPop3Argument(std::string_view text) noexcept {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; };
    return !text.empty() && text.size() <= MaxArgument && std::none_of(text.begin(), text.end(), isControl);
}

CPop3ListReader::CPop3ListReader(Kind kind, CPop3Listing& listing)
    : m_kind(kind), m_listing(listing), m_isKnown(kind == Kind::Uids && !listing.IsEmpty()) {
    listing.Sort();
    m_isSeen.resize(listing.GetCount());
}

bool CPop3ListReader::Add(std::string_view line) {
    std::uint32_t number = 0;
    TakeBlanks(line);
    if (++m_count > MaxPop3Messages || !TakeNumber(line, number) || number == 0 || !TakeBlanks(line)) return false;
    return Store(number, line.substr(0, line.find(' ')));
}

bool CPop3ListReader::Store(std::uint32_t number, std::string_view value) {
    std::size_t index = m_listing.GetCount();
    if (m_isKnown) {
        index = m_listing.Find(number);
        if (index == m_listing.GetCount() || m_isSeen[index]) return false;
        m_isSeen[index] = true;
    }
    std::uint64_t size = 0;
    if (m_kind == Kind::Sizes) {
        if (!TakeNumber(value, size) || !value.empty()) return false;
    } else if (value.empty() || value.size() > MaxUid || !std::all_of(value.begin(), value.end(), IsVisible)) {
        return false;
    }
    if (!m_isKnown) m_listing.Add(number, size);
    if (m_kind == Kind::Uids) m_listing.SetUid(index, value);
    return true;
}

bool CPop3ListReader::Finish() {
    return m_listing.Sort();
}

bool CDotUnstuffer::Add(std::string_view piece, bool endsLine, std::string& text) {
    if (m_isDotHeld) {
        if (piece.empty() && endsLine) return false;
        m_isDotHeld = m_isLineStart = false;
    }
    if (m_isLineStart && piece.starts_with('.')) {
        piece.remove_prefix(1);
        if (piece.empty() && endsLine) return false;
        m_isDotHeld = piece.empty();
    }
    text += piece;
    if (endsLine) text += "\r\n";
    m_isLineStart = endsLine;
    return true;
}

}  // namespace Net
