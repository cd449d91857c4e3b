// standardtexts.h - the messages that a new list answers with.
//
// Each is complete: From and Subject in data fields, a text that can go out as
// it stands.  They are a start; the operator puts his own in their place.
//
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_RULES_STANDARDTEXTS_H
#define LISTHAVEN_ENGINE_RULES_STANDARDTEXTS_H

#include <cstdint>

#include "mime/mimemessage.h"

enum class StandardText : std::uint8_t {
    ConfirmationRequest,  // a reply that keeps the subject confirms
    Welcome,
    Goodbye,
    DigestOn,
    DigestOff,
    Help,
    MembersOnly,    // to those who post without being subscribed
    OwnerOnly,      // to those who write to an announcement list
    InvalidFormat,  // to those whose post has a format that cannot be passed on
    SampleAnswer,   // of an autoresponder
    TooLarge,
    Count
};

CMimeMessage MakeStandardMessage(StandardText text);
inline CMimeMessage MakeTooLargeReply() {
    return MakeStandardMessage(StandardText::TooLarge);
}

#endif  // LISTHAVEN_ENGINE_RULES_STANDARDTEXTS_H
