// Whole processing on real folders: what lies in the inbox, and what becomes of it.

#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "app/settings.h"
#include "engine/blockedaddresses.h"
#include "engine/customfields.h"
#include "engine/eventlog.h"
#include "engine/incoming/bouncerecords.h"
#include "engine/incoming/digests.h"
#include "engine/incoming/moderation.h"
#include "engine/repair.h"
#include "engine/rules/accesslist.h"
#include "engine/rules/rulestore.h"
#include "platform/faultplan.h"
#include "senddaemon/deliverylog.h"
#include "tests/engine/incoming/processingfixture.h"
#include "tests/platform/filespeed.h"

namespace {

constexpr std::int64_t Day = 86400;

std::string BounceOf(const std::string& address, const std::string& status) {
    return "Return-Path: <>\nFrom: Mail Delivery System <mailer-daemon@mx.example>\nTo: club@harbour.example\n"
           "Subject: Undelivered Mail\nMIME-Version: 1.0\nContent-Type: multipart/report; "
           "report-type=delivery-status; boundary=b\n\n--b\n\nIt failed.\n--b\nContent-Type: "
           "message/delivery-status\n\nReporting-MTA: dns; mx.example\n\nFinal-Recipient: rfc822; " +
           address + "\nAction: failed\nStatus: " + status + "\n\n--b--\n";
}

TEST_F(ProcessingTest, OnlyThePersonWhoWasAskedConfirms) {
    MakeClub(ListKind::Discussion);
    const struct {
        const char* what;
        const char* from;
        std::int64_t later;
        bool isForged;
        const char* headers;
        bool isAdded;
    } rows[] = {
        {"another person", "eve@x.example", 10, false, "", false},
        {"a changed token", "rita@x.example", 10, true, "", false},
        {"a vacation program", "rita@x.example", 10, false, "Auto-Submitted: auto-replied\n", false},
        {"a mass mailing", "rita@x.example", 10, false, "Precedence: bulk\n", false},
        {"a late answer", "rita@x.example", 15 * Day, false, "", false},
        {"an answer in time", "Rita@X.example", 13 * Day, false, "", true},
    };
    Receive("rita@x.example", CommandAddress, "subscribe");
    EXPECT_EQ(Process(), "0 fetched, 1 processed, 1 answered");
    const std::vector<std::string> asked = TakeQueue();
    ASSERT_EQ(asked.size(), 1U);
    EXPECT_EQ(FieldOf(asked[0], "Auto-Submitted"), "auto-replied");
    const std::string subject = FieldOf(asked[0], "Subject");
    const std::size_t token = subject.find("[LHV-");
    ASSERT_NE(token, std::string::npos) << subject;
    const std::int64_t start = m_now;
    for (const auto& row : rows) {
        m_now = start + row.later;
        std::string answer = "Re: " + subject;
        char& changed = answer[token + 4 + 7];
        if (row.isForged) changed = changed == 'A' ? 'B' : 'A';
        Receive(row.from, CommandAddress, answer, row.headers);
        Process();
        CMember member;
        EXPECT_EQ(FindMember(row.from, member), row.isAdded) << row.what;
        EXPECT_EQ(member.GetProperty("Subscribed"), row.isAdded ? std::to_string(m_now) : "") << row.what;
        EXPECT_EQ(member.lastName, row.isAdded ? "Roe" : "") << row.what;
    }
}

TEST_F(ProcessingTest, WhatBecomesOfMessages) {
    const struct {
        ListKind kind;
        const char* from;
        const char* to;
        const char* subject;
        const char* headers;
        const char* expected;  // behind "0 fetched, 1 processed"
    } rows[] = {
        {ListKind::Discussion, "ann@x.example", ListAddress, "Hi", "", ", 1 posted, 1 for the digest"},
        {ListKind::Discussion, "ann@x.example", ListAddress, "Away", "Auto-Submitted: auto-replied\n", ""},
        {ListKind::Discussion, "ann@x.example", ListAddress, "Hi", "X-Loop: club@harbour.example\n", ", 1 loops"},
        {ListKind::Discussion, "eve@x.example", ListAddress, "Hi", "", ", 1 answered"},
        {ListKind::Discussion, "eve@x.example", ListAddress, "Again on the same day", "", ""},
        {ListKind::Discussion, "denied@x.example", ListAddress, "Hi", "", ""},
        {ListKind::Discussion, "denied@x.example", CommandAddress, "subscribe", "", ""},
        {ListKind::Discussion, "eve@x.example", ListAddress, "The day after", "", ", 1 answered"},
        {ListKind::Discussion, "ann@x.example", CommandAddress, "DIGEST ON", "", ", 1 answered"},
        {ListKind::Discussion, "ann@x.example", CommandAddress, "help", "", ", 1 answered"},
        {ListKind::Discussion, "ann@x.example", CommandAddress, "unsubscribe", "", ", 1 answered, 1 removed"},
        {ListKind::Announcement, "boss@harbour.example", ListAddress, "News", "", ", 1 posted, 1 for the digest"},
        {ListKind::Announcement, "ann@x.example", ListAddress, "Me too", "", ""},
        {ListKind::Autoresponder, "eve@x.example", ListAddress, "Anything", "", ", 1 answered"},
        {ListKind::Autoresponder, "mailer-daemon@x.example", ListAddress, "Anything", "", ""},
    };
    std::optional<ListKind> kind;
    for (const auto& row : rows) {
        if (kind != row.kind) {
            MakeClub(row.kind, {"ann@x.example", "bob@x.example", "denied@x.example"});
            CAccessList(m_list).Add({Access::Denied, "denied@x.example"});
            kind = row.kind;
        }
        m_now += Day / 3;
        Receive(row.from, row.to, row.subject, row.headers);
        EXPECT_EQ(Process(), std::string("0 fetched, 1 processed") + row.expected) << row.subject << " " << row.from;
    }
}

// What a front end has put into the inbox has no To.
TEST_F(ProcessingTest, AComposedMessageIsForTheListThatItNames) {
    MakeClub(ListKind::Discussion, {"ann@x.example", "bob@x.example"});
    const std::string guid = GetCatalogue().GetText(GetCatalogue().FindByNumber(m_list), ListColumn::Guid);
    for (const std::string& named : {std::string("{another}"), guid, std::string()}) {
        PutIntoInbox("From: ann@x.example\nSubject: Hi\nX-Lhv-Direct-Msg-List-Guid: " + named + "\n\nHello\n");
        EXPECT_EQ(Process().find("1 posted") != std::string::npos, named == guid) << named;
    }
}

// It may come from a program, or be one of the list's own: nobody is answered, and it is not lost.
TEST_F(ProcessingTest, WhatHasAHugeHeaderIsSetAside) {
    MakeClub(ListKind::Autoresponder, {});
    const std::string fold(1 << 20, 'x');
    PutIntoInbox("From: eve@x.example\nX-Long: " + fold + "\n y\nX-Loop: " + ListAddress + "\n\nHello\n");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Process(), "0 fetched, 1 failed");
    EXPECT_EQ(QueuedFiles(GetFailedFolder(m_list)).size(), 1U);
    EXPECT_TRUE(TakeQueue().empty());
}

