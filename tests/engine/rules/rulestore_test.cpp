#include "engine/rules/rulestore.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "engine/catalogue.h"
#include "engine/repair.h"
#include "engine/rules/rulesidefiles.h"
#include "engine/rules/ruletable.h"
#include "platform/faultplan.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

CMimeMessage MessageOf(const std::string& body) {
    CMimeMessage message;
    message.LoadText("From: a@b.example\nSubject: \xC3\xA9 $(To-Name)\n\n" + body);
    return message;
}

// Every field differs from its default.
RuleFields FullRule(const std::string& name) {
    RuleFields rule;
    VisitRuleFlags(rule, [](std::string_view, RuleColumn, bool& flag) { flag = !flag; });
    VisitRuleTexts(rule,
                   [](std::string_view key, RuleColumn, std::string& text) { text = std::string(key) + " $(X)"; });
    VisitRuleLists(rule, [](std::string_view key, RuleFile, std::vector<std::string>& entries) {
        entries = {std::string(key), "a|b", std::string(1024, 'x')};
    });
    VisitRuleMessages(
        rule, [](std::string_view key, RuleFile, CMimeMessage& message) { message = MessageOf(std::string(key)); });
    rule.name = name;
    rule.digestMode = DigestModeOn;
    rule.bounceKind = RuleBounceKind::Blocked;
    rule.parseFields = {{7, false, "^(.*)$", "$1", false}, {CParseField::Name, true, "x", "$&", true}};
    return rule;
}

std::string Everything(const RuleFields& rule) {
    const CRuleRow row = CRuleTable("").MakeRow(1, rule, {});
    std::string all(reinterpret_cast<const char*>(row.record.data()), row.record.size());
    for (std::size_t i = 0; i < RuleFileCount; ++i)
        all += RuleFileContent(rule, static_cast<RuleFile>(i)) + "|";
    return all;
}

class RuleStore : public CDataFolderTest {
protected:
    std::string Names() {
        std::string names;
        for (const CMessageRule& rule : m_store.Load())
            names += rule.Get().name + (rule.Get().enabled ? " " : "- ");
        return names;
    }
    std::uint32_t Add(const std::string& name) {
        CMessageRule rule;
        rule.Edit().name = name;
        rule.Edit().checkTo = true;
        rule.Edit().toAddresses = {name + "@b.example"};
        m_store.Append(rule);
        return rule.GetId();
    }
    std::size_t CountFiles() {
        return static_cast<std::size_t>(
            std::count_if(std::filesystem::directory_iterator(PathOf("")), {},
                          [](const auto& entry) { return entry.path().filename().string().starts_with("7.RUL."); }));
    }

    CRuleStore m_store{7};
};

TEST_F(RuleStore, KeepsEveryField) {
    EXPECT_EQ(RuleFields().subjectTagText, "[$(List-Name)]");
    EXPECT_EQ(CMessageRule().IsDirty(), true);
    CMessageRule rule;
    rule.Edit() = FullRule("Full");
    rule.Edit().enabled = true;
    m_store.Append(rule);
    EXPECT_EQ(rule.IsDirty(), false);
    EXPECT_EQ(rule.GetId(), 1U);
    EXPECT_EQ(Everything(m_store.Load().at(0).Get()), Everything(rule.Get()));
    EXPECT_EQ(CountFiles(), 13U);  // with the version of the table

    rule.Edit() = RuleFields();
    rule.Edit().name = "Plain";
    m_store.Save(rule);
    EXPECT_EQ(Everything(m_store.Load().at(0).Get()), Everything(rule.Get()));
    EXPECT_EQ(CountFiles(), 1U);
}

