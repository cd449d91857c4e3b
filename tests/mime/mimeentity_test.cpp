#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mime/createentity.h"
#include "mime/mimeattachment.h"
#include "mime/mimemultipart.h"
#include "mime/mimetext.h"
#include "utility/text.h"

namespace {

TEST(CreateEntity, ChoosesTheClass) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"", "CMimeText"},
        {"Content-Type: text/html", "CMimeText"},
        {"Content-Type: TEXT/x-unknown", "CMimeText"},
        {"Content-Type: nothing", "CMimeText"},
        {"Content-Type: IMAGE/PNG", "CMimeAttachment"},
        {"Content-Type: image/png\nContent-Disposition: inline", "CMimeAttachment"},
        {"Content-Type: application/pdf", "CMimeAttachment"},
        {"Content-Type: media/x", "CMimeAttachment"},
        {"Content-Type: audio/mpeg", "CMimeEntity"},
        {"Content-Type: message/rfc822", "CMimeEntity"},
        {"Content-Type: text/plain\nContent-Disposition:    Attachment; filename=a.txt", "CMimeAttachment"},
        {"Content-Type: multipart/mixed\nContent-Disposition: attachment", "CMimeAttachment"},
        {"Content-Type: Multipart/Related", "CMimeMultipartRelated"},
        {"Content-Type: multipart/ALTERNATIVE ; x", "CMimeMultipartAlternative"},
        {"Content-Type: multipart/signed", "CMimeMultipartMixed"},
    };
    for (const auto& [header, name] : table)
        EXPECT_EQ(CreateEntity(header + "\n\nbody")->GetClass(), name) << header;
}

TEST(CreateEntity, SeparatesHeaderAndBody) {
    struct Case {
        std::string text, header, body;
    };
    const std::vector<Case> table = {
        {"A: b\n\nbody\n", "A: b\n", "body"},
        {"A: b\r\n\r\nx\r\ny \t\r\n", "A: b\n", "x\ny"},
        {"A: b\n\nx\r\n\r\ny", "A: b\n", "x\n\ny"},
        {"A: b\r\r\n\r\r\nx\r\r\ny\rz", "A: b\n", "x\ny\rz"},
        {"A: b", "A: b\n", ""},
        {"A: b\n\n", "A: b\n", ""},
        {"", "", ""},
        {"\n", "", ""},
        {"\nno header: here\n\nend", "", "no header: here\n\nend"},
        {"\r\nbody", "", "body"},
        {"a text without header\n\nand more", "", "a text without header\n\nand more"},
        {" \n\nbody", "", "body"},
        {"A: b\n\nabc=\r\n\r\n", "A: b\n", "abc=\n"},
        {"A: b\n\nabc=", "A: b\n", "abc=\n"},
        {std::string("A: b\n\nx\0y", 9), "A: b\n", std::string("x\0y", 3)},
    };
    for (const Case& c : table) {
        const auto entity = CreateEntity(c.text);
        EXPECT_EQ(entity->GetHeader().GetText(), c.header) << c.text;
        EXPECT_EQ(entity->GetStoredBody(), c.body) << c.text;
        EXPECT_EQ(CreateEntity(std::string(c.text))->GetStoredBody(), c.body) << "moved in: " << c.text;
        EXPECT_EQ(entity->GetText(), c.header + "\n" + c.body) << c.text;
        EXPECT_EQ(CreateEntity(entity->GetText())->GetText(), entity->GetText()) << c.text;
    }
}

TEST(MimeText, PicksTheEncoding) {
    CMimeText text;
    EXPECT_EQ(text.GetText(), "Content-Type: text/plain\nContent-Transfer-Encoding: 7bit\n\n");
    const std::string line(71, 'a');
    for (const std::string& plain : {line, line + "\n" + line + "\r" + line, std::string(30, '\xE9')}) {
        text.SetBody(plain);
        EXPECT_EQ(text.GetField("Content-Transfer-Encoding"), "7bit");
        EXPECT_EQ(text.GetBody(), plain);
    }
    for (const std::string& longText : {line + "a", "x\n" + line + "a\nx", "\r" + line + line}) {
        text.SetBody(longText + "\n");
        EXPECT_EQ(text.GetField("Content-Transfer-Encoding"), "quoted-printable");
    }
    text.SetBody("a\r\nb");
    EXPECT_EQ(text.GetStoredBody(), "a\nb");
    text.AppendBody("=");
    text.PrependBody("x");
    EXPECT_EQ(text.GetStoredBody(), "x=\na\nb=3D=\n");
}