// A member who came, one who went or changed in the same transaction: as the tables have them afterwards.
TEST_F(ProcessingTest, FewRecipientsGetTheCopiesThatABroadcastMakes) {
    MakeClub(ListKind::Discussion, {"ann@x.example", "bob@x.example", "dan@x.example"});
    CMemberStore store;
    store.Open(m_list);
    CCustomFields fields;
    fields.Load(m_list);
    fields.Set(0, {.name = "Town", .description = {}});
    CMember kim = MakeMember("kim@x.example");
    kim.firstName = "kim";
    kim.lastName = "$(Town)";
    kim.SetField(0, "Kiel");
    store.Add(kim);
    CMember idle = MakeMember("idle@x.example");
    idle.SetProperty("Inactive", "1");
    store.Add(idle);
    store.Add(MakeMember("blocked@x.example"));
    CBlockedAddresses().Add("blocked@x.example");
    CRuleStore rules(m_list);
    std::vector<CMessageRule> all = rules.Load();
    for (CMessageRule& rule : all) {
        if (!rule.Get().forward) continue;
        rule.Edit().addFooter =
            rule.Edit().footer.LoadText(CMimeSource("Subject: f\n\n$(To-First-Name) of $(Town), $(To-Email), to "
                                                    "$(Original-From-Email) $(Original-Subject)\n"));
    }
    rules.Replace(all);
    const auto post = [&] {
        Receive("ann@x.example", ListAddress, "Hi $(Password)", "", "$(To-Name), $(Original-Subject), $(Town)");
    };
    Receive("bob@x.example", CommandAddress, "unsubscribe");
    Receive("dan@x.example", CommandAddress, "DIGEST ON");
    post();
    EXPECT_EQ(Process(), "0 fetched, 3 processed, 2 answered, 1 posted, 1 for the digest, 1 removed");
    EXPECT_TRUE(Jobs().empty());
    const auto copies = [this] {
        std::map<std::string, std::string> texts;
        std::set<std::string> broadcasts;
        for (std::string text : TakeQueue()) {
            const std::string broadcast = FieldOf(text, "X-Lhv-Broadcast");
            if (broadcast.empty()) continue;
            broadcasts.insert(broadcast);
            for (const char* name : {"Date: ", "Message-ID: ", "X-Lhv-Broadcast: "}) {
                const std::size_t start = text.find("\r\n" + std::string(name));
                EXPECT_LT(start, text.find("\r\n\r\n")) << name << text;
                text.erase(start, text.find("\r\n", start + 2) - start);
            }
            texts[FieldOf(text, "X-Lhv-Recipient-Override")] = text;
        }
        EXPECT_EQ(broadcasts.size(), 1U);
        return texts;
    };
    const std::map<std::string, std::string> direct = copies();
    EXPECT_EQ(direct.size(), 2U);
    for (int i = 0; i < 49; ++i)
        store.Add(MakeMember("more" + std::to_string(i) + "@x.example"));
    m_now += 2 * Day;
    post();
    EXPECT_EQ(Process(), "0 fetched, 1 processed, 1 posted, 1 for the digest");
    ASSERT_EQ(Jobs().size(), 1U);
    BroadcastInfo info;
    ASSERT_TRUE(CBroadcastJobs().Run(Jobs()[0].id, {}, {}, info)) << GetLastErrorText();
    std::map<std::string, std::string> ofJob = copies();
    EXPECT_EQ(ofJob.size(), 51U);
    for (const auto& [to, text] : direct)
        EXPECT_EQ(text, ofJob[to]);
    EXPECT_NE(direct.begin()->second.find("ann@x.example Hi $(Password)"), std::string::npos) << direct.begin()->second;
    std::string log;
    ASSERT_TRUE(ReadWholeFile(GetLogFileName(), log));
    EXPECT_NE(log.find("Generating messages for broadcast"), std::string::npos);
    EXPECT_EQ(log.find("$($)"), std::string::npos) << log;
}

