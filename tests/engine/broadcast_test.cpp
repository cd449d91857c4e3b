#include "engine/broadcast.h"

#include <chrono>

#include "engine/customfields.h"
#include "engine/listaccount.h"
#include "mime/mimemessage.h"
#include "tests/engine/messagefixture.h"
#include "utility/text.h"

namespace {

constexpr std::int64_t Now = 1'772'452'800;

class Broadcast : public MessageTest {
protected:
    Broadcast() {
        m_list.name =
            "H\xC3\xA4"
            "fen";
        m_list.guid = "{A}";
        m_list.address = "news@harbour.example";
        m_list.number = MakeList("Harbour News", {});
        CCustomFields fields;
        fields.Load(m_list.number);
        fields.Set(0, {"Town", "", CustomFieldKind::Text});
        fields.Set(63, {"Boat", "", CustomFieldKind::Text});
    }

    CMember Anna() {
        CMember member = MakeMember("anna_b@x.example");
        member.firstName = "anna";
        member.lastName = "de la \"\xC3\x98sterbro\"";
        member.SetField(0, "Kiel & Umland");
        member.SetField(63, "$(Town)'s M\xC3\xB6we\nline two");
        return member;
    }

    std::string Copy(const std::string& message, const CMember& member, CopyWay way,
                     CopyResult expected = CopyResult::Made) {
        CMimeMessage parsed;
        EXPECT_TRUE(parsed.LoadText(message));
        CBroadcastMaker maker(way);
        EXPECT_TRUE(maker.Open(parsed, m_list, "17")) << DescribeLastError();
        std::string text;
        EXPECT_EQ(maker.Make(member, Now, text), expected) << DescribeLastError();
        const std::size_t start = text.find("Message-ID: <") + 13;
        const std::size_t end = text.find('@', start);
        if (end != std::string::npos) text.erase(start, end - start);
        return text;
    }

