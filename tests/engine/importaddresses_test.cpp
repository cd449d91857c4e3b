#include "engine/importaddresses.h"

#include <filesystem>
#include <string>
#include <vector>

#include "engine/dataexport.h"
#include "engine/memberimport.h"
#include "platform/faultplan.h"
#include "tests/engine/memberfixture.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace {

class CImportTest : public CDataFolderTest {
protected:
    CImportTest() {
        Platform::SetFlushEnabled(false);
        m_fields.Load(7);
        m_fields.Set(0, {"Town", "", CustomFieldKind::Text});
        m_fields.Set(5, {"Shoe size", "", CustomFieldKind::Number});
        m_members.Open(7);
    }

    bool ImportWhole(const std::string& content, ExistingMember onExisting = ExistingMember::Skip) {
        EXPECT_TRUE(WriteFileAtomically(m_file, content));
        ImportAddresses::CMemberTarget target(m_members, m_fields, onExisting);
        return ImportAddresses::ImportFile(m_file, target, m_summary);
    }

    // "added updated skipped rejected"
    std::string Import(const std::string& content, ExistingMember onExisting = ExistingMember::Skip) {
        if (!ImportWhole(content, onExisting)) return GetLastErrorText();
        return std::to_string(m_summary.added) + " " + std::to_string(m_summary.updated) + " " +
               std::to_string(m_summary.skipped) + " " + std::to_string(m_summary.rejected);
    }

    std::string Member(const std::string& address) {
        CMember member;
        const std::int32_t index = m_members.Find(address);
        if (index < 0 || !m_members.Read(index, member)) return "none";
        return member.name + "|" + member.firstName + "|" + member.middleName + "|" + member.lastName + "|" +
               std::string(DeliveryModeName(member.mode)) + "|" + std::string(member.GetField(0)) + "|" +
               std::string(member.GetField(5));
    }

    std::string Rejected() {
        std::string content;
        return ReadWholeFile(m_file + ".rejected.csv", content) ? content : "none";
    }

    const std::string m_file = PathOf("members.csv");
    CCustomFields m_fields;
    CMemberStore m_members;
    ImportAddresses::CSummary m_summary;
};

TEST_F(CImportTest, ReadsColumnsByTheirNames) {
    EXPECT_EQ(Import("first-name;LAST NAME;e_mail;mode;Shoesize;Hobby\n"
                     "Anna;van der Berg;a@x.example;digest;42;Chess\n"
                     "Bj\xF8rn;;b@x.example;;;\n"
                     ";;;;;\n"),
              "2 0 0 0");
    EXPECT_EQ(Member("a@x.example"), "Anna van der Berg|Anna||van der Berg|digest||42");
    EXPECT_EQ(Member("B@X.example"), "Bj\xC3\xB8rn|Bj\xC3\xB8rn|||regular||");
    EXPECT_EQ(m_summary.ignoredColumns, std::vector<std::string>{"Hobby"});
    EXPECT_EQ(Import("E-mail,Name,Town,Mode\nc@x.example,\"Berg, Anna M.\",\"Bad\nEms\",2\n"), "1 0 0 0");
    EXPECT_EQ(Member("c@x.example"), "Berg, Anna M.|Anna|M.|Berg|digest|Bad Ems|");
    EXPECT_EQ(Import("Name,Town\nAnna,Kiel\n"), "line 1: The header has no column \"E-mail\".");
    EXPECT_EQ(Import(""), "0 0 0 0");
}

TEST_F(CImportTest, ReadsPlainAddresses) {
    EXPECT_EQ(Import("a@x.example\nAnna Berg <b@x.example>\nBerg, Carl <c@x.example>\nd@x.example,Dora Holm\n"
                     "A@x.example\nnobody\ne@x.example,f@x.example\n"),
              "4 0 1 2");
    EXPECT_EQ(Member("b@x.example"), "Anna Berg|Anna||Berg|regular||");
    EXPECT_EQ(Member("c@x.example"), "Berg, Carl|Carl||Berg|regular||");
    EXPECT_EQ(Member("d@x.example"), "Dora Holm|Dora||Holm|regular||");
    EXPECT_EQ(Rejected(),
              "Line,Reason,E-mail\r\n"
              "6,\"There is no \"\"@\"\" in the address.\",nobody\r\n"
              "7,There is more than one address in the row.,\"e@x.example,f@x.example\"\r\n");
}

