// moderation.h - messages that wait for the moderator: Pending/<n>.
//
// A waiting message carries X-Lhv-Inbox, the folder that it goes to when it is
// accepted: relative to the data folder, with "/".  That folder alone marks it
// as accepted (Inbox/<n>/.Accepted): no header can.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.  Accepting and rejecting hold the named mutex of the folder, so of
//          two moderators one wins.
// Crash    The message is waiting or accepted.  A note that was put in before the
//          crash is in it, and is not put in again when it is accepted with it.

#ifndef LISTHAVEN_ENGINE_INCOMING_MODERATION_H
#define LISTHAVEN_ENGINE_INCOMING_MODERATION_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::string_view ModeratorNotePrefill = "[Moderator's note:\r\n\r\n]";

struct CPendingMessage {
    std::string id;  // number of the file
    std::string path;
    std::uint32_t list = 0;
    bool isAccepted = false;    // and not yet processed
    std::int64_t received = 0;  // seconds since 1970
    std::int64_t written = 0;   // nanoseconds since 1970: the order of those of one second
    std::string from;
    std::string subject;
    std::uint64_t size = 0;
};

// Those that wait, then those that are accepted; each in the order of receipt.
std::vector<CPendingMessage> ListPending(std::uint32_t listNumber);
bool FindPending(std::uint32_t listNumber, std::string_view id, CPendingMessage& message);

std::string InboxHeaderOf(std::uint32_t listNumber);  // value of X-Lhv-Inbox of a message that is to be held

// note: "" for none.  CR LF of it become LF; it and "\n\n" go in front of the
// text, of every form of the text where the message has several.  Fails for a
// message without a text that a note could go in front of.
bool AcceptPending(std::uint32_t listNumber, std::string_view id, std::string_view note);
bool RejectPending(std::uint32_t listNumber, std::string_view id);

#endif  // LISTHAVEN_ENGINE_INCOMING_MODERATION_H