TEST_F(ProcessingTest, OfADamagedRuleTheMessagesAreNotTheNextRules) {
    MakeClub(ListKind::Discussion);
    const std::string rules = GetCatalogue().GetListFile(m_list, "RUL");
    ASSERT_TRUE(Platform::RemoveFile(rules + ".2.suw"));
    Receive("ann@x.example", CommandAddress, "SUBSCRIBE");
    EXPECT_NE(Process().find("Subscribe [Step 1]\" is damaged (" + std::to_string(m_list) + ".RUL.2.suw is missing)"),
              std::string::npos)
        << GetLastErrorText();
    EXPECT_EQ(QueuedFiles(GetInboxFolder(m_list)).size(), 1U);
    ResetRules(GetCatalogue().FindByNumber(m_list));
    EXPECT_EQ(Process(), "0 fetched, 1 processed, 1 answered");
}

// What is held goes through the rules once more when it is accepted, and no
// header makes a message an accepted one.
TEST_F(ProcessingTest, TheModeratorDecides) {
    MakeClub(ListKind::Discussion, {"ann@x.example"});
    GetCatalogue().SetFlag(GetCatalogue().FindByNumber(m_list), ListColumn::Moderated, true);
    Receive("ann@x.example", ListAddress, "Hi", "X-Lhv-Inbox: " + InboxHeaderOf(m_list) + "\n");
    EXPECT_EQ(Process(), "0 fetched, 1 processed, 1 held");
    const std::vector<CPendingMessage> pending = ListPending(m_list);
    ASSERT_EQ(pending.size(), 1U);
    ASSERT_TRUE(AcceptPending(m_list, pending[0].id, "")) << GetLastErrorText();
    EXPECT_EQ(Process(), "0 fetched, 1 processed, 1 posted, 1 for the digest");
    EXPECT_TRUE(ListPending(m_list).empty());
}

