#include "engine/rules/rulebuilder.h"

#include <gtest/gtest.h>

#include "engine/messagetemplate.h"
#include "engine/rules/listcreation.h"
#include "engine/rules/rulefieldnames.h"
#include "engine/rules/rulestore.h"
#include "engine/rules/standardtexts.h"
#include "platform/faultplan.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

// A rule in one line: its name, flags and what its lists and numbers hold.
std::string Describe(const RuleFields& rule) {
    std::string text = rule.name + ":";
    const RuleFields plain;
    VisitRuleFlags(rule, [&](std::string_view key, RuleColumn, bool flag) {
        if (flag && key != "enabled") text += " " + std::string(key);
    });
    VisitRuleLists(rule, [&](std::string_view key, RuleFile, const std::vector<std::string>& entries) {
        for (const std::string& entry : entries)
            text += " " + std::string(key) + "=" + entry;
    });
    if (rule.digestMode != plain.digestMode) text += " mode=" + std::to_string(rule.digestMode);
    if (rule.bounceKind != plain.bounceKind) text += " kind=" + std::to_string(static_cast<int>(rule.bounceKind));
    return text;
}

std::string DescribeAll(const std::vector<CMessageRule>& rules) {
    std::string text;
    for (const CMessageRule& rule : rules)
        text += Describe(rule.Get()) + "\n";
    return text;
}

constexpr const char* Confirmation = "Please confirm your subscription to $(List-Name)";

std::string CommandRule(const std::string& name, const std::string& word, const std::string& extra,
                        const std::string& ending = "") {
    return name + ": checkTo checkSubject subjectAll subjectOnly stopProcessing removeFromServer" + extra +
           " reply toAddresses=$(Command-Email) subjectWords=" + word + ending + "\n";
}

TEST(RuleBuilder, StandardSets) {
    const std::string bounces = "Handle bounces: checkBounce stopProcessing removeFromServer removeSender\n";
    const std::string subscription =
        CommandRule("Subscribe [Step 1]", "SUBSCRIBE", "") +
        "Subscribe [Step2]: checkTo checkSubject subjectAll replyToSigned stopProcessing removeFromServer addSender "
        "reply toAddresses=$(Command-Email) subjectWords=" +
        Confirmation + "\n" + CommandRule("Unsubscribe", "UNSUBSCRIBE", " removeSender");
    const std::string remove = "Remove from server: stopProcessing removeFromServer\n";
    CRuleBuilder builder;
    BuildStandardRules(builder, ListKind::Discussion, false, true);
    EXPECT_EQ(DescribeAll(builder.GetRules()),
              bounces + subscription + CommandRule("Digest mode on", "DIGEST ON", " changeDigestMode", " mode=2") +
                  CommandRule("Digest mode off", "DIGEST OFF", " changeDigestMode") + CommandRule("Help", "HELP", "") +
                  "Broadcast list message: checkFrom fromSubscribers fromRegular fromDigestOnly checkTo stopProcessing "
                  "removeFromServer addToDigest forward forwardSubscribers forwardRegular overrideReplyTo overrideTo "
                  "tagSubject toAddresses=$(List-Email)\n"
                  "Bounce messages: checkTo stopProcessing removeFromServer reply toAddresses=$(List-Email)\n" +
                  remove);
    const RuleFields& broadcast = builder.GetRules()[7].Get();
    EXPECT_EQ(broadcast.fromOverride.text, "$(List-Display-Name) <$(List-Email)>");
    EXPECT_EQ(broadcast.toOverride.text, broadcast.replyToOverride.text);
    EXPECT_EQ(builder.GetRules()[1].Get().replyMessage.GetRoot()->GetField(ControlHeader::ShouldSign), "YES");
    EXPECT_EQ(builder.GetRules()[1].Get().replyMessage.GetRoot()->GetField("Subject"), Confirmation);
    BuildStandardRules(builder, ListKind::Announcement, false, false);
    EXPECT_EQ(DescribeAll(builder.GetRules()),
              bounces + subscription + CommandRule("Help", "HELP", "") +
                  "Authorized broadcast: checkFrom checkTo stopProcessing removeFromServer addToDigest forward "
                  "forwardSubscribers forwardRegular overrideFrom overrideReplyTo fromAddresses=$(Authorized-Email) "
                  "toAddresses=$(Post-Email)\n"
                  "Bounce command messages: checkTo stopProcessing removeFromServer reply "
                  "toAddresses=$(Command-Email)\n" +
                  remove);

    BuildStandardRules(builder, ListKind::Autoresponder, true, false);
    EXPECT_EQ(DescribeAll(builder.GetRules()),
              "Handle bounces: checkBounce stopProcessing removeSender\n"
              "Thank you for your message: checkTo stopProcessing reply toAddresses=$(List-Email)\n");
}

TEST(RuleBuilder, NamesAndBounces) {
    CRuleBuilder builder;
    for (int i = 0; i < 3; ++i)
        builder.AddHelp({});
    for (const int mode : {CRuleBuilder::IgnoreBounces, CRuleBuilder::RemoveBouncing, CRuleBuilder::RemoveHardBouncing})
        builder.AddHandleBounces(mode);
    builder.AddAutoresponse(MakeStandardMessage(StandardText::Help), "PRICES");
    EXPECT_THROW(builder.AddHandleBounces(3), CLhvException);
    const std::string help =
        ": checkTo checkSubject subjectAll subjectOnly stopProcessing toAddresses= subjectWords=HELP\n";
    EXPECT_EQ(DescribeAll(builder.GetRules()),
              "Help" + help + "Help (1)" + help + "Help (2)" + help +
                  "Handle bounces: checkBounce stopProcessing\n"
                  "Handle bounces (1): checkBounce stopProcessing removeSender kind=65535\n"
                  "Handle bounces (2): checkBounce stopProcessing removeSender\n"
                  "How to use $(List-Name): checkTo checkSubject subjectAll subjectOnly stopProcessing reply "
                  "toAddresses= subjectWords=PRICES\n");
    EXPECT_TRUE(builder.GetUsage().ends_with(
        "Send a message to  with \"PRICES\" in subject to receive message \"How to use $(List-Name)\".\n"));
    builder.Reset();
    EXPECT_EQ(builder.GetRules().size() + builder.GetUsage().size(), 0U);
}

class ListCreation : public CDataFolderTest {};

TEST_F(ListCreation, WithRulesOrNotAtAll) {
    NewList list;
    list.name = "Never";
    for (unsigned n = 1; n < 400; n += 7) {
        const Platform::CFaultPlan plan(Platform::Operation::Flush, n, Platform::CFaultPlan::After::Stays);
        try {
            CreateList(list);
        } catch (const CLhvException&) {
            EXPECT_EQ(GetCatalogue().FindByName("Never"), CCatalogue::None);
        }
        if (!plan.WasHit()) break;
    }
    const std::int32_t index = GetCatalogue().FindByName("Never");
    ASSERT_NE(index, CCatalogue::None);
    CRuleStore store(GetCatalogue().GetListNumber(index));
    CRuleBuilder builder;
    BuildStandardRules(builder, ListKind::Discussion, false, true);
    EXPECT_EQ(DescribeAll(store.Load()), DescribeAll(builder.GetRules()));
    EXPECT_EQ(GetCatalogue().GetText(index, ListColumn::Usage), builder.GetUsage());
    GetCatalogue().SetByKey(index, "kind", "autoresponder");
    ResetRules(index);
    EXPECT_EQ(store.Load().size(), 3U);
    EXPECT_EQ(store.Load().at(0).GetId(), 11U);
}

}  // namespace