TEST_F(CImportTest, RejectsRowsAndGoesOn) {
    const std::string longAddress = std::string(300, 'a') + "@x.example";
    EXPECT_EQ(Import("E-mail;Mode\n" + longAddress +
                     ";\n\"a@x.example\nRCPT TO:<b@x.example>\";\nc@x.example;weekly\n"
                     "d@x.example;\"both\ne@x.example;1\n;both\n" +
                     std::string("f@x.example\0;\n", 14) + std::string(3 << 20, 'z') + "\ng@x.example;0\n"),
              "2 0 0 7");
    EXPECT_EQ(Member("e@x.example"), "||||both||");
    EXPECT_EQ(Member("g@x.example"), "||||regular||");
    const std::string rejected = Rejected();
    std::string lines;
    for (const std::string_view line : Split(TrimRight(rejected), '\n'))
        lines += std::string(line.substr(0, line.find(';'))) + " ";
    EXPECT_EQ(lines, "Line 2 3 RCPT TO:<b@x.example>\" 5 6 8 9 10 ") << rejected;
    EXPECT_LT(rejected.size(), 3000u);
    EXPECT_EQ(Import("E-mail,Name\ny@x.example,Berg, Anna\nz@x.example,Berg,\n"), "1 0 0 1");
    EXPECT_EQ(Member("z@x.example"), "Berg|Berg|||regular||");
    EXPECT_EQ(Import("E-mail\nx@x.example\n"), "1 0 0 0");
    EXPECT_EQ(Rejected(), "none");
}

TEST_F(CImportTest, RejectedRowsCanBePutRightAndImported) {
    EXPECT_EQ(Import("E-mail,Name,Mode\nnobody,Anna,both\nb@x.example,Bert,both\n"), "1 0 0 1");
    std::string content = Rejected();
    EXPECT_EQ(content,
              "Line,Reason,E-mail,Name,Mode\r\n2,\"There is no \"\"@\"\" in the address.\",nobody,Anna,both\r\n");
    ReplaceAll(content, "nobody", "anna@x.example");
    EXPECT_EQ(Import(content), "1 0 0 0");
    EXPECT_TRUE(m_summary.ignoredColumns.empty());
    EXPECT_EQ(Member("anna@x.example"), "Anna|Anna|||both||");
}

TEST_F(CImportTest, UpdatesOnlyWhatTheRowHolds) {
    ASSERT_EQ(Import("E-mail,Name,Mode,Town,Shoe size\na@x.example,Anna Berg,digest,Kiel,38\n"), "1 0 0 0");
    EXPECT_EQ(Import("E-mail,Name,Mode,Town\na@x.example,X,both,Y\n"), "0 0 1 0");
    EXPECT_EQ(Member("a@x.example"), "Anna Berg|Anna||Berg|digest|Kiel|38");
    // In one group: the second row has gaps that the first one fills.
    EXPECT_EQ(Import("E-mail,Mode,Town\nA@x.example,both,\nb@x.example,digest,Oban\nb@x.example,,Brest\n",
                     ExistingMember::Update),
              "1 2 0 0");
    EXPECT_EQ(Member("a@x.example"), "Anna Berg|Anna||Berg|both|Kiel|38");
    EXPECT_EQ(Member("b@x.example"), "||||digest|Brest|");
    EXPECT_EQ(Import("a@x.example\nEva Holm <b@x.example>\n", ExistingMember::Update), "0 2 0 0");
    EXPECT_EQ(Member("a@x.example"), "Anna Berg|Anna||Berg|both|Kiel|38");
    EXPECT_EQ(Member("b@x.example"), "Eva Holm|Eva||Holm|digest|Brest|");
}

TEST_F(CImportTest, ShortensNamesAndCountsThem) {
    const std::string longName = std::string(29, 'a') + "\xC3\xA9";
    EXPECT_EQ(Import("E-mail,First name,Last name\na@x.example," + longName + ",Berg\nb@x.example,B,C\n"), "2 0 0 0");
    EXPECT_EQ(m_summary.shortened, 1u);
    EXPECT_EQ(Member("a@x.example"), longName + " Berg|" + std::string(29, 'a') + "||Berg|regular||");
}

