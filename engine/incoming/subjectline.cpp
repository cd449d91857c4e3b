#include "engine/incoming/subjectline.h"

#include <algorithm>

#include "engine/signature.h"
#include "platform/guid.h"
#include "utility/formattext.h"
#include "utility/text.h"

namespace {

constexpr std::string_view IdStart = "[ID:";
constexpr std::size_t IdDigits = 8;

bool IsHexDigit(char c) noexcept {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

// What of the subject is a mark of a reply, its blanks included.
std::size_t ReplyMarkSize(std::string_view subject) noexcept {
    if (!StartsWithNoCase(subject, "Re")) return 0;
    std::size_t end = 2;
    if (end < subject.size() && (subject[end] == '[' || subject[end] == '^')) {  // "Re[2]:", "Re^2:"
        const bool isBracket = subject[end] == '[';
        end = std::min(subject.find_first_not_of("0123456789", end + 1), subject.size());
        if (isBracket && (end == subject.size() || subject[end++] != ']')) return 0;
    }
    if (end >= subject.size() || subject[end] != ':') return 0;
    return std::min(subject.find_first_not_of(" \t", end + 1), subject.size());
}

}  // namespace

std::string_view WithoutReplyMarks(std::string_view subject) noexcept {
    subject = Trim(subject);
    while (const std::size_t size = ReplyMarkSize(subject))
        subject.remove_prefix(size);
    return subject;
}

std::string TagSubject(std::string_view subject, std::string_view tag) {
    tag = Trim(tag);
    if (tag.empty()) return std::string(subject);
    std::string rest;
    std::size_t position = 0;
    for (std::size_t start = FindNoCase(subject, tag); start != std::string_view::npos;
         start = FindNoCase(subject, tag, position)) {
        rest.append(subject.substr(position, start - position));
        position = start + tag.size();
        // One of the blanks around it goes with it.
        if ((rest.empty() || rest.back() == ' ') && position < subject.size() && subject[position] == ' ') ++position;
    }
    rest.append(subject.substr(position));
    const std::string_view plain = WithoutReplyMarks(rest);
    const bool isReply = plain.size() != Trim(rest).size();
    std::string result(tag);
    if (isReply) result.append(" Re:");
    if (!plain.empty()) result.append(" ").append(plain);
    return result;
}

std::string WithSubjectId(std::string_view subject) {
    std::string result = WithoutSubjectIds(subject);
    if (!result.empty()) result += ' ';
    return result + FormatText("[ID:%08x]", static_cast<unsigned>(Platform::NewGuid().data1));
}

std::string WithoutSubjectIds(std::string_view subject) {
    std::string result;
    std::size_t position = 0;
    for (std::size_t start = subject.find(IdStart); start != std::string_view::npos;
         start = subject.find(IdStart, start + 1)) {
        const std::string_view digits = subject.substr(std::min(start + IdStart.size(), subject.size()), IdDigits);
        const std::size_t end = start + IdStart.size() + IdDigits;
        if (end >= subject.size() || subject[end] != ']' || !std::all_of(digits.begin(), digits.end(), IsHexDigit))
            continue;
        result.append(TrimRight(subject.substr(position, start - position)));
        position = end + 1;
    }
    if (position == 0) return std::string(subject);
    return std::string(Trim(result.append(subject.substr(position))));
}

std::string PlainSubject(std::string_view subject) {
    return std::string(Trim(WithoutSignature(WithoutSubjectIds(subject))));
}
