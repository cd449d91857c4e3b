// What a program that died left in the claim folder.

#include <set>
#include <utility>

#include "platform/file.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatcherstate.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace SendDaemon {

struct CDispatcher::CState::CRestart {
    CUnfiledDeliveries unfiled;
    // Message and recipient.  Of two files with one Message-ID only one can be
    // the one that the line is about.
    std::set<std::pair<std::string, std::string>> settled;
    std::uint64_t uncertain = 0;

    bool Take(const std::string& message, const std::string& recipient) {
        return unfiled.Contains(message, recipient) && settled.emplace(message, recipient).second;
    }
};

// Of a message that was being written or sent; nobody knows them any more.
static void RemoveLeftovers(const std::string& batch) {
    for (const char* pattern : {"*.tmp", "*.clean"}) {
        ListFolder(batch, pattern, [&](const std::string& name, bool isFolder) {
            if (!isFolder) Platform::RemoveFile(JoinPath(batch, name));
            return true;
        });
    }
    Platform::RemoveEmptyFolder(batch);
}

bool CDispatcher::CState::UndoClaims() {
    Log(LogLevelTrace, "UndoQueueFolder ()");
    CBatchFolder* claimed = account.GetFolder(AccountFolder::Claimed);
    if (claimed == nullptr || account.GetFolder(AccountFolder::Waiting) == nullptr || !claimed->Load()) return false;
    CRestart restart;
    if (!restart.unfiled.Load(account.GetRootFolder())) return false;

    std::vector<std::string> paths;
    std::set<std::string> batches;
    CMessageIterator walk;
    std::string path;
    if (!walk.Start(GetAccountFolderPath(account.GetRootFolder(), AccountFolder::Claimed))) return false;
    for (bool isThere = walk.PeekCurrent(path); isThere; isThere = walk.Next() && walk.PeekCurrent(path)) {
        batches.insert(ParentFolder(path));
        paths.push_back(path);
    }
    for (const std::string& each : paths) {
        if (!UndoClaim(each, restart)) return false;
    }
    for (const std::string& batch : batches)
        RemoveLeftovers(batch);
    if (!claimed->Load()) return false;
    if (restart.uncertain > 0) {
        LogFormat(LogLevelNotice,
                  "%llu messages were being sent when the program stopped; those that a server took at that moment may "
                  "arrive twice.",
                  static_cast<unsigned long long>(restart.uncertain));
    }
    // The file was filed, or rewritten for others, and the program died before it could say so.
    std::vector<CDeliveryLine> lines;
    restart.unfiled.ForEach([&](const CDeliveryLine& accepted) {
        if (restart.settled.contains({accepted.message, accepted.recipient})) return;
        lines.push_back(accepted);
        lines.back().status = DeliveryStatus::Sent;
        lines.back().time = clock();
    });
    AppendLines(std::move(lines), CDeliveryLog::Flush::Yes);
    return true;
}

bool CDispatcher::CState::UndoClaim(const std::string& path, CRestart& restart) {
    CMessageInfo info;
    std::vector<CRecipientReport> accepted;
    std::vector<std::string> rest;
    if (ReadMessageInfo(path, info)) {
        for (const std::string& recipient : SplitRecipients(info.recipients)) {
            if (restart.Take(info.messageId, recipient)) {
                accepted.push_back({.recipient = recipient,
                                    .outcome = RecipientOutcome::Accepted,
                                    .host = {},
                                    .code = 0,
                                    .enhanced = {},
                                    .text = "Taken by the server before the program stopped."});
            } else {
                rest.push_back(recipient);
            }
        }
    }
    if (accepted.empty() || !rest.empty()) ++restart.uncertain;
    if (accepted.empty()) {
        return MoveTo(AccountFolder::Waiting, path, CBatchFolder::Times::Keep) != Moved::No;
    }
    LogFormat(LogLevelNotice,
              "Message in file \"%s\" had been taken by the server before the program stopped; it is not sent again to "
              "%s%s.",
              path.c_str(), accepted.front().recipient.c_str(), accepted.size() > 1 ? " and others" : "");
    CSettlement outcome;
    outcome.accepted = std::move(accepted);
    outcome.untried = std::move(rest);
    CDelivery delivery;
    delivery.info = info;
    delivery.recipients = SplitRecipients(info.recipients);
    return Settle(path, delivery, outcome);
}

}  // namespace SendDaemon
