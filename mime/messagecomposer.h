// messagecomposer.h - changes a message as a whole: its texts, its attachments.
//
// Errors   CLhvException.  A message without root gets one where a text or a
//          file is added.

#ifndef LISTHAVEN_MIME_MESSAGECOMPOSER_H
#define LISTHAVEN_MIME_MESSAGECOMPOSER_H

#include <string>
#include <string_view>

#include "mime/mimemessage.h"
#include "mime/mimemultipart.h"
#include "mime/mimetext.h"

enum class TextKind { Plain, Html };
enum class MultipartKind { Mixed, Related };

// The first text body of that kind, depth first; null when there is none.
CMimeText* FindTextPart(const CMimeMessage& message, TextKind kind);

std::string GetMessageText(const CMimeMessage& message, TextKind kind);  // decoded; "" when there is none
void SetMessageText(CMimeMessage& message, std::string_view text, TextKind kind);

// Puts text and "<BR>\n" before the last "</body>" of the HTML text, or at its
// end.  False when the message has no HTML text.
bool InsertIntoHtml(CMimeMessage& message, std::string_view html);

// Makes the root a multipart if it is none: what it was becomes the first part,
// and all fields but Content- ones stay at the root.
CMimeMultipart& MakeMultipart(CMimeMessage& message, MultipartKind kind);

void AttachFileToMessage(CMimeMessage& message, std::string_view path);
void EmbedImage(CMimeMessage& message, std::string_view path, std::string_view id);  // id without angle brackets

#endif  // LISTHAVEN_MIME_MESSAGECOMPOSER_H