CSharedPointer<CMimeText> Text(const std::string& subType, const std::string& body) {
    auto text = MakeShared<CMimeText>();
    text->SetContentType("text/" + subType);
    text->SetBody(body);
    return text;
}

TEST(MimeText, JoinsAsIfSetAtOnce) {
    const std::vector<std::vector<std::string>> lists = {{"a", "b"},
                                                         {"a \r\n", "\r\nb", ""},
                                                         {std::string(90, 'x') + " ", ".", "=\xE9", "c\n"},
                                                         {"a", "b", std::string(80, 'y'), "d"}};
    for (const char* subType : {"plain", "html"}) {
        const std::string separator(CMimeText::GetSeparator(std::string_view(subType) == "html"));
        for (const auto& bodies : lists) {
            auto joined = Text(subType, bodies[0]);
            std::string expected = joined->GetBody();
            for (std::size_t i = 1; i < bodies.size(); ++i) {
                const auto other = Text(subType, bodies[i]);
                ASSERT_TRUE(joined->Merge(other));
                expected += separator + other->GetBody();
            }
            ReplaceAll(expected, "\r\n", "\n");
            const auto whole = Text(subType, expected);
            EXPECT_EQ(joined->GetText(), whole->GetText());
        }
    }
    EXPECT_EQ(CMimeText::GetSeparator(false), "\n" + std::string(80, '-') + "\n\n");
}

TEST(MimeText, JoinGoesOnAfterTheBodyWasChanged) {
    auto text = Text("plain", "a");
    text->Merge(Text("plain", "b"));
    text->SetBody("c");
    text->Merge(Text("plain", "d"));
    EXPECT_EQ(text->GetBody(), "c\n" + std::string(80, '-') + "\n\nd");
}

TEST(MimeText, RefusesToJoin) {
    auto text = Text("plain", "a");
    EXPECT_FALSE(text->Merge(Text("html", "b")));
    EXPECT_FALSE(text->Merge(MakeShared<CMimeAttachment>()));
    EXPECT_FALSE(Text("calendar", "a")->Merge(Text("calendar", "b")));
    // Decoding would cut it off at the zero.
    const auto zero = CreateEntity("Content-Transfer-Encoding: base64\n\nYQBi");
    EXPECT_FALSE(text->Merge(zero));
    EXPECT_FALSE(zero->Merge(text));
    EXPECT_EQ(text->GetBody(), "a");
}

TEST(MimeAttachment, TextOperationsLeaveItAlone) {
    const auto entity = CreateEntity("Content-Type: image/png\nContent-Transfer-Encoding: base64\n\nQUJD\n");
    const std::string before = entity->GetText();
    entity->SetBody("x");
    entity->AppendBody("x");
    entity->PrependBody("x");
    EXPECT_EQ(entity->GetText(), before);
    EXPECT_EQ(entity->GetBody(), "");
    EXPECT_EQ(entity.As<CMimeAttachment>()->GetContent(), "ABC");
}

TEST(MimeAttachment, FileName) {
    const auto name = [](const std::string& header) {
        return CreateEntity("Content-Type: application/x; " + header + "\n\n").As<CMimeAttachment>()->GetFileName();
    };
    EXPECT_EQ(name("name=a.txt"), "a.txt");
    EXPECT_EQ(name("name=a.txt\nContent-Disposition: attachment; filename=\"b.txt\""), "b.txt");
    EXPECT_EQ(name("name=\"=?x?Q?caf=E9?=\""), "caf\xE9");
    EXPECT_EQ(name("x=y"), "");
}

TEST(MimeEntity, CloneIsIndependent) {
    const auto entity =
        CreateEntity("Content-Type: multipart/mixed; boundary=B\n\n--B\n\na\n--B\nContent-Type: x/y\n\nb\n--B--\n");
    const std::string before = entity->GetText();
    const auto copy = entity->Clone();
    EXPECT_EQ(copy->GetText(), before);
    const auto multipart = copy.As<CMimeMultipart>();
    multipart->GetPart(0)->SetBody("changed");
    multipart->GetPart(1)->AppendBody("changed");
    multipart->SetField("X", "y");
    EXPECT_EQ(entity->GetText(), before);
}

}  // namespace
