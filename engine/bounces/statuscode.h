// statuscode.h - codes in what a server said: status codes (RFC 3463) and reply
// codes of SMTP (RFC 5321).
//
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_BOUNCES_STATUSCODE_H
#define LISTHAVEN_ENGINE_BOUNCES_STATUSCODE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "engine/bounces/replytext.h"

struct CStatusCode {
    int classCode = 0;  // 2, 4 or 5; 0: there is none
    int subject = 0;
    int detail = 0;

    explicit operator bool() const noexcept { return classCode != 0; }
    std::string GetText() const;  // "5.1.1", "" when there is none
};

// Whether the text begins with a status code; its length.
std::size_t ReadStatusCode(std::string_view text, CStatusCode& status) noexcept;

// The first in a text; where is the place after it.  Numbers of four parts are none.
CStatusCode FindStatusCode(std::string_view text) noexcept;

// Codes of a text for people, in which other numbers stand too: a reply code
// only where one would stand, a status code only behind one or at the start of
// a line.
struct CReplyCodes {
    int reply = 0;
    std::size_t position = 0;  // of the reply code
    CStatusCode status;
};
CReplyCodes FindReplyCodes(std::string_view text) noexcept;

// What a code says, and how much.
CReplyMeaning MeaningOfStatus(const CStatusCode& status) noexcept;
CReplyMeaning MeaningOfReplyCode(int code) noexcept;

#endif  // LISTHAVEN_ENGINE_BOUNCES_STATUSCODE_H