TEST_F(RuleStore, OrderAndIdentifiers) {
    std::string stamp = m_store.GetStamp();
    for (const char* const name : {"a", "b", "c", "d"}) {
        Add(name);
        EXPECT_NE(std::exchange(stamp, m_store.GetStamp()), stamp);
    }
    m_store.Move(1, 2);
    EXPECT_NE(m_store.GetStamp(), stamp);
    EXPECT_EQ(Names(), "b c a d ");
    m_store.Move(4, 0);
    m_store.Move(2, 99);
    EXPECT_EQ(Names(), "d c a b ");
    m_store.Delete(4);
    EXPECT_EQ(Names(), "c a b ");
    EXPECT_EQ(CountFiles(), 4U);
    EXPECT_EQ(Add("e"), 5U) << "what is remembered of rule 4 must not pass to another";
    m_store.DeleteAll();
    EXPECT_EQ(Names(), "");
    EXPECT_EQ(CountFiles(), 1U);
    EXPECT_EQ(Add("f"), 6U);
    EXPECT_THROW(m_store.Delete(1), CLhvException);
    EXPECT_THROW(m_store.Move(1, 0), CLhvException);
}

// A rule that has lost something is there, but disabled.
TEST_F(RuleStore, DamagedFiles) {
    const struct {
        const char* what;
        std::function<void(const std::string& mine, const std::string& other)> harm;
    } harms[] = {
        {"missing", [](const std::string& mine, const std::string&) { std::filesystem::remove(mine); }},
        {"cut", [](const std::string& mine, const std::string&) { std::filesystem::resize_file(mine, 500); }},
        {"empty", [](const std::string& mine, const std::string&) { Put(mine, ""); }},
        {"another rule's", [](const std::string& mine, const std::string& other) { Put(mine, Get(other)); }},
    };
    CMessageRule full;
    full.Edit() = FullRule("Full");
    full.Edit().enabled = true;
    m_store.Append(full);
    CMessageRule other;
    other.Edit() = FullRule("Other");
    other.Edit().enabled = true;
    other.Edit().toAddresses = {"other"};
    other.Edit().replyMessage = MessageOf("other");
    m_store.Append(other);
    for (const char* const extension : {"toa", "rte"}) {
        const std::string mine = PathOf("7.RUL.1.") + extension;
        const std::string content = Get(mine);
        for (const auto& harm : harms) {
            harm.harm(mine, PathOf("7.RUL.2.") + extension);
            EXPECT_EQ(Names(), "Full- Other ") << extension << " " << harm.what;
            EXPECT_NE(m_store.Load().at(0).GetFault(), "");
            Put(mine, content);
            EXPECT_EQ(Names(), "Full Other ");
        }
    }
    // A record that says nothing of its files, as another program may write it.
    CRuleTable table(PathOf("7.RUL"));
    std::vector<CRuleRow> rows = table.Read();
    rows[0] = table.MakeRow(1, full.Get(), {});
    table.Write(rows);
    EXPECT_EQ(Everything(m_store.Load().at(0).Get()), Everything(full.Get()));
    RuleFields plain;
    plain.checkSubject = true;
    rows[0] = table.MakeRow(9, plain, {});
    table.Write(rows);
    EXPECT_EQ(m_store.Load().at(0).Get().enabled, false);
    std::filesystem::resize_file(PathOf("7.RUL"), std::filesystem::file_size(PathOf("7.RUL")) - 1);
    EXPECT_THROW(m_store.Load(), CLhvException) << "without the last rule";
    EXPECT_FALSE(RepairDataFolder([](const std::string&) {})) << "nor is the rest taken for all of them";
    EXPECT_THROW(m_store.Load(), CLhvException);
    m_store.Replace(std::span(&full, 1));
    EXPECT_EQ(Names(), "Full ");
}

