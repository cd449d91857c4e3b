// What is planned for messages by the standard rules, and by rules that invite abuse.

#include "engine/incoming/messageplan.h"

#include <gtest/gtest.h>

#include "app/datafolder.h"
#include "engine/datafields.h"
#include "engine/incoming/listview.h"
#include "engine/incoming/originalfields.h"
#include "engine/rules/listcreation.h"
#include "engine/rules/rulestore.h"
#include "engine/signature.h"
#include "sourcefolder.h"
#include "tests/engine/messagefixture.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t Now = 1800000000;
class MessagePlanTest : public MessageTest {
protected:
    void Make(ListKind kind, bool isModerated = false) {
        NewList list;
        list.name = "Harbour " + std::to_string(++m_made);
        list.listAddresses = "List: news@h.example\nCommand: ask@h.example\nAuthorized: boss@h.example";
        list.kind = kind;
        const std::int32_t index = CreateList(list);
        GetCatalogue().SetFlag(index, ListColumn::Moderated, isModerated);
        m_list = GetCatalogue().GetListNumber(index);
        CMemberStore store;
        store.Open(m_list);
        store.Add(MakeMember("anna@x.example", "Anna"));
        store.Add(MakeMember("bjorn@example.net"));
        store.Add(MakeMember("dora@x.example", "Dora", DeliveryMode::Digest));
        CAccessList access(m_list);
        access.Add({Access::Denied, "*@evil.example"});
        access.Add({Access::Allowed, "guest@y.example"});
        m_rules = CRuleStore(m_list).Load();
    }

    CMessagePlan Plan(const std::string& text, const LoopOptions& loops = {}, bool isAccepted = false) {
        CListView view(m_list, Now);
        CIncomingMessage message;
        EXPECT_TRUE(ReadIncomingMessage(WriteMessage(text), {"news@h.example", "ask@h.example"}, message));
        message.isAccepted = isAccepted;
        const CDataFieldScope scope;
        SetIncomingFields(message, view.GetList());
        return PlanMessage(m_rules, message, loops, view);
    }

    std::string Actions(const CMessagePlan& plan) const {
        constexpr const char* Names[] = {"reply", "add",  "remove", "mode", "update",
                                         "post",  "send", "digest", "hold", "redirect"};
        std::vector<std::string> texts;
        for (const CAction& action : plan.actions)
            texts.push_back(std::string(Trim(Names[static_cast<std::size_t>(action.kind)] + (" " + action.address))));
        if (plan.isLoop) texts.emplace_back("loop");
        return Join(texts, ", ");
    }
    std::string Token(const std::string& sender) const {
        CSigner signer;
        EXPECT_TRUE(signer.Load(GetDataFolder()));
        BroadcastList list;
        ReadBroadcastList(m_list, list);
        return signer.Sign("Re: Please confirm your subscription to " + list.name, list.guid, sender, Now - 60);
    }

    std::uint32_t m_list = 0;
    int m_made = 0;
    std::vector<CMessageRule> m_rules;
};

TEST_F(MessagePlanTest, StandardRules) {
    const auto mail = [](const std::string& from, const std::string& to, const std::string& subject,
                         const std::string& more = "") {
        return "From: " + from + "\nTo: " + to + "\nSubject: " + subject + "\n" + more + "\nText\n";
    };
    std::string bounce;
    ASSERT_TRUE(ReadWholeFile(LISTHAVEN_SOURCE_DIR "/examples/mail/bounce.eml", bounce));
    const struct {
        std::string text;
        const char* discussion;
        const char* announcement;
    } rows[] = {
        {mail("new@y.example", "ask@h.example", "subscribe"), "reply new@y.example", "reply new@y.example"},
        {mail("a@evil.example", "ask@h.example", "subscribe"), "", ""},
        {mail("new@y.example", "ask@h.example", "TOKEN"), "add new@y.example, reply new@y.example",
         "add new@y.example, reply new@y.example"},
        {mail("thief@y.example", "ask@h.example", "TOKEN"), "", ""},  // another's token
        {mail("new@y.example", "ask@h.example", "Re: Please confirm it, elsewhere [LHV-AAAAAAAAAAAAAAAAAAAAAAA]"), "",
         ""},
        {mail("anna@x.example", "news@h.example", "Re: Signed once [LHV-AAAAAAAAAAAAAAAAAAAAAAA]"),
         "post anna@x.example, digest anna@x.example", ""},
        {mail("anna@x.example", "ask@h.example", "Unsubscribe"), "remove anna@x.example, reply anna@x.example",
         "remove anna@x.example, reply anna@x.example"},
        {mail("anna@x.example", "ask@h.example", "digest on"), "mode anna@x.example, reply anna@x.example",
         "reply anna@x.example"},
        {mail("new@y.example", "ask@h.example", "digest on"), "", "reply new@y.example"},
        {mail("guest@y.example", "news@h.example", "Hi"), "post guest@y.example, digest guest@y.example", ""},
        {mail("new@y.example", "news@h.example", "Hi"), "reply new@y.example", ""},
        {mail("boss@h.example", "news@h.example", "Hi", "Precedence: bulk\n"), "", "post, digest"},
        {mail("anna@x.example", "news@h.example", "Away", "Auto-Submitted: auto-replied\n"), "", ""},
        {mail("anna@x.example", "ask@h.example", "subscribe", "Return-Path: <>\n"), "", ""},
        {mail("news@h.example", "ask@h.example", "help"), "loop", "loop"},
        {mail("anna@x.example", "news@h.example", "Hi", "X-Loop: other@z.example\n"), "loop", "loop"},
        {bounce, "remove bjorn@example.net", "remove bjorn@example.net"},
    };
    for (const ListKind kind : {ListKind::Discussion, ListKind::Announcement}) {
        Make(kind);
        for (const auto& row : rows) {
            std::string text = row.text;
            ReplaceAll(text, "TOKEN", Token("new@y.example"));
            const CMessagePlan plan = Plan(text);
            EXPECT_EQ(Actions(plan), kind == ListKind::Discussion ? row.discussion : row.announcement) << text;
            EXPECT_TRUE(plan.isLoop || plan.removeFromServer) << text;
        }
    }
}

