#include "engine/textcharset.h"

#include <algorithm>
#include <string>

#include "engine/datafields.h"
#include "engine/eventlog.h"
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
        if (IsOneOf(charset, {"", "us-ascii", "iso-8859-1", "latin1", "windows-1252"})) {
            // What programs call ISO-8859-1 is Windows-1252 where the two differ.
            converted = charset.empty() && IsValidUtf8(text) ? text : Windows1252ToUtf8(text);
        } else {
            Log(LogWarning,
                "A text of the message is in %s: values of data fields that are not plain ASCII will not be readable "
                "in "
                "it. Write the message in UTF-8.",
                OneLine(charset).c_str());
            return;
        }
        entity.SetBody(converted);
    }
    entity.SetContentType(WithUtf8(contentType));
}

}  // namespace

void UseUtf8ForDataFields(CMimeMessage& message) {
    if (!message.GetRoot()) return;
    for (CMimeText* text : CollectTextEntities(*message.GetRoot()))
        UseUtf8(*text);
}