TEST_F(RuleStore, RecordsThatAreMissingOrDamaged) {
    for (const char* const name : {"a", "b", "c", "d"})
        Add(name);
    m_store.Move(4, 0);
    m_store.Delete(2);
    const std::string whole = Get(PathOf("7.RUL"));
    const std::size_t size = whole.size() / 4;
    for (const std::size_t records : {1U, 2U, 3U}) {
        Put(PathOf("7.RUL"), whole.substr(0, records * size));
        EXPECT_THROW(m_store.Load(), CLhvException) << records;
    }
    const struct {
        std::size_t at;
        char byte;
        const char* names;  // "": all is refused
    } rows[] = {{0, 'x', ""}, {size, '\0', ""}, {14, 'x', "x- a c "}, {size + size / 2, 'x', "d a- c "}};
    for (const auto& row : rows) {
        std::string damaged = whole;
        damaged[row.at] = row.byte;
        Put(PathOf("7.RUL"), damaged);
        const bool isRefused = *row.names == '\0';
        EXPECT_EQ(RepairDataFolder([](const std::string&) {}), !isRefused) << row.at;
        EXPECT_EQ(Get(PathOf("7.RUL")), damaged) << row.at;
        if (isRefused) {
            EXPECT_THROW(m_store.Load(), CLhvException) << row.at;
        } else {
            EXPECT_EQ(Names(), row.names) << row.at;
        }
    }
    CMessageRule damaged = m_store.Load().at(1);
    m_store.Move(3, 0);
    EXPECT_EQ(Names(), "c d a- ") << "another rule's change is no repair";
    damaged.Edit().enabled = true;
    m_store.Save(damaged);
    EXPECT_EQ(Names(), "c d a ");
}

// Whatever fails, and wherever it stops, a rule is the old or the new one.
TEST_F(RuleStore, OldOrNew) {
    Platform::SetFlushEnabled(false);
    CMessageRule rule;
    rule.Edit() = FullRule("Old");
    rule.Edit().enabled = true;
    m_store.Append(rule);
    RuleFields next = FullRule("New");
    next.enabled = true;
    VisitRuleLists(next, [](std::string_view, RuleFile, std::vector<std::string>& entries) { entries = {"next"}; });
    next.footer = MessageOf("next");
    next.subjectWords.clear();
    next.checkSubject = false;
    next.subjectOptions = {};
    const std::string wanted[] = {Everything(rule.Get()), Everything(next)};
    int failures = 0;
    for (const auto after : {Platform::CFaultPlan::After::Recovers, Platform::CFaultPlan::After::Stays}) {
        for (unsigned n = 1; n < 200; ++n) {
            CMessageRule changed(1, next);
            bool hit = false;
            bool failed = false;
            {
                const Platform::CFaultPlan plan(Platform::Operation::Any, n, after);
                try {
                    m_store.Save(changed);
                } catch (const CLhvException&) {
                    failed = true;
                    ++failures;
                }
                hit = plan.WasHit();
            }
            const CMessageRule loaded = m_store.Load().at(0);
            const std::string got = Everything(loaded.Get());
            ASSERT_TRUE(got == wanted[1] || (failed && got == wanted[0])) << n << " " << loaded.GetFault();
            CMessageRule back(1, rule.Get());
            m_store.Save(back);
            ASSERT_EQ(Everything(m_store.Load().at(0).Get()), wanted[0]);
            if (!hit) break;
        }
    }
    EXPECT_GT(failures, 20);
    // What had been written when the program was killed counts only with the record that names it.
    WriteNextRuleFile(PathOf("7.RUL"), 1, RuleFile::Footer, "From: x\r\n\r\nnever");
    EXPECT_EQ(Everything(m_store.Load().at(0).Get()), wanted[0]);
}

