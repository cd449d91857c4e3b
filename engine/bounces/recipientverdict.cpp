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

// The answer that a text begins with: its lines up to an empty one or one with another code.
std::string_view Answer(std::string_view text) noexcept {
    constexpr std::size_t MaxAnswer = 2000;
    const std::string_view all = text.substr(0, std::min(text.find("\n\n"), MaxAnswer));
    for (std::size_t end = all.find('\n'); end != std::string_view::npos; end = all.find('\n', end + 1)) {
        const std::string_view next = all.substr(end + 1, 4);
        const bool isReply = next.size() == 4 && (next[0] == '4' || next[0] == '5') && FindReplyCodes(next).reply != 0;
        if (isReply && next.substr(0, 3) != all.substr(0, 3)) return all.substr(0, end);
    }
    return all;
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
    if (!isQuoted && said.reply != 0) diagnostic = Answer(text.substr(said.position));
    CStatusCode status = declared;
    const CStatusCode saidStatus = said.status || !isQuoted ? said.status : FindStatusCode(diagnostic);
    if (!status || (IsGeneral(status) && saidStatus)) status = saidStatus;

    const std::string words = NormalizeReply(diagnostic);
    const std::string context = NormalizeReply(text);
    const CReplyMeaning byWords = MeaningOfReply(words);
    const CReplyMeaning byContext = MeaningOfReply(context);
    // What the server said counts more than its code, and both more than what is around them.
    struct CSaying {
        CReplyMeaning meaning;
        int worth;
    };
    const auto saying = [](const CReplyMeaning& meaning, int trust) {
        const bool isNone = meaning.weight == ReplyWeight::None;
        return CSaying{meaning, isNone ? 0 : static_cast<int>(meaning.weight) * 4 + trust};
    };
    const std::array<CSaying, 4> sayings = {saying(diagnostic.empty() ? byContext : byWords, 4),
                                            saying(MeaningOfStatus(status), 2), saying(byContext, -1),
                                            saying(MeaningOfReplyCode(said.reply), 0)};
    const auto best = std::max_element(sayings.begin(), sayings.end(),
                                       [](const CSaying& a, const CSaying& b) { return a.worth < b.worth; });
    recipient.bounceClass = best->worth == 0 ? BounceClass::Soft : best->meaning.bounceClass;
    // A server that answers with a code has been connected to: it is the sender that it refuses.
    if (said.reply >= 500 && best->meaning.bounceClass == BounceClass::Soft && best == sayings.begin() &&
        std::string_view(diagnostic.empty() ? context : words)
            .substr(best->meaning.position)
            .starts_with("connection refused"))
        recipient.bounceClass = BounceClass::Blocked;
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
