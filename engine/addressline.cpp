#include "engine/addressline.h"

#include <utility>

#include "mime/encodedword.h"
#include "mime/mailbox.h"
#include "mime/mimeheader.h"
#include "utility/text.h"

namespace {

bool IsAscii(std::string_view text) noexcept {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 126 || (byte < ' ' && c != '\t')) return false;
    }
    return true;
}

// One encoded word that comes back as it was, byte for byte.
std::string EncodeExactly(std::string_view text) {
    static constexpr char Digits[] = "0123456789ABCDEF";
    std::string word = IsValidUtf8(text) ? "=?utf-8?Q?" : "=?iso-8859-1?Q?";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (isPlain) {
            word.push_back(c);
        } else if (c == ' ') {
            word.push_back('_');
        } else {
            word.append({'=', Digits[byte >> 4], Digits[byte & 15]});
        }
    }
    return word + "?=";
}

}  // namespace

std::string StoredMailbox(const CMailbox& mailbox) {
    const std::string line = FormatMailbox(mailbox);
    const std::string address = " <" + OneLine(mailbox.address) + ">";
    if (!line.ends_with(address)) return line;  // no name
    const std::string_view name = std::string_view(line).substr(0, line.size() - address.size());
    return IsAscii(name) ? line : EncodeExactly(name) + address;
}

std::string StoredAddressLine(std::string_view line) {
    const bool isKept =
        IsAscii(line) || line.find("=?") != std::string_view::npos || line.find("$(") != std::string_view::npos;
    if (isKept) return OneLine(line);
    std::string result;
    for (const CMailbox& mailbox : ParseMailboxes(line)) {
        if (!result.empty()) result.append(", ");
        result.append(StoredMailbox(mailbox));
    }
    return result.empty() ? OneLine(line) : result;
}

std::string StoredSubject(std::string_view subject) {
    const std::string line = OneLine(subject);
    const std::string stored = EncodeHeaderWord(line);
    return stored != line && DecodeHeaderText(stored) != line ? EncodeExactly(line) : stored;
}

void SetAddressLine(CMimeHeader& header, std::string_view field, std::string_view line) {
    SetStoredLine(header, field, StoredAddressLine(line));
}

void SetStoredLine(CMimeHeader& header, std::string_view field, std::string stored) {
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        if (EqualNoCase(header.GetStoredField(i).name, field)) {
            header.SetStoredField(i, std::move(stored));
            return;
        }
    }
    header.AddField(field, "-");
    header.SetStoredField(header.GetFieldCount() - 1, std::move(stored));
}

bool IsAddressField(std::string_view fieldName) noexcept {
    for (const std::string_view name : {"From", "To", "Reply-To", "CC", "BCC"}) {
        if (EqualNoCase(fieldName, name)) return true;
    }
    return false;
}