TEST_F(RuleStore, SeveralAtOnceOrNone) {
    Platform::SetFlushEnabled(false);
    Add("a");
    std::vector<CMessageRule> rules(3);
    for (std::size_t i = 0; i < rules.size(); ++i) {
        rules[i].Edit() = FullRule("r" + std::to_string(i));
        rules[i].Edit().footer = rules[i].Edit().header = CMimeMessage();
    }
    for (unsigned n = 1; n < 300; ++n) {
        const Platform::CFaultPlan plan(Platform::Operation::Any, n);
        try {
            m_store.Replace(rules);
        } catch (const CLhvException&) {
            ASSERT_TRUE(Names() == "a " || Names() == "r0- r1- r2- ") << n << Names();
        }
        if (!plan.WasHit()) break;
    }
    EXPECT_EQ(Names(), "r0- r1- r2- ");
    EXPECT_EQ(CountFiles(), 31U);
    rules.assign(2, CMessageRule());
    EXPECT_THROW(m_store.Append(rules), CLhvException) << "two of one name";
    EXPECT_EQ(Names(), "r0- r1- r2- ");
    EXPECT_EQ(CountFiles(), 31U);
}

TEST_F(RuleStore, Repair) {
    Add("a");
    Add("b");
    Put(PathOf("7.RUL.1.toa"), Get(PathOf("7.RUL.1.toa")) + "half");
    EXPECT_EQ(Names(), "a- b ");
    std::string said;
    EXPECT_TRUE(RepairDataFolder([&](const std::string& action) { said += action + "\n"; })) << said;
    EXPECT_EQ(Names(), "a b ") << said;
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    CCatalogue catalogue;
    const std::int32_t index = catalogue.Create();
    Put(PathOf("1.RUL.3.rte.next"), "x");
    EXPECT_EQ(catalogue.Delete(index).size(), 0U);
    EXPECT_FALSE(std::filesystem::exists(PathOf("1.RUL.3.rte.next")));
    EXPECT_EQ(Names(), "a b ");
}

TEST(CheckRule, SaysWhatIsMissing) {
    const CMessageRule other(1, FullRule("Other"));
    const struct {
        std::function<void(RuleFields& rule)> change;
        const char* reason;  // its beginning
    } rows[] = {
        {[](RuleFields&) {}, ""},
        {[](RuleFields& rule) { rule.name = " \t"; }, "Please enter a name for this rule."},
        {[](RuleFields& rule) { rule.name = "oTHER "; },
         "There is already a rule with this name. Please enter a different name."},
        {[](RuleFields& rule) { rule.name = "a\nb"; }, "name must be one line"},
        {[](RuleFields& rule) { rule.toAddresses = {"a\r\nBcc: b"}; }, "toAddresses holds an entry of several"},
        {[](RuleFields& rule) { rule.bodyWords = {"("}; }, ""},
        {[](RuleFields& rule) { rule.bodyWords = {"("}, rule.bodyOptions.regex = true; }, "\"(\" is no regular"},
        {[](RuleFields& rule) {
             rule.parseFields = {{0, true, "[", "$1", true}};
         },
         "\"[\" is no regular"},
        {[](RuleFields& rule) {
             rule.parseFields = {{68, true, "x", "$1", true}};
         },
         "A parse field names"},
        {[](RuleFields& rule) { rule.checkTo = true; }, "The To condition"},
        {[](RuleFields& rule) { rule.checkTo = rule.toOptions.members.subscribers = true; }, "The To condition"},
        {[](RuleFields& rule) {
             rule.checkTo = true, rule.toOptions.members = {true, true, false};
         },
         ""},
        {[](RuleFields& rule) { rule.checkTo = true, rule.enabled = false; }, ""},
        {[](RuleFields& rule) { rule.reply = true; }, "The rule replies"},
        {[](RuleFields& rule) { rule.forward = true; }, "The rule forwards"},
        {[](RuleFields& rule) { rule.senderOverride.on = true; }, "The rule overrides the Sender line"},
    };
    for (const auto& row : rows) {
        RuleFields rule;
        row.change(rule);
        const std::string reason = CheckRule(rule, std::span(&other, 1));
        EXPECT_TRUE(*row.reason ? reason.starts_with(row.reason) : reason.empty()) << reason << " / " << row.reason;
    }
    EXPECT_EQ(CheckRule(FullRule("Other"), std::span(&other, 1), 1), "") << "its own name";
}

}  // namespace
