// messageeffects.h - what one message leads to, collected before any of it is
// put into the transaction of its group: a message that fails halfway has done
// nothing, and the others of the group go on.
//
// Threads  One at a time.

#ifndef LISTHAVEN_ENGINE_INCOMING_MESSAGEEFFECTS_H
#define LISTHAVEN_ENGINE_INCOMING_MESSAGEEFFECTS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/broadcast.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/listview.h"
#include "engine/incoming/mailcycle.h"

struct CMessageEffects {
    struct CNewMessage {
        std::string queueFolder;
        std::string text;      // CR LF
        bool inOrder = false;  // the folder is read in the order in which messages came to it
    };
    struct CCopyOfIt {
        std::string queueFolder;
        std::string extraHeaders;  // LF
    };
    struct CPost {
        std::string text;  // with its control headers
        BroadcastModes modes;
    };
    struct CAnswerMark {
        std::uint32_t ruleId = 0;
        std::string address;
    };

    std::vector<CNewMessage> messages;
    std::vector<CCopyOfIt> copies;
    std::vector<CPost> posts;
    std::vector<CAnswerMark> answers;
    bool removeFromServer = false;
    bool keepOnServer = false;       // whatever else says that it is to be removed
    std::string postedText;          // key of a member's post
    bool isRepeat = false;           // which says the same as an earlier one
    std::vector<std::string> notes;  // lines for the log; warnings for a repeated post
    std::vector<std::string> done;   // one more line
    CCycleTotals totals;
    bool hasBroadcast = false;  // by AddTo(): a post becomes one when the transaction is committed

    void Say(std::string what) { done.push_back(std::move(what)); }

    // With the member changes that the view has for the message; the message
    // itself is removed.  False with the reason when the transaction cannot take it.
    bool AddTo(CCycleTransaction& transaction, CListView& view, const CIncomingMessage& message);

private:
    bool AddPosts(CCycleTransaction& transaction, CListView& view);
    void MarkPost(CCycleTransaction& transaction, const CListView& view) const;
};

CCycleTotals& operator+=(CCycleTotals& totals, const CCycleTotals& more) noexcept;

#endif  // LISTHAVEN_ENGINE_INCOMING_MESSAGEEFFECTS_H