// As an unmarked responder does that answers to wherever posts go.
TEST_F(ProcessingTest, WhatAMemberHasPostedBeforeWaits) {
    MakeClub(ListKind::Discussion, {"ann@x.example", "bob@x.example"});
    constexpr const char* Posted = ", 1 posted, 1 for the digest";
    constexpr const char* Away = "I am away until Monday the 7th of December.\n\nAnna wrote on Monday:\n> Hi\n";
    const struct {
        std::int64_t later;
        const char* from;
        const char* body;
        const char* expected;  // behind "0 fetched, 1 processed"
    } rows[] = {
        {0, "ann@x.example", Away, Posted},
        {60, "bob@x.example", Away, Posted},
        {60, "Ann@x.example", " I  am\naway until Monday the 7th of December.\n\nBob wrote on Tuesday:\n\n>> Ho\n",
         ", 1 held"},
        {60, "ann@x.example", Away, ", 1 loops"},
        {60, "ann@x.example", "I am away until Monday the 7th of December, Bob wrote:\n", Posted},
        {60, "ann@x.example", "> Hi\n", Posted},
        {60, "ann@x.example", "> Ho\n", Posted},
        {60, "ann@x.example", "Thanks!", Posted},
        {60, "ann@x.example", "Thanks!", Posted},
        {0, "ann@x.example", "Thanks!", ", 1 held"},  // in one thread
        {Day, "ann@x.example", Away, Posted},
        {Day - 1, "ann@x.example", Away, ", 1 held"},
    };
    for (const int interval : {24, 0}) {  // hours; 0: answers have no limit, posts that of a day
        WriteSetting("Service", "ReplyInterval", interval);
        m_now += 2 * Day;
        for (const auto& row : rows) {
            m_now += row.later;
            Receive(row.from, ListAddress, "Re: " + std::to_string(m_now), "", row.body);
            EXPECT_EQ(Process(), std::string("0 fetched, 1 processed") + row.expected) << row.from << row.body;
        }
    }
    const std::vector<CPendingMessage> pending = ListPending(m_list);
    ASSERT_EQ(pending.size(), 6U);
    ASSERT_TRUE(AcceptPending(m_list, pending[0].id, "")) << GetLastErrorText();
    EXPECT_EQ(Process(), std::string("0 fetched, 1 processed") + Posted);
}

