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

// A claimed file, and who of its recipients has the message.
struct CDispatcher::CState::CClaim {
    std::string path;
    CMessageInfo info;
    std::vector<CRecipientReport> accepted;
    std::vector<std::string> rest;
};

struct CDispatcher::CState::CRestart {
    CUnfiledDeliveries unfiled;
    // Message and recipient.  Of two files with one Message-ID only one can be
    // the one that the line is about.
    std::set<std::pair<std::string, std::string>> settled;
    std::uint64_t uncertain = 0;

    std::vector<CClaim> claims;

    bool Take(const std::string& message, const std::string& recipient) {
        return unfiled.Contains(message, recipient) && settled.emplace(message, recipient).second;
    }
    void Read(const std::string& path);
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

    std::set<std::string> batches;
    CMessageIterator walk;
    std::string path;
    if (!walk.Start(GetAccountFolderPath(account.GetRootFolder(), AccountFolder::Claimed))) return false;
    for (bool isThere = walk.PeekCurrent(path); isThere; isThere = walk.Next() && walk.PeekCurrent(path)) {
        batches.insert(ParentFolder(path));
        restart.Read(path);
    }
    // Said before the first goes back: a kill in between must not keep it secret.
    if (restart.uncertain > 0) {
        LogFormat(LogLevelNotice,
                  "%llu messages were being sent when the program stopped; those that a server took at that moment may "
                  "arrive twice.",
                  static_cast<unsigned long long>(restart.uncertain));
    }
    for (CClaim& claim : restart.claims) {
        if (!UndoClaim(claim)) return false;
    }
    for (const std::string& batch : batches)
        RemoveLeftovers(batch);
    if (!claimed->Load()) return false;
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

void CDispatcher::CState::CRestart::Read(const std::string& path) {
    CClaim& claim = claims.emplace_back();
    claim.path = path;
    if (ReadMessageInfo(path, claim.info)) {
        for (const std::string& recipient : SplitRecipients(claim.info.recipients)) {
            if (Take(claim.info.messageId, recipient)) {
                claim.accepted.push_back({.recipient = recipient,
                                          .outcome = RecipientOutcome::Accepted,
                                          .host = {},
                                          .code = 0,
                                          .enhanced = {},
                                          .text = "Taken by the server before the program stopped."});
            } else {
                claim.rest.push_back(recipient);
            }
        }
    }
    if (claim.accepted.empty() || !claim.rest.empty()) ++uncertain;
}

bool CDispatcher::CState::UndoClaim(CClaim& claim) {
    if (claim.accepted.empty()) {
        return MoveTo(AccountFolder::Waiting, claim.path, CBatchFolder::Times::Keep) != Moved::No;
    }
    LogFormat(LogLevelNotice,
              "Message in file \"%s\" had been taken by the server before the program stopped; it is not sent again to "
              "%s%s.",
              claim.path.c_str(), claim.accepted.front().recipient.c_str(),
              claim.accepted.size() > 1 ? " and others" : "");
    CSettlement outcome;
    outcome.accepted = std::move(claim.accepted);
    outcome.untried = std::move(claim.rest);
    CDelivery delivery;
    delivery.info = claim.info;
    delivery.recipients = SplitRecipients(claim.info.recipients);
    return Settle(claim.path, delivery, outcome);
}

}  // namespace SendDaemon
