// messageinfo.h - for whom a queued message is, by its header.
//
// Errors   false, with the reason in the last-error text.
// Threads  Any.

#ifndef LISTHAVEN_SENDDAEMON_MESSAGEINFO_H
#define LISTHAVEN_SENDDAEMON_MESSAGEINFO_H

#include <string>
#include <string_view>
#include <vector>

namespace SendDaemon {

struct CMessageInfo {
    std::string returnPath;  // bare address; "" for "<>"
    std::string recipients;  // bare addresses joined by ","
    std::string messageId;   // without <>; of a message without one its number in the queue
    std::string broadcast;   // X-Lhv-Broadcast; "" without
};

// X-Lhv-Return-Path-Override, else From; X-Lhv-Recipient-Override, else To,
// and then CC and BCC, which "X-Lhv-Recipients-Only: 1" leaves out.  Fails
// without a sender or without a recipient; messageId and broadcast are then set
// as far as the file could be read.
bool ReadMessageInfo(std::string_view path, CMessageInfo& info);

// Each once, as it is written first: without regard to case, as members are.
std::vector<std::string> SplitRecipients(std::string_view joined);

// The decoded Subject and To, for log lines.  Fails when either is missing.
bool ReadMessageTitle(std::string_view path, std::string& subject, std::string& recipient);

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_MESSAGEINFO_H