TEST_F(MessagePlanTest, ABounceIsAboutTheMemberWhoBounced) {
    Make(ListKind::Discussion);
    std::string bounce;
    ASSERT_TRUE(ReadWholeFile(LISTHAVEN_SOURCE_DIR "/examples/mail/bounce.eml", bounce));
    RuleFields& rule = m_rules.front().Edit();
    rule.removeSender = false;
    rule.changeDigestMode = true;
    rule.digestMode = DigestModeOn;
    EXPECT_EQ(Actions(Plan(bounce)), "mode bjorn@example.net");
}

TEST_F(MessagePlanTest, ModerationHoldsWholeMessages) {
    Make(ListKind::Discussion, true);
    const std::string post = "From: anna@x.example\nTo: news@h.example\nSubject: Hi\n\nText\n";
    EXPECT_EQ(Actions(Plan(post)), "hold");
    EXPECT_EQ(Actions(Plan(post, {}, true)), "post anna@x.example, digest anna@x.example");
    EXPECT_EQ(Actions(Plan("From: anna@x.example\nTo: ask@h.example\nSubject: help\n\n")), "reply anna@x.example");
}

TEST_F(MessagePlanTest, LoopsAreFoundWithoutTheirHeaders) {
    Make(ListKind::Discussion);
    const LoopOptions none{0, false, "", false};
    for (const char* line : {"Sender: news@h.example", "List-Id: Harbour <news.h.example>", "X-ZQ-Loop: ask@h.example",
                             "List-Post: <mailto:news@h.example>"}) {
        const std::string text = std::string("From: anna@x.example\nTo: news@h.example\n") + line + "\n\nText\n";
        EXPECT_TRUE(Plan(text, none).isLoop) << line;
    }
    const std::string looping = "From: anna@x.example\nX-Loop: a@b.example\nSubject: Hi\n";
    EXPECT_FALSE(Plan(looping + "\n", none).isLoop);
    const LoopOptions redirect{3, true, "human@h.example", true};
    const CMessagePlan plan = Plan(looping + "\n", redirect);
    EXPECT_EQ(Actions(plan), "redirect human@h.example, loop");
    EXPECT_TRUE(plan.removeFromServer);
    EXPECT_EQ(plan.notes.front(), "The message \"Hi\" seems to be causing a loop. Ignoring the message.");
    EXPECT_EQ(Actions(Plan(looping + "Resent-From: news@h.example\n\n", redirect)), "loop");
    EXPECT_EQ(Actions(Plan(looping + "\n", {3, true, "ask@h.example", false})), "loop");
}

// Or an access list and the reply interval would be for one spelling only.
TEST_F(MessagePlanTest, AMailboxHasOneSpelling) {
    for (const char* address : {"evil@x.example", "\"evil\"@x.example", "\"ev\\il\"@x.example", "evil@x.example."})
        EXPECT_EQ(PlainAddress(address), "evil@x.example") << address;
    for (const char* address : {"\"a b\"@x.example", "\"a..b\"@x.example", "\"a@b\"@x.example", "\"\"@x.example", "a"})
        EXPECT_EQ(PlainAddress(address), address);
}

TEST_F(MessagePlanTest, OnlyAListedSenderNamesSomebodyElse) {
    Make(ListKind::Autoresponder);
    RuleFields rule;
    rule.name = "Form";
    rule.addSender = rule.reply = true;
    rule.replyMessage = m_rules[1].Get().replyMessage;
    CParseField field;
    std::string reason;
    ASSERT_TRUE(MakeParseField({"Mail", false, ""}, &field, reason));
    rule.parseFields = {field};
    const std::string form = "From: form@h.example\n\nMail: victim@y.example\n";
    m_rules = {CMessageRule(7, rule)};
    EXPECT_EQ(Actions(Plan(form)), "add form@h.example, reply form@h.example");
    m_rules.front().Edit().checkFrom = true;
    m_rules.front().Edit().fromAddresses = {"form@h.example"};
    EXPECT_EQ(Actions(Plan(form)), "add victim@y.example, reply victim@y.example");
    EXPECT_EQ(Actions(Plan("From: form@h.example\n\nNo address\n")), "");
    EXPECT_EQ(Actions(Plan("From: form@h.example\n\nMail: x@evil.example\n")), "");
}

}  // namespace
