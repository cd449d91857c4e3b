#include "engine/literaltext.h"

#include "engine/datafields.h"
#include "utility/text.h"

namespace {

constexpr std::string_view Mark = "$(";
constexpr std::string_view MarkReference = "$($)";

}  // namespace

std::string LiteralText(std::string_view text, const std::function<bool(std::string_view name)>& isKept) {
    std::string result;
    std::size_t position = 0;
    std::size_t closing = 0;  // the next ")", looked for once for all marks before it
    for (std::size_t start = text.find(Mark); start != std::string_view::npos; start = text.find(Mark, position)) {
        result.append(text.substr(position, start - position));
        if (closing != std::string_view::npos && closing <= start) closing = text.find(')', start);
        const bool isClosed = closing != std::string_view::npos;
        if (isClosed && isKept && isKept(text.substr(start + Mark.size(), closing - start - Mark.size()))) {
            position = closing + 1;
            result.append(text.substr(start, position - start));
        } else {
            position = start + Mark.size();
            result.append(MarkReference);
        }
    }
    return result.append(text.substr(position));
}

std::string ReadableText(std::string_view literalText) {
    std::string text(literalText);
    ReplaceAll(text, MarkReference, Mark);
    return text;
}

void SetLiteralTextField() {
    static const CDataFieldName Field("$");
    SetLiteralDataField(Field, Mark);
}
