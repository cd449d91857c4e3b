// jointexts.h - texts put in front of and behind the texts of a message: headers,
// footers, notes.
//
// Every plain and every HTML text of the message gets them, in UTF-8 (so does
// the message's own text); between them and it stands what CMimeText has for
// that.  In HTML they go inside the body element.  Where no text can take them -
// there is none, its character set is unknown, the message is signed - they are
// a text of their own: in front when there is a header, else at the end.
//
// Errors   CLhvException.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_INCOMING_JOINTEXTS_H
#define LISTHAVEN_ENGINE_INCOMING_JOINTEXTS_H

#include <string>
#include <string_view>

#include "mime/mimemessage.h"

struct JoinedText {
    std::string plain;  // UTF-8, LF
    std::string html;   // what goes inside a body element
    bool IsEmpty() const noexcept { return plain.empty() && html.empty(); }
};

// From a stored message with a plain text, an HTML one, or both.
JoinedText ReadJoinedText(const CMimeMessage& message);
JoinedText NoteText(std::string_view plain);

enum class TextSeparator { Rule, None };

void JoinTexts(CMimeMessage& message, const JoinedText& header, const JoinedText& footer,
               TextSeparator separator = TextSeparator::Rule);

#endif  // LISTHAVEN_ENGINE_INCOMING_JOINTEXTS_H
