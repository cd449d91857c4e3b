#include "engine/datafields.h"

#include <gtest/gtest.h>

#include <map>

#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

std::string Expanded(std::string text, bool htmlMode = false) {
    ExpandDataFields(&text, htmlMode);
    return text;
}

class DataFields : public testing::Test {
protected:
    CDataFieldScope m_scope;
};

TEST_F(DataFields, ReferencesAreReplacedAsTheTableSays) {
    SetDataField(DataField::ToFirstName, "Anna");
    SetDataField("sender-EMAIL", "a@b.example");
    SetDataField("A", "<$(B)>");
    SetDataField("B", "bee");
    SetDataField("Z", "$(A) $(Y)");
    SetDataField("Y", "$(B)");
    SetDataField("Self", "$(Self)");
    SetDataField("Twice", "x$(Twice)");
    SetDataField("Marks", ") $(");
    SetDataField("Quote", "a \"b\" 'c'");
    const struct {
        const char* text;
        const char* expected;
    } rows[] = {
        {"Dear $(to-first-NAME)!", "Dear Anna!"},
        {"$(Unknown)x", "x"},
        {") $(To-First-Name) $(open", ") Anna $(open"},
        {"$(Email)|$(Sender-Email)", "a@b.example|a@b.example"},
        {"$(a)", "<bee>"},
        {"$(Z)", "<bee> bee"},
        {"$(Marks)Self)", ") $(Self)"},  // what was inserted is not looked at again
        {"$(Quote)", "a \"b\" 'c'"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Expanded(row.text), row.expected) << row.text;
    EXPECT_EQ(Expanded("$(Twice)"), std::string(1024, 'x') + "$(Twice)");
    EXPECT_EQ(GetDataField("A"), "<$(B)>") << "expanding changes no value";
}

TEST_F(DataFields, NothingInALiteralIsLookedUp) {
    const std::string hostile = "$(Secret) $(List-Usage) $(X) $( & )";
    SetDataField("Secret", "swordfish");
    SetLiteralDataField("Original-Subject", hostile);
    SetDataField("A", "Re: $(Original-Subject) $(Secret)");         // made before the literal, by the order of names
    SetDataField("Z", "[$(A)] $(Original-Subject)$(Later) $(Z2)");  // and after it, through another value
    SetDataField("Z2", "$(Original-Subject)");
    SetDataField("Split", "$($(Original-Subject)Secret)");
    EXPECT_EQ(Expanded("$(original-subject)"), hostile);
    EXPECT_EQ(Expanded("$(A)"), "Re: " + hostile + " swordfish");
    EXPECT_EQ(Expanded("$(Z)"), "[Re: " + hostile + " swordfish] " + hostile + " " + hostile);
    EXPECT_EQ(Expanded("$(Split)"), "Secret)");
    EXPECT_EQ(Expanded("$(A)", true), "Re: $(Secret) $(List-Usage) $(X) $( &amp; ) swordfish");
    PushDataFields();
    SetDataField("Original-Subject", "$(Secret)");
    EXPECT_EQ(Expanded("$(Original-Subject)"), "swordfish");
    PopDataFields();
    EXPECT_EQ(Expanded("$(Original-Subject)"), hostile) << "popping brings the mark back too";
}

TEST_F(DataFields, ContainsLooksForTheFirstClosingParenthesisOfAll) {
    EXPECT_TRUE(ContainsDataField("x$(y)"));
    EXPECT_FALSE(ContainsDataField("(a) $(b)"));
    EXPECT_FALSE(ContainsDataField("$(b"));
    EXPECT_FALSE(ContainsDataField("(b)"));
}

TEST_F(DataFields, ValuesTakeTheModeOfTheText) {
    SetDataField("Plain", "Tom & <Jerry>");
    SetDataField("Html", "Tom &amp; &lt;Jerry&gt;", true);
    SetDataField("Both", "$(Plain)|$(Html)");
    for (const char* name : {"$(Plain)", "$(Html)"}) {
        EXPECT_EQ(Expanded(name, false), "Tom & <Jerry>");
        EXPECT_EQ(Expanded(name, true), "Tom &amp; &lt;Jerry&gt;");
    }
    EXPECT_EQ(Expanded("$(Both)", true), "Tom &amp; &lt;Jerry&gt;|Tom &amp; &lt;Jerry&gt;");
    EXPECT_EQ(GetDataField("Html"), "Tom &amp; &lt;Jerry&gt;");
}

TEST_F(DataFields, PopBringsBackValuesFlagsAndAbsence) {
    SetDataField("A", "1");
    SetDataField("H", "&lt;", true);
    PushDataFields();
    SetDataField("A", "2");
    SetDataField("A", "3");
    SetDataField("New", "n");
    SetDataField("H", "<");
    PushDataFields();
    SetDataField("A", "4");
    PopDataFields();
    EXPECT_EQ(Expanded("$(A)$(New)$(H)"), "3n<");
    PopDataFields();
    EXPECT_EQ(Expanded("$(A)$(New)$(H)"), "1<");
    EXPECT_EQ(Expanded("$(H)", true), "&lt;");
    SetDataField("New", "again");
    EXPECT_EQ(Expanded("$(New)"), "again");
}

TEST_F(DataFields, ValuesDoNotGrowBeyondTheLimit) {
    SetDataField("Square", "$(Square)$(Square)");
    const std::string squared = Expanded("$(Square)");
    EXPECT_LE(squared.size(), MaxExpandedValue);
    EXPECT_EQ(squared.size() % 9, 0u);
    const std::string block(MaxExpandedValue / 2, 'b');
    SetDataField("Block", block);
    SetDataField("Fits", "$(Block)$(Block)");
    SetDataField("TooLong", "$(Block)$(Block)!");
    EXPECT_EQ(Expanded("$(Fits)").size(), MaxExpandedValue);
    EXPECT_EQ(Expanded("$(TooLong)"), "$(Block)$(Block)!");
}

TEST(DataFieldTable, MisuseIsAnInternalError) {
    EXPECT_THROW(PopDataFields(), CLhvException);
    EXPECT_THROW(ExpandDataFields(nullptr, false), CLhvException);
}

// The same, written down as it is told: tables are copied, texts changed in place.
class CReference {
public:
    using Table = std::map<std::string, std::string, CLessNoCase>;

    explicit CReference(Table table) : m_table(std::move(table)) {
        for (auto& [key, value] : m_table) {
            for (int pass = 0; pass < 10; ++pass) {
                if (value.find("$(") == std::string::npos || value.find(')') == std::string::npos) break;
                std::string changed = value;
                Replace(changed);
                value = changed;
            }
        }
    }

    void Replace(std::string& text) const {
        std::size_t position = 0;
        for (;;) {
            const std::size_t start = text.find("$(", position);
            if (start == std::string::npos) return;
            const std::size_t end = text.find(')', start);
            if (end == std::string::npos) return;
            const auto found = m_table.find(text.substr(start, end - start + 1));
            text.erase(start, end - start + 1);
            position = start;
            if (found == m_table.end()) continue;
            text.insert(start, found->second);
            position += found->second.size();
        }
    }

private:
    Table m_table;
};

TEST_F(DataFields, EveryShortTextExpandsAsByTheBook) {
    const CReference::Table table = {{"$(a)", "b"},        {"$(b)", "$(c)$"},   {"$(c)", "$(a)c"},
                                     {"$()", "$(b)(a)"},   {"$(()", ")$(a)"},   {"$(aa)", "$(b)$(ab)"},
                                     {"$(ab)", "[$(ab)]"}, {"$(ba)", "$($(a)"}, {"$($)", "$(aa)"}};
    for (const auto& [key, value] : table)
        SetDataField(key.substr(2, key.size() - 3), value);
    const CReference reference(table);
    constexpr std::string_view Alphabet = "$()ab";
    std::size_t failures = 0;
    std::string text;
    const auto visit = [&](const auto& self, std::size_t length) -> void {
        std::string expected = text;
        reference.Replace(expected);
        std::string prepared;
        CDataFieldExpansion(false).Append(prepared, CDataFieldText(text));
        if (Expanded(text) != expected || prepared != expected) {
            if (++failures < 10) ADD_FAILURE() << text << " -> " << Expanded(text) << ", not " << expected;
        }
        if (length == 0) return;
        for (const char c : Alphabet) {
            text.push_back(c);
            self(self, length - 1);
            text.pop_back();
        }
    };
    visit(visit, 7);
}

}  // namespace
