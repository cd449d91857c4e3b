#include "engine/incoming/moderation.h"

#include "engine/incoming/cycletransaction.h"
#include "mime/mimemessage.h"
#include "mime/mimewalk.h"
#include "platform/faultplan.h"
#include "senddaemon/batchfolder.h"
#include "tests/engine/messagefixture.h"
#include "tests/platform/filespeed.h"
#include "utility/text.h"

namespace {

class Moderation : public MessageTest {
protected:
    std::string Hold(const std::string& text, const std::string& inbox = InboxHeaderOf(1)) {
        CBatchFolder folder;
        std::string path;
        EXPECT_TRUE(folder.Open(GetPendingFolder(m_list)));
        EXPECT_TRUE(folder.AddMessageText("X-Lhv-Inbox: " + inbox + "\r\nFrom: a@x.example\r\n" + text, path));
        return LastPathComponent(path).substr(0, LastPathComponent(path).find('.'));
    }

    std::string Accepted() const {
        const auto files = QueuedFiles(GetAcceptedFolder(m_list));
        std::string content;
        EXPECT_EQ(files.size(), 1u);
        EXPECT_TRUE(!files.empty() && ReadWholeFile(files[0], content) && Platform::RemoveFile(files[0]));
        return content;
    }

    const std::uint32_t m_list = MakeList("News", {});
};

TEST_F(Moderation, TheNoteGoesInFrontOfEveryFormOfTheText) {
    const std::string prefill(ModeratorNotePrefill);
    const std::string plain = "[Moderator's note:\n\n]\n\n";
    const std::string html = "<html><BODY class=x>[Moderator's note:<br>\n<br>\n]<br>\n<br>\nHi";
    const std::string alternative =
        "Content-Type: multipart/mixed; boundary=m\r\n\r\n--m\r\nContent-Type: multipart/alternative; boundary=a\r\n"
        "\r\n--a\r\n\r\nHi\r\n--a\r\nContent-Type: text/html\r\n\r\n<html><BODY class=x>Hi\r\n--a--\r\n\r\n--m\r\n"
        "Content-Disposition: attachment\r\n\r\nfile\r\n--m--\r\n";
    const struct {
        std::string text;
        std::string note;
        std::vector<std::string> texts;  // decoded, from the front; none: refused
    } rows[] = {{"\r\nHello\r\n", prefill, {plain + "Hello"}},
                {"Content-Transfer-Encoding: base64\r\n\r\nSGVsbG8=\r\n", "N", {"N\n\nHello"}},
                {"Content-Transfer-Encoding: quoted-printable\r\n\r\n=3D\r\n", "N", {"N\n\n="}},
                {"Content-Type: text/html\r\n\r\nx\r\n", "<\xC3\xA4>", {"&lt;&#228;&gt;<br>\n<br>\nx"}},
                {"Content-Type: text/plain; charset=koi8-r\r\n\r\n\xE4\r\n", "\xC3\xB6", {"\xC3\xB6\n\n\xD0\x94"}},
                {"Content-Type: text/plain; charset=x-none\r\n\r\n\xE4\r\n", "N", {"N\n\n\xE4"}},
                {"Content-Type: text/plain; charset=x-none\r\n\r\n\xE4\r\n", "\xC3\xB6", {}},
                {"Content-Type: application/pdf\r\n\r\nx\r\n", "N", {}},
                {alternative, prefill, {plain + "Hi", html}}};
    for (const auto& row : rows) {
        const std::string id = Hold(row.text);
        EXPECT_EQ(AcceptPending(m_list, id, row.note), !row.texts.empty()) << row.text;
        EXPECT_EQ(RejectPending(m_list, id), row.texts.empty()) << "what is refused stays pending";
        if (row.texts.empty()) continue;
        CMimeMessage message;
        ASSERT_TRUE(message.LoadText(Accepted()));
        std::vector<std::string> texts;
        for (const CMimeText* text : CollectTextEntities(*message.GetRoot()))
            texts.emplace_back(TrimRight(text->GetBody()));
        texts.resize(row.texts.size());  // without the attachment
        EXPECT_EQ(texts, row.texts);
    }
}

TEST_F(Moderation, WithoutANoteTheBytesStayAndWhatIsNotForThisListsInboxStaysPending) {
    const std::string id = Hold("Content-Transfer-Encoding: 8bit\r\n\r\n \xE4 \r\n\r\n");
    EXPECT_TRUE(AcceptPending(m_list, id, ""));
    EXPECT_TRUE(Accepted().ends_with("8bit\r\n\r\n \xE4 \r\n\r\n"));
    EXPECT_FALSE(AcceptPending(m_list, id, ""));
    EXPECT_EQ(GetLastErrorText(), "Message no longer exists.");
    for (const char* inbox : {"", "Inbox/99/.Accepted", "../elsewhere", "Inbox/1"}) {
        const std::string held = Hold("\r\nx\r\n", inbox);
        EXPECT_FALSE(AcceptPending(m_list, held, "N")) << inbox;
        for (const std::string& path : {"../" + held, held + "/", held + ".eml", std::string()})
            EXPECT_FALSE(RejectPending(m_list, path)) << path;
        EXPECT_TRUE(RejectPending(m_list, held));
    }
    EXPECT_TRUE(ListPending(m_list).empty());
}

TEST_F(Moderation, AfterAFaultTheMessageIsInOnePlaceWithOneNote) {
    for (unsigned n = 1;; n += ByFileSpeed(1U, 5U)) {
        const std::string id = Hold("\r\nHello\r\n");
        bool wasHit = false;
        {
            const Platform::CFaultPlan plan(Platform::Operation::Any, n);
            AcceptPending(m_list, id, "N");
            wasHit = plan.WasHit();
        }
        const auto messages = ListPending(m_list);
        ASSERT_EQ(messages.size(), 1u) << n;
        EXPECT_TRUE(messages[0].isAccepted || AcceptPending(m_list, id, "N")) << n << DescribeLastError();
        const std::string text = Accepted();
        EXPECT_EQ(text.find("N\r\n\r\nHello"), text.find("N\r\n")) << n << text;
        if (!wasHit) break;
    }
}

}  // namespace