TEST_F(CImportTest, AnExportGivesTheSameMembers) {
    ASSERT_EQ(Import("E-mail,Name,First name,Middle name,Last name,Mode,Town,Shoe size\n"
                     "a@x.example,\"Berg, \"\"Anna\"\"\",A,B,C,both,\" Kiel \",\"=1+1\"\n"
                     "b@x.example,No Parts,,,,digest,,\n"
                     "c@x.example,,Only,,Parts,regular,a;b,\n"
                     "\"\"\"odd one\"\"@x.example\",M\xC3\xB6we,,,,regular,,\n"),
              "4 0 0 0");
    m_members.Remove(m_members.Find("b@x.example"));
    std::vector<std::string> before;
    const std::vector<std::string> addresses = {"a@x.example", "b@x.example", "c@x.example", "\"odd one\"@x.example"};
    for (const std::string& address : addresses)
        before.push_back(Member(address));
    const std::string exportFile = PathOf("export.csv");
    std::uint64_t exported = 0;
    ASSERT_TRUE(DataExport::ExportMembers(m_members, m_fields, exportFile, exported)) << GetLastErrorText();
    EXPECT_EQ(exported, 3u);
    std::string content;
    ASSERT_TRUE(ReadWholeFile(exportFile, content));
    EXPECT_TRUE(content.starts_with("E-mail,Name,First name,Middle name,Last name,Mode,Town,Shoe size\r\n")) << content;

    m_members.Close();
    m_members.OpenPath(PathOf("8.MBR"));
    EXPECT_EQ(Import(content), "3 0 0 0");
    std::vector<std::string> after;
    for (const std::string& address : addresses)
        after.push_back(Member(address));
    EXPECT_EQ(after, before);
    EXPECT_EQ(before[0], "Berg, \"Anna\"|A|B|C|both| Kiel |=1+1");
}

TEST_F(CImportTest, EveryFaultIsTold) {
    std::string content = "E-mail\nnobody\n";
    for (int i = 0; i < 3000; ++i)
        content += "m" + std::to_string(i) + "@x.example\n";
    ASSERT_TRUE(WriteFileAtomically(m_file, content));
    bool isHit = true;
    for (unsigned n = 1; isHit; ++n) {
        ASSERT_LT(n, 2000u);
        CMemberStore members;
        members.OpenPath(PathOf(std::to_string(n) + ".MBR"));
        ImportAddresses::CMemberTarget target(members, m_fields, ExistingMember::Skip);
        bool isDone = false;
        {
            const Platform::CFaultPlan plan(Platform::Operation::Write, n);
            isDone = ImportAddresses::ImportFile(m_file, target, m_summary);
            isHit = plan.WasHit();
        }
        EXPECT_TRUE(isDone || isHit);
        EXPECT_EQ(members.Count(), isDone ? 3000 : static_cast<std::int32_t>(m_summary.added)) << n;
        EXPECT_EQ(std::filesystem::exists(m_file + ".rejected.csv"), isDone);
        EXPECT_FALSE(std::filesystem::exists(m_file + ".rejected.csv.tmp"));
        // A second run completes what the fault cut off.
        ASSERT_TRUE(ImportAddresses::ImportFile(m_file, target, m_summary)) << GetLastErrorText();
        EXPECT_EQ(members.Count(), 3000);
        std::filesystem::remove(m_file + ".rejected.csv");
    }
    std::uint64_t exported = 0;
    const std::string exportFile = PathOf("export.csv");
    ASSERT_TRUE(WriteFileAtomically(exportFile, "old"));
    for (const Platform::Operation operation : {Platform::Operation::Write, Platform::Operation::Rename}) {
        const Platform::CFaultPlan plan(operation, 1);
        EXPECT_FALSE(DataExport::ExportMembers(m_members, m_fields, exportFile, exported));
        ASSERT_TRUE(ReadWholeFile(exportFile, content));
        EXPECT_EQ(content, "old");
    }
}

TEST_F(CImportTest, CanBeCancelled) {
    std::string content;
    for (int i = 0; i < 5000; ++i)
        content += "m" + std::to_string(i) + "@x.example\n";
    ASSERT_TRUE(WriteFileAtomically(m_file, content));
    ImportAddresses::CMemberTarget target(m_members, m_fields, ExistingMember::Skip);
    int calls = 0;
    const auto progress = [&](std::uint64_t done, std::uint64_t total) {
        EXPECT_LE(done, total);
        return ++calls < 2;
    };
    ASSERT_TRUE(ImportAddresses::ImportFile(m_file, target, m_summary, progress));
    EXPECT_TRUE(m_summary.isCancelled);
    EXPECT_EQ(m_summary.added, 2000u);
    EXPECT_EQ(m_members.Count(), 2000);
}

}  // namespace
