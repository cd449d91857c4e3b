// messageparts.h - what of a message goes on: its text alone, without
// attachments, or shortened for small devices.
//
// Texts made here are UTF-8, plain, with LF.  A multipart that was kept whole
// (CMimeSource::Sealed) is a file like any attachment.
//
// Errors   false with a sentence for the sender when the message has no format
//          that can go on; CLhvException.
// Threads  Any.

#ifndef LISTHAVEN_ENGINE_INCOMING_MESSAGEPARTS_H
#define LISTHAVEN_ENGINE_INCOMING_MESSAGEPARTS_H

#include <string>
#include <string_view>
#include <vector>

#include "mime/mimemessage.h"

inline constexpr std::size_t LongestWirelessText = 500;  // characters

struct ContentOptions {
    bool plainText = false;         // what HTML says as plain text; attachments stay, images of the HTML go
    bool stripAttachments = false;  // whatever is no text; a line in the text says what it was
    bool wirelessTrim = false;      // the first characters of the text alone, without quotations and signature

    bool TakesApart() const noexcept { return plainText || stripAttachments || wirelessTrim; }
};

// The text that people see; of alternatives the plain one, or what the HTML gives.
std::string ReadableText(const CMimeEntity& root);

// "photo.jpg, image/jpeg"; nothing of it can harm where it is shown.
std::string DescribeAttachment(const CMimeEntity& entity);

// What people would call attached: leaves that are no text to read, without
// signatures and what only shows together with the HTML.
std::vector<CSharedPointer<CMimeEntity>> CollectFiles(const CSharedPointer<CMimeEntity>& root);

// Without quoted lines, the line that announces them, and the signature; at
// most LongestWirelessText characters, cut behind a word.
std::string TrimForWireless(std::string_view text);

// Whether there is anything in it that people could be sent; see docs/operator-guide.md.
bool HasUsableFormat(const CMimeMessage& message, std::string& invalid);

bool ApplyContentOptions(CMimeMessage& message, const ContentOptions& options, std::string& invalid);

// The content, one level down in a new multipart; the other fields stay at the root.
void WrapInMultipart(CMimeMessage& message);

#endif  // LISTHAVEN_ENGINE_INCOMING_MESSAGEPARTS_H
