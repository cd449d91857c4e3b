// noticewords.h - the words by which a notice is known, in many languages.
//
// Threads  Any.
// Cost     Linear in the text.

#ifndef LISTHAVEN_ENGINE_BOUNCES_NOTICEWORDS_H
#define LISTHAVEN_ENGINE_BOUNCES_NOTICEWORDS_H

#include <cstdint>
#include <string_view>

enum class NoticeWords : std::uint8_t {
    FailureSubject,
    FailureText,
    Warning,  // nothing has failed yet, whatever else is said
    Retry,    // there will be further attempts, unless one of Final stands there too
    DelaySubject,
    Final,
    GivenUp,  // there will be none, whatever else is said
    Success,
    Vacation,
    Challenge,
};

// normalized: as NormalizeReply() gives it.
bool HasWords(std::string_view normalized, NoticeWords words);

#endif  // LISTHAVEN_ENGINE_BOUNCES_NOTICEWORDS_H
