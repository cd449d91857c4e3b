// digestmessage.h - a digest, made of the messages that were collected for it.
//
// Multipart  a text with the contents, then a multipart/digest of the messages
//            as they were kept.  Its delimiter is random, and in none of them.
// Plain      one text in UTF-8: the contents, and of each message the fields that
//            readers want and its text.  A line of a message that would be taken
//            for a separator is moved in by a blank; attachments are named only.
//
// Errors   false, with the reason in the last-error text.
// Threads  One at a time in the process: data fields are shared.
// Cost     Linear in the messages.
// Source   RFC 2046, 5.1.5 (multipart/digest); RFC 1153 for the plain form.

#ifndef LISTHAVEN_ENGINE_INCOMING_DIGESTMESSAGE_H
#define LISTHAVEN_ENGINE_INCOMING_DIGESTMESSAGE_H

#include <cstdint>
#include <span>
#include <string>

#include "engine/broadcast.h"
#include "mime/mimemessage.h"

enum class DigestFormat : std::uint8_t { Multipart, Plain };

// entries: paths, in the order of receipt.  The result is to be broadcast to the
// members that want digests; references in the entries are not expanded.  A
// file that is no message is told of in the contents; one that cannot be read
// fails: the caller has all entries yet.
bool MakeDigest(std::span<const std::string> entries, DigestFormat format, std::uint32_t number,
                const BroadcastList& list, std::int64_t now, CMimeMessage& digest);

#endif  // LISTHAVEN_ENGINE_INCOMING_DIGESTMESSAGE_H
