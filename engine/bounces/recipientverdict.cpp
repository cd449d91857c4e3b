#include "engine/bounces/recipientverdict.h"

#include <algorithm>
#include <array>

#include "utility/text.h"

namespace {

constexpr std::size_t MaxEvidence = 500;
constexpr std::size_t MaxText = 16 * 1024;

// 5.0.0 says no more than 5.
bool IsGeneral(const CStatusCode& status) noexcept {
    return status.subject == 0 && status.detail == 0;
}

std::string_view Paragraph(std::string_view text) noexcept {
    constexpr std::size_t MaxParagraph = 2000;
    return text.substr(0, std::min(text.find("\n\n"), MaxParagraph));
}

// The piece of a text that a phrase stands in: its line is not known any more,
// so what is around it.
std::string AroundPhrase(std::string_view normalized, std::size_t position) {
    constexpr std::size_t Before = 80;
    constexpr std::size_t After = 160;
    std::size_t start = position > Before ? position - Before : 0;
    if (start != 0) start = std::min(normalized.find(' ', start), position);
    return std::string(Trim(normalized.substr(start, position - start + After)));
}

}  // namespace

std::string MakeEvidence(std::string_view text) {
    std::string line;
    for (const char c : Trim(text)) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isBlank = byte <= ' ' || byte == 0x7F;
        if (isBlank && (line.empty() || line.back() == ' ')) continue;
        line += isBlank ? ' ' : c;
        if (line.size() == MaxEvidence) break;
    }
    // Not within a character.
    while (line.size() == MaxEvidence && !line.empty() && (static_cast<unsigned char>(line.back()) & 0x80) != 0)
        line.pop_back();
    return std::string(TrimRight(line));
}

void JudgeRecipient(CBouncedRecipient& recipient, const CStatusCode& declared, std::string_view diagnostic,
                    std::string_view text) {
    diagnostic = diagnostic.substr(0, MaxText);
    text = text.substr(0, MaxText);
    const CReplyCodes said = FindReplyCodes(diagnostic.empty() ? text : diagnostic);
    const bool isQuoted = !diagnostic.empty();
    if (!isQuoted && said.reply != 0) diagnostic = Paragraph(text.substr(said.position));
    CStatusCode status = declared;
    const CStatusCode saidStatus = said.status || !isQuoted ? said.status : FindStatusCode(diagnostic);
    if (!status || (IsGeneral(status) && saidStatus)) status = saidStatus;

    const std::string words = NormalizeReply(diagnostic);
    const std::string context = NormalizeReply(text);
    const CReplyMeaning byWords = MeaningOfReply(words);
    const CReplyMeaning byContext = MeaningOfReply(context);
    const CReplyMeaning byStatus = MeaningOfStatus(status);
    // Of equal ones the first counts: what the server said, or all that there is.
    const std::array<CReplyMeaning, 4> meanings = {diagnostic.empty() ? byContext : byWords, byStatus, byContext,
                                                   MeaningOfReplyCode(said.reply)};
    const auto best =
        std::max_element(meanings.begin(), meanings.end(),
                         [](const CReplyMeaning& a, const CReplyMeaning& b) { return a.weight < b.weight; });
    recipient.bounceClass = best->weight == ReplyWeight::None ? BounceClass::Soft : best->bounceClass;
    const bool isTemporary = status.classCode == 4 || (status.classCode == 0 && said.reply >= 400 && said.reply < 500);
    if (isTemporary && recipient.bounceClass == BounceClass::Hard) recipient.bounceClass = BounceClass::Soft;

    recipient.status = status.GetText();
    recipient.replyCode = said.reply;
    if (!diagnostic.empty())
        recipient.evidence = MakeEvidence(diagnostic);
    else
        recipient.evidence =
            MakeEvidence(byContext.weight == ReplyWeight::None ? text : AroundPhrase(context, byContext.position));
}