    BroadcastList m_list;
};

TEST_F(Broadcast, BothWaysOfMakingACopyGiveTheSameBytes) {
    const std::string from = "From: \"News\" <a@x.example>\n";
    const std::string longLine(60, 'x');
    const std::string messages[] = {
        from + "To: list@x.example\nSubject: Hi $(To-First-Name)\n\nDear $(To-Name),\n\n$(Town)\n.\nbye \n",
        from + "Subject: =?utf-8?Q?Gr=C3=BC=C3=9Fe?= $(Boat)\n\n" + longLine + " $(Boat) " + longLine + "\nend $(Town)",
        from + "Subject: none\n\nno reference at all, " + longLine + longLine + "\n",
        "Subject: from the list\nX-Empty:\nX-List: $(List-Name) $(Unknown)\nX-Gone: $(Unknown)\n\n$(From) $(Unknown)\n",
        from +
            "Content-Type: text/html; charset=utf-8\nContent-Transfer-Encoding: quoted-printable\n\n<p>$(Town) "
            "=C3=BC $(T=\nown)</p>\n<p>" +
            longLine + "$(Boat)</p>\n$(To-Email",
        from +
            "Content-Type: text/plain\nContent-Transfer-Encoding: base64\n\n"
            "b25lICQoVG93bikNCnR3byANCiQoQm9hdCkNCg==\n",
        from +
            "X-Lhv-To-Override: Friends of $(Town) <all@x.example>\nX-Lhv-Subject-Override: $(Subject)!\n"
            "X-Lhv-Should-Sign: YES\nSubject: signed $(To-Last-Name)\nCC: c@x.example\nBcc: b@x.example\n"
            "X-Lhv-Recipient-Override: one@x.example\nX-Zq-Update-Attachments: 1\nTo: a@x\nTo: b@x\n\nx\n",
        from +
            "Content-Type: multipart/mixed; boundary=\"B\"\nSubject: $(Rand9) parts\n\npreamble\n--B\n"
            "Content-Type: multipart/alternative; boundary=C\n\n--C\nContent-Type: text/plain\n\n$(Boat)\n\n--C\n"
            "Content-Type: text/html\n\n<i>$(Boat)</i>\n" +
            longLine + longLine +
            "\n--C--\n--B\n"
            "Content-Type: application/pdf; name=\"a$(Town).pdf\"\nContent-Transfer-Encoding: base64\n\nQUJD\n--B\n"
            "Content-Disposition: attachment; filename=b.txt\n\n$(Town) stays\n--B--\nepilogue\n",
        from + "Content-Type: text/plain; name=\"$(Town)\"\n\nas a whole $(Town)\n",
    };
    for (const std::string& message : messages) {
        for (const CMember& member : {Anna(), MakeMember("bare@x.example")}) {
            const std::string whole = Copy(message, member, CopyWay::WholeTree);
            EXPECT_EQ(Copy(message, member, CopyWay::Pattern), whole) << message;
            EXPECT_NE(whole.find("\r\nX-Lhv-Broadcast: 17\r\n"), std::string::npos);
            EXPECT_EQ(whole.find("$(Town)") != std::string::npos, message.find("stays") != std::string::npos) << whole;
        }
    }
}

TEST_F(Broadcast, ACopyIsForItsMemberAlone) {
    CMimeMessage copy;
    ASSERT_TRUE(
        copy.LoadText(Copy("From: a@x.example\nTo: x@x.example\nTo: y@x.example\nCc: c@x.example\n"
                           "BCC: d@x.example\nBCC: e@x.example\nX-Lhv-Recipient-Override: f@x.example\n"
                           "Subject: $(Boat)?|$(To-First-Name)|$(To)\n\n$(Town)\n",
                           Anna(), CopyWay::Pattern)));
    const auto& root = *copy.GetRoot();
    const std::string to = "\"anna de la \\\"\xC3\x98sterbro\\\"\" <anna_b@x.example>";
    EXPECT_EQ(root.GetField("To"), to);
    EXPECT_EQ(root.GetField("Subject"), "Kiel & Umland's M\xC3\xB6we line two?|Anna|" + to);
    EXPECT_EQ(root.GetBody(), "Kiel & Umland");
    for (const char* name : {"CC", "BCC", "X-Lhv-Recipient-Override"})
        EXPECT_FALSE(root.HasField(name)) << name;
    std::string log;
    ASSERT_TRUE(ReadWholeFile(JoinPath(m_folder.GetPath(), "log.txt"), log));
    for (const char* name : {" CC line", " BCC line", " X-Lhv-Recipient-Override line"}) {
        EXPECT_NE(log.find(name), std::string::npos) << name;
    }
}

// A stranger's post can be one.
TEST_F(Broadcast, ALongLineFullOfReferencesTakesNoSquareOfTime) {
    std::string message = "From: a@x.example\n\n";
    for (int i = 0; i < 400'000; ++i)
        message += "$($)(";
    const auto start = std::chrono::steady_clock::now();
    EXPECT_GT(Copy(message, Anna(), CopyWay::Pattern).size(), 800'000u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(Broadcast, NamesAndAddressesOfStrangersStayWhatTheyAre) {
    const std::string message = "From: a@x.example\nSubject: s\nX-Lhv-To-Override: all@x.example\n\nx\n";
    const struct {
        const char* address;
        const char* name;
        const char* recipient;  // nullptr: gets no copy
    } rows[] = {
        {"m@x.example", "", "m@x.example"},
        {"m@x.example", "A <v@y.example>, B", "\"A <v@y.example>, B\" <m@x.example>"},
        {"m@x.example", "A\" <v@y.example>, \"", "\"A\\\" <v@y.example>, \\\"\" <m@x.example>"},
        {"m@x.example", "A\r\nBcc: v@y.example", "\"A  Bcc: v@y.example\" <m@x.example>"},
        {"m@x.example", "=?utf-8?Q?=22_=3Cv@y.example=3E,?=", "m@x.example"},
        {"m@x.example", "$(Town)", "m@x.example"},
        {"=?a?Q?v=40y.example=2C?=@x.example", "", nullptr},
        {"m@x.example\r\nBcc: v@y.example", "", nullptr},
    };
    for (const auto& row : rows) {
        CMember member = MakeMember(row.address, row.name);
        member.SetField(0, "\" <v@y.example>, \"");
        const auto expected = row.recipient != nullptr ? CopyResult::Made : CopyResult::Skipped;
        const std::string text = Copy(message, member, CopyWay::Pattern, expected);
        EXPECT_EQ(text.find("\r\nBcc:"), std::string::npos) << row.name;
        if (row.recipient == nullptr) continue;
        CMimeMessage copy;
        ASSERT_TRUE(copy.LoadText(text));
        EXPECT_EQ(copy.GetRoot()->GetField("X-Lhv-Recipient-Override"), row.recipient);
        EXPECT_EQ(copy.GetRoot()->GetField("To"), "all@x.example");
    }
}

TEST_F(Broadcast, GenerateChoosesMembersByModeUntilItIsCancelled) {
    CMember inactive = MakeMember("inactive@x.example");
    inactive.SetProperty("Inactive", "bounced");
    const std::uint32_t list =
        MakeList("Modes", {MakeMember("a@x.example"), inactive, MakeMember("b@x.example", "", DeliveryMode::Both),
                           MakeMember("d@x.example", "", DeliveryMode::Digest)});
    CMimeMessage message;
    ASSERT_TRUE(message.LoadText("From: a@x.example\nSubject: s\n\nx\n"));
    const struct {
        BroadcastModes modes;
        int asked;  // cancelled at that question
        std::uint64_t copies;
        std::uint64_t skipped;
    } rows[] = {{{true, true, false}, 9, 2, 2}, {{false, true, true}, 9, 2, 2}, {{true, false, false}, 9, 1, 3},
                {{true, true, true}, 9, 3, 1},  {{true, true, true}, 3, 1, 1},  {{true, true, true}, 1, 0, 0}};
    int number = 0;
    for (const auto& row : rows) {
        const std::string queue = JoinPath(m_folder.GetPath(), "queue" + std::to_string(++number));
        BroadcastCounts counts;
        int asked = 0;
        const auto cancel = [&] { return ++asked == row.asked; };
        ASSERT_TRUE(GenerateBroadcast(message, list, row.modes, queue, cancel, counts)) << DescribeLastError();
        EXPECT_EQ(counts.copies, row.copies) << number;
        EXPECT_EQ(counts.skipped, row.skipped) << number;
        EXPECT_EQ(QueuedFiles(queue).size(), row.copies) << number;
    }
    BroadcastCounts counts;
    EXPECT_FALSE(GenerateBroadcast(message, 99, {}, "q", {}, counts));
}

}  // namespace