TEST_F(ProcessingTest, NotificationsAreTreatedAsTheOperatorWants) {
    const struct {
        int setting;
        bool isProcessed;
        std::string mark;
    } rows[] = {{0, false, "keep 5 # 0"}, {1, true, "delete 5 # 0"}, {2, false, "delete 5 # 0"}};
    for (const auto& row : rows) {
        WriteSetting("Service", "DeliveryNotifications", row.setting);
        MakeClub(ListKind::Discussion, {"hard@x.example"});
        {
            CCycleState state;
            ASSERT_TRUE(state.Open(m_list) && state.Recover()) << GetLastErrorText();
            CCycleTransaction transaction(state);
            transaction.SetMark(MarkKind::ServerMessage, "u7", "delete 5 # 0");
            ASSERT_TRUE(transaction.Commit());
        }
        PutIntoInbox("X-Lhv-Server-Id: u7\n" + BounceOf("hard@x.example", "5.1.1"));
        Process();
        EXPECT_EQ(IsMember("hard@x.example"), !row.isProcessed) << row.setting;
        PutIntoInbox(BounceOf("hard@x.example", "5.1.1"));  // this one was learned while sending
        Process();
        EXPECT_FALSE(IsMember("hard@x.example")) << row.setting;
        CCycleState state;
        std::string mark;
        ASSERT_TRUE(state.Open(m_list) && state.GetMark(MarkKind::ServerMessage, "u7", mark));
        EXPECT_EQ(mark, row.mark) << row.setting;
    }
}

TEST_F(ProcessingTest, WhomAFormNamesIsAnsweredByHisName) {
    MakeClub(ListKind::Announcement);
    CMessageRule rule;
    RuleFields& form = rule.Edit();
    form.name = "Form";
    form.checkFrom = form.addSender = form.reply = form.stopProcessing = true;
    form.fromAddresses = {"form@site.example"};
    form.replyMessage.LoadText(CMimeSource("Subject: Welcome $(To-Name), <!To-Email!>\n\nHello\n"));
    form.parseFields = {{CParseField::Email, true, "^Mail: (.*)$", "$1", true},
                        {CParseField::FirstName, true, "^First: (.*)$", "$1", true}};
    CRuleStore(m_list).Replace({&rule, 1});
    PutIntoInbox(
        "From: Site <form@site.example>\nTo: club@harbour.example\nSubject: x\n\nMail: joe@x.example\nFirst: Joe\n");
    Process();
    const std::vector<std::string> answers = TakeQueue();
    ASSERT_EQ(answers.size(), 1U);
    EXPECT_EQ(FieldOf(answers[0], "Subject"), "Welcome Joe, joe@x.example");
}

TEST_F(ProcessingTest, BouncesRemoveCountAndCanBeUndone) {
    MakeClub(ListKind::Discussion, {"hard@x.example", "soft@x.example"});
    PutIntoInbox(BounceOf("Hard@x.example", "5.1.1"));
    PutIntoInbox(BounceOf("stranger@x.example", "5.1.1"));
    EXPECT_EQ(Process(), "0 fetched, 2 processed, 1 removed, 2 bounces");
    EXPECT_FALSE(IsMember("hard@x.example"));
    CMember member;
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(FindMember("soft@x.example", member));
        EXPECT_FALSE(member.IsInactive()) << i;
        PutIntoInbox(BounceOf("soft@x.example", "4.2.2"));
        EXPECT_EQ(Process(), "0 fetched, 1 processed, 1 bounces");
    }
    EXPECT_TRUE(FindMember("soft@x.example", member) && member.IsInactive());
    EXPECT_EQ(ListBounces(m_list).size(), 7U);
    EXPECT_TRUE(UndoBounce(m_list, "hard@x.example") && UndoBounce(m_list, "soft@x.example")) << GetLastErrorText();
    EXPECT_TRUE(IsMember("hard@x.example"));
    EXPECT_TRUE(FindMember("soft@x.example", member) && !member.IsInactive());
}

