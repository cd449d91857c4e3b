#include "engine/incoming/messageeffects.h"

#include <algorithm>
#include <utility>

#include "engine/incoming/mailfetch.h"
#include "engine/incoming/memberposts.h"
#include "engine/incoming/notifications.h"
#include "engine/listaccount.h"

namespace {

void AddMembers(CCycleTransaction& transaction, const CListView& view) {
    for (const auto& [address, member] : view.GetMessageChanges()) {
        if (member)
            transaction.PutMember(*member);
        else
            transaction.RemoveMember(address);
    }
}

}  // namespace

bool CMessageEffects::AddPosts(CCycleTransaction& transaction, CListView& view) {
    const std::string queueFolder = GetAccountRoot(view.GetList().number);
    std::string line;
    messages.clear();  // are written; the texts can be large
    for (CPost& post : posts) {
        const PostWay way = AddPost(transaction, view, queueFolder, std::move(post.text), post.modes, line);
        if (way == PostWay::Failed) return false;
        if (way == PostWay::Broadcast) hasBroadcast = true;
        if (!line.empty()) notes.push_back(line);
    }
    return true;
}

// The time stays that of the first one.
void CMessageEffects::MarkPost(CCycleTransaction& transaction, const CListView& view) const {
    std::string value = std::to_string(view.GetTime());
    if (postedText.empty()) return;
    if (isRepeat) {
        if (totals.held == 0 || !transaction.GetMark(MarkKind::Posted, postedText, value)) return;
        value += " held";
    } else if (totals.posted + totals.digested == 0) {
        return;
    }
    transaction.SetMark(MarkKind::Posted, postedText, value);
}

bool CMessageEffects::AddTo(CCycleTransaction& transaction, CListView& view, const CIncomingMessage& message) {
    const auto addMessage = [&](const CNewMessage& added) {
        if (added.inOrder) transaction.KeepOrder();
        return transaction.AddMessage(added.queueFolder, added.text);
    };
    const auto addCopy = [&](const CCopyOfIt& copy) {
        transaction.KeepOrder();
        return message.text ? transaction.AddCopyOf(copy.queueFolder, *message.text, copy.extraHeaders)
                            : transaction.AddCopy(copy.queueFolder, message.path, copy.extraHeaders);
    };
    const bool isPrepared =
        std::all_of(messages.begin(), messages.end(), addMessage) && std::all_of(copies.begin(), copies.end(), addCopy);
    if (!isPrepared || !AddPosts(transaction, view)) return false;
    AddMembers(transaction, view);
    if (view.GetReplyInterval() > 0) {
        for (const CAnswerMark& answer : answers)
            transaction.SetMark(MarkKind::Answer, CListView::AnswerKey(answer.ruleId, answer.address),
                                std::to_string(view.GetTime()));
    }
    MarkPost(transaction, view);
    if (keepOnServer)
        KeepOnServer(transaction, message.serverId);
    else if (removeFromServer)
        MarkForRemoval(transaction, message.serverId);  // if the server still has it
    if (!message.text) transaction.RemoveMessage(message.path);
    return true;
}

CCycleTotals& operator+=(CCycleTotals& totals, const CCycleTotals& more) noexcept {
    totals.fetched += more.fetched;
    totals.processed += more.processed;
    totals.replies += more.replies;
    totals.posted += more.posted;
    totals.digested += more.digested;
    totals.held += more.held;
    totals.added += more.added;
    totals.removed += more.removed;
    totals.bounces += more.bounces;
    totals.loops += more.loops;
    totals.failed += more.failed;
    return totals;
}
