#include "engine/utf8text.h"

#include <algorithm>

#include "mime/headerwords.h"
#include "mime/mimeheader.h"
#include "mime/mimetext.h"
#include "platform/characterset.h"
#include "utility/text.h"

namespace {

constexpr int MostFailures = 20;  // beginnings of words in a line that turn out to be none

bool IsOneOf(std::string_view name, std::initializer_list<std::string_view> names) noexcept {
    return std::any_of(names.begin(), names.end(), [name](std::string_view one) { return EqualNoCase(name, one); });
}

// What programs call ISO-8859-1 is Windows-1252 where the two differ.
std::string FromLatin(std::string_view bytes) {
    return IsValidUtf8(bytes) ? std::string(bytes) : Windows1252ToUtf8(bytes);
}

bool ToUtf8(std::string_view characterSet, std::string_view bytes, std::string& text) {
    // Much that says ISO-8859-1 is UTF-8, the subjects that this system stores among it.
    if (IsOneOf(characterSet,
                {"", "us-ascii", "ascii", "utf-8", "utf8", "iso-8859-1", "latin1", "windows-1252", "cp1252"})) {
        text = FromLatin(bytes);
        return true;
    }
    if (Platform::ConvertToUtf8(characterSet, bytes, text)) return true;
    text = FromLatin(bytes);
    return false;
}

std::string WithoutControls(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < ' ' || c == 127) c = ' ';
    }
    return text;
}

// The words at the start of value that follow each other in one character set,
// converted together: a character may be divided between two of them.
std::size_t TakeWords(std::string_view value, std::string& text) {
    CHeaderWord word;
    std::string_view characterSet;
    std::string bytes;
    std::size_t end = 0;
    std::size_t position = 0;
    while (ReadHeaderWord(value.substr(position), word)) {
        if (end == 0) characterSet = word.charset;
        if (!EqualNoCase(characterSet, word.charset)) break;
        bytes += DecodeHeaderWord(word);
        end = position + word.size;
        position = std::min(value.find_first_not_of(" \t", end), value.size());
    }
    if (end == 0) return 0;
    ToUtf8(characterSet, bytes, text);
    return end;
}

}  // namespace

bool IsAsciiText(std::string_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 128; });
}

std::string HeaderLineInUtf8(std::string_view stored) {
    const std::string line = CMimeHeader::Unfold(stored.substr(0, LongestHeaderLine));
    std::string_view value = line;
    std::string result;
    bool isBehindWord = false;
    int failures = 0;
    while (!value.empty()) {
        // Looking for the end of a word that has none costs the rest of the line.
        const std::size_t start = failures < MostFailures ? value.find("=?") : std::string_view::npos;
        const std::string_view plain = value.substr(0, start);
        if (!isBehindWord || Trim(plain).size() != 0 || start == std::string_view::npos) result += FromLatin(plain);
        if (start == std::string_view::npos) break;
        value.remove_prefix(start);
        std::string text;
        const std::size_t taken = TakeWords(value, text);
        isBehindWord = taken != 0;
        if (!isBehindWord) ++failures;
        result += isBehindWord ? text : "=?";
        value.remove_prefix(isBehindWord ? taken : 2);
    }
    return std::string(Trim(WithoutControls(std::move(result))));
}

std::string HeaderFieldInUtf8(const CMimeHeader& header, std::string_view name) {
    return HeaderLineInUtf8(header.FindStored(name));
}

bool IsOneWord(std::string_view stored) {
    CHeaderWord word;
    const std::string_view line = Trim(stored);
    return ReadHeaderWord(line, word) && word.size == line.size();
}

std::vector<CMailbox> MailboxesInUtf8(std::string_view stored) {
    const std::string line = CMimeHeader::Unfold(stored.substr(0, LongestHeaderLine));
    std::vector<CMailbox> mailboxes = ParseMailboxes(IsOneWord(line) ? HeaderLineInUtf8(line) : line);
    for (CMailbox& mailbox : mailboxes) {
        mailbox.displayName = HeaderLineInUtf8(mailbox.displayName);
        mailbox.address = WithoutControls(FromLatin(mailbox.address));
    }
    return mailboxes;
}

bool BodyInUtf8(const CMimeText& entity, std::string& text) {
    const std::string characterSet = CMimeHeader::GetParameter(entity.GetField("Content-Type"), "charset");
    return ToUtf8(Trim(characterSet), entity.GetBody(), text);
}

bool BringToUtf8(CMimeText& entity) {
    const std::string type = entity.GetField("Content-Type");
    if (EqualNoCase(CMimeHeader::GetParameter(type, "charset"), "utf-8")) return true;
    if (!entity.CanJoin()) return false;  // it holds zero bytes, which would be cut off
    std::string text;
    if (!BodyInUtf8(entity, text)) return false;
    if (text != entity.GetBody()) entity.SetBody(text);
    std::string plain = "text/" + entity.GetSubType() + "; charset=\"utf-8\"";
    for (const char* parameter : {"format", "delsp"}) {
        const std::string value = CMimeHeader::GetParameter(type, parameter);
        if (EqualNoCase(value, "flowed") || EqualNoCase(value, "yes"))
            plain.append("; ").append(parameter).append("=").append(value);
    }
    entity.SetContentType(plain);
    return true;
}

std::string_view CutUtf8(std::string_view text, std::size_t most) noexcept {
    if (text.size() <= most) return text;
    while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0) == 0x80)
        --most;
    return text.substr(0, most);
}
