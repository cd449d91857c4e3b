// noticeparts.h - what a notice of a mail system is made of.
//
// Cost  A message of any size is looked at up to a bound; what it returns is
//       not entered.

#ifndef LISTHAVEN_ENGINE_BOUNCES_NOTICEPARTS_H
#define LISTHAVEN_ENGINE_BOUNCES_NOTICEPARTS_H

#include <string>

#include "mime/mimeheader.h"

class CMimeMessage;

struct CNoticeParts {
    CMimeHeader header;
    std::string subject;          // in UTF-8
    std::string reportType;       // of multipart/report, lower case; "unnamed"; "" of other types
    std::string text;             // for people, LF, without the returned message
    std::string deliveryStatus;   // message/delivery-status
    bool isStatusInText = false;  // it stood in a text, which should have been divided
    std::string feedback;         // message/feedback-report
    bool hasDisposition = false;  // message/disposition-notification
    bool hasReturned = false;     // a message, or its header, comes with it
    CMimeHeader returned;         // its header
};

CNoticeParts ReadNoticeParts(const CMimeMessage& message);

// Where the returned message begins in a text; the size of the text when it
// returns none.
std::size_t FindReturnedMessage(std::string_view text) noexcept;

#endif  // LISTHAVEN_ENGINE_BOUNCES_NOTICEPARTS_H
