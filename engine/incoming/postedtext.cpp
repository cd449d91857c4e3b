#include "engine/incoming/postedtext.h"

#include <string_view>
#include <vector>

#include "engine/incoming/fetchedmessage.h"
#include "engine/incoming/subjectline.h"
#include "mime/mimewalk.h"
#include "utility/text.h"

namespace {

// Words with one blank between them.
std::string WordsOf(std::string_view line) {
    std::string words;
    for (const char c : line) {
        const bool isBlank = static_cast<unsigned char>(c) <= ' ';
        if (!isBlank) {
            words += c;
        } else if (!words.empty() && words.back() != ' ') {
            words += ' ';
        }
    }
    if (words.ends_with(' ')) words.pop_back();
    return words;
}

std::string OwnText(const std::string& body) {
    std::vector<std::string> lines;  // that say something
    bool isInQuote = false;
    for (const std::string_view line : Split(body, '\n')) {
        std::string words = WordsOf(line);
        if (words.empty()) continue;
        const bool isQuote = words.front() == '>';
        if (isQuote && !isInQuote && !lines.empty() && lines.back().ends_with(':')) lines.pop_back();
        isInQuote = isQuote;
        if (!isQuote) lines.push_back(std::move(words));
    }
    return Join(lines, " ");
}

// The subject without what replies and lists put in front.
std::string TopicOf(const std::string& subject) {
    std::string topic = PlainSubject(subject);
    for (std::size_t before = topic.size() + 1; topic.size() < before;) {
        before = topic.size();
        std::string_view rest = WithoutReplyMarks(Trim(topic));
        const std::size_t tagEnd = rest.starts_with('[') ? rest.find(']') : std::string_view::npos;
        if (tagEnd != std::string_view::npos) rest.remove_prefix(tagEnd + 1);
        topic = std::string(rest);
    }
    return LowerAscii(topic);
}

}  // namespace

std::string KeyOfPostedText(const CIncomingMessage& message) {
    if (message.sender.address.empty() || !message.message.GetRoot()) return {};
    const std::string text = OwnText(message.GetBodyText());
    if (text.empty()) return {};
    CContentKey key;
    key.Add(LowerAscii(message.sender.address) + '\n' + text);
    constexpr std::size_t ShortText = 40;  // people say "Thanks!" more than once a day
    if (text.size() < ShortText) key.Add('\n' + TopicOf(message.subject));
    for (const auto& attachment : CollectAttachments(message.message.GetRoot())) {
        key.Add('\n' + attachment->GetHeader().GetField("Content-Type") + ' ' +
                std::to_string(attachment->GetTextSize()));
    }
    return key.Finish();
}
