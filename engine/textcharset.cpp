#include "engine/textcharset.h"

#include <algorithm>
#include <string>

#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/expandmessage.h"
#include "mime/mimemessage.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

namespace {

bool IsAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 128; });
}

bool IsOneOf(std::string_view charset, std::initializer_list<std::string_view> names) {
    return std::any_of(names.begin(), names.end(), [&](std::string_view name) { return EqualNoCase(charset, name); });
}

// What programs call ISO-8859-1 is Windows-1252 where the two differ.
bool IsLatin(std::string_view charset) {
    return IsOneOf(charset, {"", "us-ascii", "iso-8859-1", "latin1", "windows-1252"});
}

// Every encoded word of a header line is in such a charset, or there is none.
bool HasOnlyLatinWords(std::string_view stored) {
    for (std::size_t start = stored.find("=?"); start != std::string_view::npos;) {
        const std::size_t end = stored.find('?', start + 2);
        if (end == std::string_view::npos) return true;
        if (!IsLatin(stored.substr(start + 2, end - start - 2))) return false;
        const std::size_t close = stored.find("?=", std::min(end + 3, stored.size()));
        start = close == std::string_view::npos ? close : stored.find("=?", close + 2);
    }
    return true;
}

void UseUtf8(CMimeHeader& header) {
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        const std::string value = header.DecodeField(i);
        if (!HoldsDataField(value)) continue;
        const std::string converted = HeaderTextInUtf8(header.GetStoredField(i).value, value);
        if (converted != value) StoreHeaderValue(header, i, OneLine(converted));
    }
}

// The value with its charset parameter replaced, or with one added.
std::string WithUtf8(std::string contentType) {
    constexpr std::string_view Parameter = "charset=\"utf-8\"";
    if (Trim(contentType).empty()) contentType = "text/plain";
    const std::size_t start = FindNoCase(contentType, "charset");
    if (start == std::string::npos) return contentType.append("; ").append(Parameter);
    std::size_t end = contentType.find(';', start);
    const std::size_t quote = contentType.find('"', start);
    if (quote < end) {
        const std::size_t closing = contentType.find('"', quote + 1);
        end = closing == std::string::npos ? closing : contentType.find(';', closing);
    }
    if (end == std::string::npos) end = contentType.size();
    return contentType.replace(start, end - start, Parameter);
}

void UseUtf8(CMimeText& entity) {
    const std::string text = entity.GetBody();
    if (!HoldsDataField(text)) return;
    const std::string contentType = entity.GetField("Content-Type");
    const std::string charset = CMimeHeader::GetParameter(contentType, "charset");
    if (EqualNoCase(charset, "utf-8")) return;
    if (!IsAscii(text)) {
        std::string converted;
        if (IsLatin(charset)) {
            converted = charset.empty() && IsValidUtf8(text) ? text : Windows1252ToUtf8(text);
        } else {
            Log(LogWarning,
                "A text of the message is in %s: values of data fields that are not plain ASCII will not be readable "
                "in it. Write the message in UTF-8.",
                OneLine(charset).c_str());
            return;
        }
        entity.SetBody(converted);
    }
    entity.SetContentType(WithUtf8(contentType));
}

}  // namespace

std::string HeaderTextInUtf8(std::string_view stored, std::string decoded) {
    if (IsValidUtf8(decoded) || !HasOnlyLatinWords(stored)) return decoded;
    return Windows1252ToUtf8(decoded);
}

void UseUtf8ForDataFields(CMimeMessage& message) {
    if (!message.GetRoot()) return;
    UseUtf8(message.GetRoot()->GetHeader());
    for (CMimeText* text : CollectTextEntities(*message.GetRoot()))
        UseUtf8(*text);
}
