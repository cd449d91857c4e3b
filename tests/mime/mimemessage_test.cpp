#include "mime/mimemessage.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "mime/createentity.h"
#include "mime/messagecomposer.h"
#include "platform/guid.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

class MimeMessage : public testing::Test {
protected:
    MimeMessage() { EnsureFolder(m_folder); }
    ~MimeMessage() override { RemoveFolderTree(m_folder); }

    std::string PathOf(const std::string& name) const { return WithSystemSeparators(m_folder + "/" + name); }
    std::string ContentOf(const std::string& path) const {
        std::string content;
        EXPECT_TRUE(ReadWholeFile(path, content)) << path;
        return content;
    }

    const std::string m_folder =
        (std::filesystem::temp_directory_path() / ("lhvmime" + std::to_string(Platform::RandomNumber()))).string();
};

TEST_F(MimeMessage, FailedLoadKeepsTheRoot) {
    CMimeMessage message;
    ASSERT_TRUE(message.LoadText("Content-Type: image/png\n\nx"));
    ASSERT_TRUE(WriteFileAtomically(PathOf("empty"), ""));
    EXPECT_FALSE(message.Load(PathOf("missing")));
    EXPECT_FALSE(message.Load(PathOf("empty")));
    EXPECT_TRUE(message.GetRoot());
    EXPECT_EQ(message.GetAttachmentCount(), 1);
    EXPECT_THROW(message.GetAttachment(-1), CLhvException);
    EXPECT_THROW(message.GetAttachment(1), CLhvException);
    EXPECT_THROW(message.LoadOrThrow(PathOf("missing")), CLhvException);
    EXPECT_THROW(message.SaveOrThrow(PathOf("no/folder/a.eml")), CLhvException);
}

TEST_F(MimeMessage, OnlyPartBecomesTheRoot) {
    const std::string text =
        "Subject: s\nReceived: 1\nReceived: 2\nContent-Type: multipart/mixed; boundary=B\n"
        "Content-Language: en\n\n--B\nContent-Type: text/plain\nX: y\n\nbody\n--B--\n";
    CMimeMessage message;
    ASSERT_TRUE(message.LoadText(text));
    EXPECT_EQ(message.GetText(), "Content-Type: text/plain\nX: y\nSubject: s\nReceived: 1\nReceived: 2\n\nbody");
    ASSERT_TRUE(message.LoadText(text + "what a list adds\n"));
    EXPECT_NE(message.GetText().find("\n--B--\nwhat a list adds\n"), std::string::npos);
}

TEST_F(MimeMessage, AttachesFiles) {
    const char* const name = Platform::PathSeparator() == '/' ? "some \"file\".bin" : "some 'file'.bin";
    std::string content;
    for (int i = 0; i < 1000; ++i)
        content += static_cast<char>(i % 256);
    ASSERT_TRUE(WriteFileAtomically(PathOf(name), content));
    CMimeAttachment attachment;
    attachment.AttachFile(PathOf(name));
    EXPECT_EQ(attachment.GetFileName(), "some 'file'.bin");
    EXPECT_EQ(attachment.GetStoredBody().find('\r'), std::string_view::npos);
    const auto again = CreateEntity(LfToCrLf(attachment.GetText())).As<CMimeAttachment>();
    again->SaveToFile(PathOf("copy"));
    EXPECT_EQ(ContentOf(PathOf("copy")), content);
    const std::string before = attachment.GetText();
    EXPECT_THROW(attachment.AttachFile(PathOf("missing")), CLhvException);
    EXPECT_EQ(attachment.GetText(), before);
    again->SetField("Content-Transfer-Encoding", "Quoted-Printable");
    EXPECT_THROW(again->SaveToFile(PathOf("no/folder/x")), CLhvException);
}

TEST_F(MimeMessage, SavesImagesInTheirFolderOnly) {
    struct Case {
        const char* name;
        const char* file;
    };
    ASSERT_TRUE(EnsureFolder(PathOf("images")));
    for (const auto& [name, file] : {Case{"../../etc/passwd", "passwd"}, Case{"..\\..\\boot.ini", "boot.ini"},
                                     Case{"/tmp/a.png", "a.png"}, Case{"..", "unnamed"}}) {
        CMimeMessage message;
        message.LoadText(
            "Content-Type: image/png\nContent-ID: <i@x>\nContent-Transfer-Encoding: base64\n"
            "Content-Disposition: inline; filename=" +
            std::string(name) + "\n\nQUJD\n");
        EXPECT_EQ(message.SaveImage("i@x", PathOf("images")), PathOf("images/") + file);
        EXPECT_EQ(ContentOf(PathOf("images/") + file), "ABC");
        EXPECT_THROW(message.SaveImage("other", PathOf("images")), CLhvException);
        EXPECT_THROW(message.SaveImage("", PathOf("images")), CLhvException);
    }
    CMimeMessage nameless;
    nameless.LoadText("Content-Type: image/png\nContent-ID: <i>\n\nx");
    EXPECT_THROW(nameless.SaveImage("i", PathOf("images")), CLhvException);
}

TEST_F(MimeMessage, ComposesFromNothing) {
    CMimeMessage message;
    SetMessageText(message, "hello", TextKind::Plain);
    message.GetRoot()->SetField("Subject", "s");
    ASSERT_TRUE(WriteFileAtomically(PathOf("a.txt"), "file"));
    ASSERT_TRUE(WriteFileAtomically(PathOf("i.png"), "image"));
    AttachFileToMessage(message, PathOf("a.txt"));
    SetMessageText(message, "<html><body>hi <img src=\"cid:i\"></BODY></html>", TextKind::Html);
    EmbedImage(message, PathOf("i.png"), "i");
    EXPECT_TRUE(InsertIntoHtml(message, "footer"));
    EXPECT_EQ(GetMessageText(message, TextKind::Html), "<html><body>hi <img src=\"cid:i\">footer<BR>\n</BODY></html>");
    EXPECT_EQ(message.GetRoot()->GetField("Subject"), "s");
    EXPECT_EQ(message.GetAttachmentCount(), 2);
    ASSERT_TRUE(message.FindImage("i"));

    CMimeMessage read;
    ASSERT_TRUE(read.LoadText(message.GetDiskText()));
    EXPECT_EQ(read.GetAttachment(1).As<CMimeAttachment>()->GetContent(), "file");
    EXPECT_EQ(GetMessageText(read, TextKind::Plain), "hi");
    SetMessageText(read, "<p>no image</p>", TextKind::Html);
    read.RefreshAttachments();
    EXPECT_EQ(read.GetAttachmentCount(), 1);
    EXPECT_EQ(message.GetAttachmentCount(), 2);
    EXPECT_FALSE(InsertIntoHtml(*std::make_unique<CMimeMessage>(), "x"));
}

}  // namespace