TEST_F(ProcessingTest, WhatServersRefusedIsABounceOnce) {
    MakeClub(ListKind::Discussion, {"gone@x.example", "full@x.example"});
    SendDaemon::CDeliveryLog ledger;
    ledger.SetUp(GetAccountRoot(m_list), 0, 0);
    ASSERT_TRUE(EnsureFolder(GetAccountRoot(m_list)));
    const auto add = [&](const char* recipient, int code, const char* enhanced) {
        const SendDaemon::CDeliveryLine line{.time = m_now,
                                             .status = SendDaemon::DeliveryStatus::Failed,
                                             .recipient = recipient,
                                             .host = "mx.example",
                                             .code = code,
                                             .enhanced = enhanced};
        EXPECT_TRUE(ledger.Append({&line, 1}, SendDaemon::CDeliveryLog::Flush::No));
    };
    add("gone@x.example", 550, "5.1.1");
    add("full@x.example", 452, "4.2.2");
    add("stranger@x.example", 550, "5.1.1");
    for (const char* expected : {"0 fetched, 1 processed, 1 removed, 1 bounces", "0 fetched"}) {
        CCycleTotals totals;
        ASSERT_EQ(RunMailCycle(m_list, {}, totals), CycleResult::Done) << GetLastErrorText();
        EXPECT_EQ(DescribeTotals(totals), expected);
    }
    EXPECT_TRUE(UndoBounce(m_list, "gone@x.example")) << GetLastErrorText();
}

// Among so many that no look at a few finds it.
TEST_F(ProcessingTest, ADamagedMemberKeepsThePostsOfAll) {
    for (const std::size_t others : {40U, 80U}) {  // copies at once, and a broadcast
        std::vector<std::string> members = {"ann@x.example", "lost@x.example"};
        for (std::size_t i = 0; i < others; ++i)
            members.push_back(std::to_string(i) + "@x.example");
        MakeClub(ListKind::Discussion, members);
        std::fstream(GetCatalogue().GetListFile(m_list, "MBR"), std::ios::in | std::ios::out | std::ios::binary)
            .seekp(1001)
            .put('x');
        Receive("ann@x.example", ListAddress, "Hi");
        Receive("lost@x.example", CommandAddress, "unsubscribe");
        EXPECT_NE(Process().find("is damaged: \"repair\""), std::string::npos) << others;
        EXPECT_FALSE(RepairDataFolder([](const std::string&) {}));
        EXPECT_NE(Process().find("lost@x.example"), std::string::npos) << others;
        EXPECT_EQ(TakeQueue().size() + Jobs().size(), 0U);
        EXPECT_TRUE(RepairDataFolder([](const std::string&) {}, LostMembers::Accepted));
        EXPECT_EQ(Process(), "0 fetched, 2 processed, 1 answered, 1 posted, 1 for the digest") << others;
    }
}

TEST_F(ProcessingTest, ACrashWhileMembersAreAddedLosesNobody) {
    MakeClub(ListKind::Discussion, {"ann@x.example"});
    {
        CCycleState state;
        ASSERT_TRUE(state.Open(m_list) && state.Recover());
        CCycleTransaction transaction(state);
        transaction.PutMember(MakeMember("new@x.example"));
        ASSERT_TRUE(transaction.AddMessage(GetAccountRoot(m_list), "x"));
        const Platform::CFaultPlan plan(Platform::Operation::Rename, 1);
        EXPECT_FALSE(transaction.Commit());
    }
    CMemberStore store;
    store.Open(m_list);
    store.Add(MakeMember("new@x.example"));
    std::filesystem::resize_file(GetCatalogue().GetListFile(m_list, "MBR"), 1001);
    EXPECT_TRUE(Process() == "0 fetched" && IsMember("new@x.example")) << GetLastErrorText();
}

