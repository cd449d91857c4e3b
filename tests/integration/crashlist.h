// crashlist.h - the members and the message of the tests that kill programs.

#ifndef LISTHAVEN_TESTS_INTEGRATION_CRASHLIST_H
#define LISTHAVEN_TESTS_INTEGRATION_CRASHLIST_H

#include <string>
#include <string_view>

#include "utility/text.h"

namespace CrashList {

inline constexpr std::string_view LastLine = "That was all, and nothing is missing.";

inline std::string MemberAddress(int i) {
    return "member" + std::to_string(i) + "@example.net";
}

inline std::string MakeMembers(int count) {
    std::string csv = "E-mail,Name\n";
    for (int i = 0; i < count; ++i)
        csv += MemberAddress(i) + ",Member " + std::to_string(i) + "\n";
    return csv;
}

inline std::string MakeMessage() {
    std::string text = "From: list@lists.example\nTo: list@lists.example\nSubject: To $(To-Name)\n\n";
    for (int line = 0; line < 40; ++line)
        text += "Dear $(To-First-Name), this is line " + std::to_string(line) + ".\n";
    return LfToCrLf(text + std::string(LastLine) + "\n");
}

// The member's address behind a mark such as "<"; "" when it is not there.
inline std::string FindMember(const std::string& message, std::string_view mark) {
    const std::size_t open = message.find(std::string(mark) + "member");
    if (open == std::string::npos) return {};
    const std::size_t begin = open + mark.size();
    const std::size_t end = message.find('>', begin);
    return end == std::string::npos ? std::string() : message.substr(begin, end - begin);
}

}  // namespace CrashList

#endif  // LISTHAVEN_TESTS_INTEGRATION_CRASHLIST_H
