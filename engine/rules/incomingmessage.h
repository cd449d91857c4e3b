// incomingmessage.h - a fetched message, read for the rules.
//
// What a stranger can write into a part must not count as the message's own: the
// fields are those of the header of the file, also where the only part of a
// multipart becomes the root.  The root has no control headers (X-Lhv-, X-Zq-)
// but the loop mark; the values of ours are here.
//
// Errors   false, with the reason in the last-error text, when there is no such
//          file or it cannot be read.  Any bytes make a message.
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_RULES_INCOMINGMESSAGE_H
#define LISTHAVEN_ENGINE_RULES_INCOMINGMESSAGE_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/bounces/bounceclassifier.h"
#include "engine/rules/automatic.h"
#include "mime/mailbox.h"
#include "mime/mimemessage.h"

struct CIncomingMessage {
    static constexpr std::size_t MaxRecipients = 1000;
    static constexpr std::size_t MaxBodyText = std::size_t{1} << 20;  // bytes

    CMimeMessage message;
    std::optional<CMimeSource> source;        // what it was read from, shared with it
    std::string path;                         // of its file; "" when it is only in memory
    std::shared_ptr<const std::string> text;  // then: as the file would hold it
    std::string headerText;                   // as received, LF, without control headers
    std::vector<CMailbox> from;               // From; Sender, else Return-Path, when From is empty
    CMailbox sender;                          // the first of them: who subscribes, posts, is answered
    std::vector<CMailbox> to;                 // To, CC, Resent-To; at most MaxRecipients
    std::string subject;                      // decoded, on one line, without the token of a signature
    std::string signedSubject;                // with it
    bool hasReturnPath = false;
    std::string returnPath;      // "" for <>
    std::int64_t received = 0;   // X-Lhv-Received
    std::string serverId;        // X-Lhv-Server-Id: key of the message on the POP3 server; "" without
    std::uint64_t tooLarge = 0;  // X-Lhv-Too-Large: size of a message of which only the header was fetched
    std::string directList;      // X-Lhv-Direct-Msg-List-Guid: of the list that it was composed for; "" without
    bool hasHugeHeader = false;  // larger than CMimeEntity::MaxHeaderSize; only what is within that was read of it
    bool isAccepted = false;     // by the moderator: set by who knows the folder
    Automatic automatic = Automatic::No;
    std::string automaticReason;  // "Auto-Submitted: auto-replied"
    CBounceReport bounce;

    // The text that people see, in UTF-8: plain, or what the HTML gives.  Made on first use.
    const std::string& GetBodyText() const;

    bool ReadBytes(std::string& bytes) const;  // of the file, or what it would hold

private:
    mutable std::string m_bodyText;
    mutable bool m_hasBodyText = false;
};

// A field that tells our own programs something: X-Lhv-..., X-Zq-... but for the loop mark.
bool IsControlField(std::string_view name);

// Into "message" what a stranger's file holds, to be passed on.  The fields are
// those of its own header, also where its only part becomes the root; those of
// its parts speak of nothing but their content.
bool LoadIncoming(const std::string& path, CMimeSource::Sealed sealed, CMimeMessage& message);
bool LoadIncoming(const CIncomingMessage& read, CMimeSource::Sealed sealed, CMimeMessage& message);

// One spelling for what is one mailbox: "anna"@x.example and anna@x.example. are
// anna@x.example.  Source: RFC 5321, 4.1.2.
std::string PlainAddress(std::string_view address);

// ownAddresses: the list's.
bool ReadIncomingMessage(const std::string& path, const std::vector<std::string>& ownAddresses,
                         CIncomingMessage& message);
bool ParseIncomingMessage(std::shared_ptr<const std::string> text, const std::vector<std::string>& ownAddresses,
                          CIncomingMessage& message);

#endif  // LISTHAVEN_ENGINE_RULES_INCOMINGMESSAGE_H