TEST_F(ProcessingTest, WhatCannotBeProcessedIsKept) {
    MakeClub(ListKind::Discussion, {"ann@x.example"});
    Receive("ann@x.example", ListAddress, "Hi");
    for (const char* type : {"RUL", "MBR"}) {  // without members everybody would be a stranger
        const std::string path = GetCatalogue().GetListFile(m_list, type);
        std::string whole;
        ASSERT_TRUE(ReadWholeFile(path, whole));
        for (const std::string& damaged : {std::string(), std::string(whole.size(), '\0')}) {
            ASSERT_TRUE(WriteFileAtomically(path, damaged));
            for (int i = 0; i < 4; ++i)
                EXPECT_EQ(Process().substr(0, 6), "failed") << path << " " << damaged.size();
            ASSERT_TRUE(WriteFileAtomically(path, whole));
        }
    }
    const std::string denied = GetCatalogue().GetListFile(m_list, "ACL");
    CAccessList(m_list).Add({Access::Denied, "eve@x.example"});
    std::fstream(denied, std::ios::in | std::ios::out | std::ios::binary).put('x');
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(Process().substr(0, 6), "failed") << "who is denied is not known";
    Platform::RemoveFile(denied);
    // The message is to blame for nothing, and its attempts were not counted.
    GetCatalogue().SetText(GetCatalogue().FindByNumber(m_list), ListColumn::ListAddresses, "");
    CRuleStore store(m_list);
    store.DeleteAll();
    CMessageRule rule;
    rule.Edit().name = "Nobody can send this";
    rule.Edit().reply = rule.Edit().replyMessage.LoadText(CMimeSource("Subject: Hi\n\nHi\n"));
    store.Append(rule);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(QueuedFiles(GetInboxFolder(m_list)).size(), 1U) << i;
        EXPECT_EQ(Process(), "0 fetched, 1 failed") << i;
    }
    EXPECT_EQ(QueuedFiles(GetFailedFolder(m_list)).size(), 1U);
    EXPECT_EQ(Process(), "0 fetched");
}

// Everything fails from the n-th operation on, as when the program is killed
// there; the next run does the rest.
TEST_F(ProcessingTest, ACrashLosesAndDoublesNothing) {
    MakeClub(ListKind::Discussion);
    const std::uint32_t withCopies = m_list;
    MakeClub(ListKind::Discussion);
    const std::uint32_t withBroadcasts = m_list;
    {
        CMemberStore store;
        store.Open(m_list);
        for (int i = 0; i < 50; ++i)
            store.Add(MakeMember("more" + std::to_string(i) + "@x.example"));
    }
    m_list = withCopies;
    // Any: every operation in turn.  Open: other operations go on, and show what a fault is taken for.
    Platform::Operation operation = Platform::Operation::Any;
    unsigned n = 0;
    unsigned crashes = 0;
    for (bool wasHit = true; wasHit;) {
        const std::string id = std::to_string(++crashes) + "@x.example";
        const bool isJob = m_list == withBroadcasts;
        n += ByFileSpeed(1U, 9U);
        CMemberStore store;
        store.Open(m_list);
        store.Add(MakeMember("ann" + id));
        store.Add(MakeMember("hard" + id));
        Receive("new" + id, CommandAddress, "subscribe");
        Receive("eve" + id, ListAddress, "Hi");
        Receive("ann" + id, ListAddress, "Hi");
        PutIntoInbox(BounceOf("hard" + id, "5.1.1"));
        Receive("ann" + id, CommandAddress, "unsubscribe");
        {
            const Platform::CFaultPlan plan(operation, n, Platform::CFaultPlan::After::Stays);
            Process();
            wasHit = plan.WasHit();
        }
        Process();
        ASSERT_TRUE(QueuedFiles(GetInboxFolder(m_list)).empty()) << n;
        ASSERT_TRUE(QueuedFiles(GetFailedFolder(m_list)).empty()) << n;
        ASSERT_EQ(TakeQueue().size(), isJob ? 3U : 5U) << n;
        ASSERT_EQ(Jobs().size(), isJob ? 1U : 0U) << n;
        ASSERT_TRUE(!isJob || Jobs()[0].total == 52) << n;
        ASSERT_EQ(QueuedFiles(GetDigestEntryFolder(m_list)).size(), 1U) << n;
        ASSERT_EQ(ListBounces(m_list).size(), 1U) << n;
        ASSERT_EQ(store.Count(), isJob ? 50 : 0) << n;
        for (const std::string& folder :
             {GetBroadcastsFolder(), GetBouncesFolder(m_list), GetDigestEntryFolder(m_list)})
            std::filesystem::remove_all(folder);
        if (wasHit || operation == Platform::Operation::Open) continue;
        if (isJob) operation = Platform::Operation::Open;
        m_list = withBroadcasts;
        n = 0;
        wasHit = true;
    }
    EXPECT_GT(crashes, ByFileSpeed(400U, 40U));
}

}  // namespace
