#include "mime/mimemultipart.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "mime/createentity.h"
#include "mime/mimeattachment.h"
#include "mime/mimemultipartalternative.h"
#include "mime/mimemultipartmixed.h"
#include "mime/mimemultipartrelated.h"
#include "mime/mimetext.h"
#include "mime/multipartsplit.h"
#include "utility/text.h"

namespace {

using Child = CMimeMultipart::Child;

Child Part(const std::string& type, const std::string& body = "x") {
    return CreateEntity("Content-Type: " + type + "\n\n" + body);
}

// "mixed[plain,alternative[plain,html]]"
std::string Outline(const CMimeEntity& entity) {
    std::string outline = entity.GetSubType();
    const auto* multipart = dynamic_cast<const CMimeMultipart*>(&entity);
    if (!multipart) return outline;
    std::vector<std::string> parts;
    for (std::size_t i = 0; i < multipart->GetPartCount(); ++i)
        parts.push_back(Outline(*multipart->GetPart(i)));
    return outline + "[" + Join(parts, ",") + "]";
}

std::string MultipartText(const std::string& subType, const std::string& boundary,
                          const std::vector<std::string>& parts) {
    std::string text = "Content-Type: multipart/" + subType + "; boundary=" + boundary + "\n\n";
    for (const std::string& part : parts)
        text += "\n--" + boundary + "\n" + part + "\n";
    return text + "\n--" + boundary + "--\n";
}

TEST(MultipartBoundary, IsRead) {
    const std::vector<std::pair<std::string, std::string>> table = {
        {"multipart/mixed; boundary=abc", "abc"},
        {"multipart/mixed; BOUNDARY=aBc; x=y", "aBc"},
        {"multipart/mixed; boundary=\" a;b= \"; x", "a;b="},
        {"multipart/mixed; boundary=\"open", "open"},
        {"multipart/mixed; boundary=a'b+_,c", "a'b+_"},
        {"multipart/mixed; boundary=a\xE9/", "a\xE9"},
        {"multipart/mixed;\n\tboundary=\"=?x?Q?a?=\"", "=?x?Q?a?="},
        {"multipart/mixed boundary=abc", ""},
        {"multipart/mixed; x=y", ""},
        {"multipart/mixed; boundary=", ""},
    };
    for (const auto& [type, boundary] : table)
        EXPECT_EQ(Part(type).As<CMimeMultipart>()->GetBoundary(), boundary) << type;
}

TEST(MultipartBoundary, IsSetInPlace) {
    CMimeMultipartAlternative multipart;
    const std::string first = multipart.GetBoundary();
    EXPECT_TRUE(first.starts_with("--next_part")) << first;
    EXPECT_EQ(first.find_first_not_of("0123456789", 11), std::string::npos);
    EXPECT_EQ(multipart.GetHeader().FindStored("Content-Type"), "multipart/alternative\n\t;boundary=\"" + first + "\"");
    multipart.SetBoundary("m");
    multipart.SetBoundary(nullptr);
    multipart.SetBoundary("new");
    EXPECT_EQ(multipart.GetHeader().FindStored("Content-Type"), "multipart/alternative\n\t;boundary=\"new\"");
    multipart.SetContentType("");
    multipart.SetBoundary("b");
    EXPECT_EQ(multipart.GetHeader().FindStored("Content-Type"), "multipart/mixed;\n\tboundary=\"b\"");
}

TEST(SplitMultipart, CutsAtDelimiters) {
    struct Case {
        std::string body;
        bool result;
        std::string preamble;
        std::vector<std::string> parts;
        std::string epilogue;
    };
    const std::vector<Case> table = {
        {"pre\n--B\na\n--B\nb\n--B--\nend\n", true, "pre", {"a", "b"}, "end\n"},
        {"\n--B\n\na\n\n--B--", true, "", {"\na\n"}, ""},
        {"--B \t\na\n--B-- \nx", true, "", {"a"}, "x"},
        {"--B\na\n--Bx\nb\n --B\n--B--x\n--B y\n--B--", true, "", {"a\n--Bx\nb\n --B\n--B--x\n--B y"}, ""},
        {"--B\na", true, "", {"a"}, ""},
        {"--B\na\n--B\nb\n", true, "", {"a", "b\n"}, ""},
        {"--B--", true, "", {}, ""},
        {"pre\n--B--\nend", true, "pre", {}, "end"},
        {"--B\n \n\n--B--\n", true, "", {}, ""},
        {"--B\na\n--B\n\n--B--\n", true, "", {"a"}, ""},
        {"--B\n--B--\n", true, "", {}, ""},
        {"--B\n \t\n--B\na\n--B--\n", false, "", {}, ""},
        {"--B\n--B\na\n--B--\n", false, "", {}, ""},
        {"--B\na\n--B\n", false, "", {}, ""},
        {"--B", false, "", {}, ""},
        {"no delimiter\n-B\n--", false, "", {}, ""},
        {"", false, "", {}, ""},
    };
    for (const Case& c : table) {
        CMultipartPieces pieces;
        ASSERT_EQ(SplitMultipart(c.body, "B", pieces), c.result) << c.body;
        if (!c.result) continue;
        EXPECT_EQ(pieces.preamble, c.preamble) << c.body;
        EXPECT_EQ(std::vector<std::string>(pieces.parts.begin(), pieces.parts.end()), c.parts) << c.body;
        EXPECT_EQ(pieces.epilogue, c.epilogue) << c.body;
    }
    CMultipartPieces pieces;
    EXPECT_FALSE(SplitMultipart("--\na\n--\n", "", pieces));
}

TEST(Multipart, IsWrittenAsItWasRead) {
    const std::string head = "Content-Type: multipart/mixed; boundary=B\n";
    const std::string text = head + "\npre\n--B\nContent-Type: x/a\n\na\n\n--B\nContent-Type: x/b\n\n\n\n--B--\nend\n";
    EXPECT_EQ(CreateEntity(text)->GetText(), text);
    EXPECT_EQ(CreateEntity(LfToCrLf(text))->GetText(), text);
    for (const std::string& lines :
         {text, std::string(), std::string("\n\n\r\na\n"), std::string("\n") + std::string(99, 'x')}) {
        std::string made = lines;
        MakeCrLf(made);
        EXPECT_EQ(made, LfToCrLf(lines));
    }
    for (const std::string body : {"no delimiter\n\n", "--B\n\n--B\n\ntwo\n--B--\n", "--B\n\none\n--B\n", "\nx"})
        EXPECT_EQ(CreateEntity(head + "\n" + body)->GetText(), head + "\n" + body);
    EXPECT_EQ(CreateEntity(head)->GetText(), head + "\n");
}

TEST(Multipart, WhatIsSealedIsKeptOnRequest) {
    for (const std::string subType : {"signed", "encrypted", "digest", "report"}) {
        const std::string sealed =
            MultipartText(subType, "S", {"\ntext \n\n", "Content-Type: multipart/mixed; boundary=I\n\n--I--\n"});
        const std::string text = MultipartText("mixed", "B", {"\nfirst", sealed, "\nlast"});
        const CMimeSource source = CMimeSource(text).With(CMimeSource::Sealed::Kept);
        EXPECT_NE(CreateEntity(source)->GetText().find(std::string(Trim(sealed))), std::string::npos) << subType;
        EXPECT_EQ(CreateEntity(CMimeSource(sealed).With(CMimeSource::Sealed::Kept))->GetText(), sealed) << subType;
        EXPECT_GT(CreateEntity(sealed).As<CMimeMultipart>()->GetPartCount(), 0u) << "unless it is asked for";
    }
}

TEST(Multipart, NestedRawPartsDoNotGrow) {
    const std::string inner = "Content-Type: multipart/related; boundary=I\n\nnothing to split \n\n\n";
    std::string text = CreateEntity(MultipartText("mixed", "B", {"Content-Type: x/y\n\n1", inner}))->GetText();
    EXPECT_NE(text.find("nothing to split"), std::string::npos);
    EXPECT_EQ(CreateEntity(text)->GetText(), text);
}

TEST(Multipart, PartsFindTheirPlaceWhileParsing) {
    const std::string plain = "Content-Type: text/plain\n\np";
    const std::string html = "Content-Type: text/html\n\n<b>h</b>";
    const std::string zero = "Content-Type: text/html\nContent-Transfer-Encoding: base64\n\n";
    const std::string image = "Content-Type: image/png\n\ni";
    const std::string pdf = "Content-Type: application/pdf\n\nd";
    const std::vector<std::pair<std::string, std::string>> table = {
        {MultipartText("mixed", "B", {plain, pdf}), "mixed[plain,pdf]"},
        {MultipartText("mixed", "B", {plain, html, pdf}), "mixed[alternative[plain,html],pdf]"},
        {MultipartText("mixed", "B", {plain, pdf, plain}), "mixed[pdf,alternative[plain]]"},
        {MultipartText("mixed", "B", {MultipartText("mixed", "C", {plain, pdf}), pdf}), "mixed[plain,pdf,pdf]"},
        {MultipartText("mixed", "B", {MultipartText("related", "C", {pdf}), plain}), "mixed[pdf,plain]"},
        {MultipartText("mixed", "B", {MultipartText("related", "C", {html, image}), pdf}),
         "mixed[related[html,png],pdf]"},
        {MultipartText("alternative", "B", {html}), "alternative[plain,html]"},
        {MultipartText("alternative", "B", {html, plain, plain}), "alternative[plain,html]"},
        {MultipartText("alternative", "B", {plain, zero + "QQBB", zero + "QQBC"}), "alternative[plain,html,html]"},
        {MultipartText("alternative", "B", {plain, MultipartText("related", "C", {html, image})}),
         "alternative[plain,related[html,png]]"},
        // refused, and kept as it is
        {MultipartText("alternative", "B", {plain, MultipartText("mixed", "C", {html, pdf})}),
         "alternative[plain,mixed[html,pdf]]"},
        {MultipartText("alternative", "B", {plain, MultipartText("mixed", "C", {plain, html})}),
         "alternative[plain,html]"},
        // not split, and not taken for one without parts
        {MultipartText("mixed", "B", {plain, "Content-Type: multipart/mixed; boundary=C\n\ntext"}),
         "mixed[plain,mixed[]]"},
    };
    for (const auto& [text, outline] : table) {
        const auto entity = CreateEntity(text);
        EXPECT_EQ(Outline(*entity), outline) << text;
        // An "alternative" of one text is taken apart when it is read again.
        if (outline.find("[plain]") != std::string::npos) continue;
        EXPECT_EQ(CreateEntity(entity->GetText())->GetText(), entity->GetText()) << text;
    }
}

TEST(Multipart, KeepsWhatStoodAroundMergedParts) {
    const std::string inner =
        "Content-Type: multipart/mixed; boundary=C\n\nbefore\n--C\nContent-Type: x/y\n\na\n--C--\nbehind\n";
    const std::string text = CreateEntity(MultipartText("mixed", "B", {inner, "Content-Type: x/z\n\nb"}))->GetText();
    EXPECT_NE(text.find("\n--B--\nbefore\nbehind\n"), std::string::npos) << text;
}

TEST(MultipartMixed, SetTextKeepsAttachments) {
    CMimeMultipartMixed mixed;
    mixed.AddPart(CreateEntity("Content-Type: text/plain\nContent-Disposition: attachment\n\nfile"));
    mixed.SetText("one", false);
    EXPECT_EQ(Outline(mixed), "mixed[plain,plain]");
    mixed.SetText("<b>two</b>", true);
    EXPECT_EQ(Outline(mixed), "mixed[alternative[plain,html],plain]");
    mixed.SetText("<b>three</b>", true);
    EXPECT_EQ(Outline(mixed), "mixed[alternative[plain,html],plain]");
    mixed.SetText("four", false);
    EXPECT_EQ(Outline(mixed), "mixed[plain,plain]");
    EXPECT_EQ(mixed.GetPart(0)->GetStoredBody(), "file");
    EXPECT_EQ(mixed.GetPart(1)->GetBody(), "four");
}

TEST(MultipartAlternative, SetTextMakesBoth) {
    CMimeMultipartAlternative alternative;
    alternative.SetText("<p>Hello</p>", true);
    EXPECT_EQ(Outline(alternative), "alternative[plain,html]");
    EXPECT_NE(alternative.GetPart(0)->GetBody().find("Hello"), std::string::npos);
    EXPECT_EQ(alternative.GetPart(1)->GetBody(), "<p>Hello</p>");
    alternative.SetText("a < b", false);
    EXPECT_EQ(alternative.GetPart(0)->GetBody(), "a < b");
    EXPECT_NE(alternative.GetPart(1)->GetBody().find("a &lt; b"), std::string::npos);
}

TEST(MultipartAlternative, MadePlainTextSaysItsCharset) {
    const auto plainType = [](const std::string& charset, const std::string& html) {
        const auto entity =
            CreateEntity(MultipartText("alternative", "B", {"Content-Type: text/html" + charset + "\n\n" + html}));
        return entity.As<CMimeMultipart>()->GetPart(0)->GetField("Content-Type");
    };
    EXPECT_EQ(plainType("; charset=koi8-r", "<p>abc"), "text/plain");
    EXPECT_EQ(plainType("; charset=koi8-r", "<p>\xC1\xC2"), "text/plain; charset=\"koi8-r\"");
    EXPECT_EQ(plainType("; charset=us-ascii", "<p>&eacute;"), "text/plain; charset=\"utf-8\"");
}

TEST(MultipartRelated, DropsImagesThatNothingShows) {
    CMimeMultipartRelated related;
    const auto image = [](const std::string& id) { return Part("image/png\nContent-ID: " + id, "x"); };
    for (const char* id : {"<a@x>", "<b c>", "<>", "<gone>"})
        related.AddPart(image(id));
    related.AddPart(Part("x/y"));
    related.InsertPart(0, Child());
    related.SetText("<img src=\"cid:a@x\"><td background='CID:b%20c'><img src=cid:gone2>", true);
    EXPECT_EQ(Outline(related), "related[alternative[plain,html],png,png,y]");
}

TEST(MultipartRelated, FindsReferences) {
    for (const char* html : {"src=\"cid:id@x\"", "url(CID:ID@X)", "cid:id@x", "src=cid:id%40x>", "cid:other cid:id@x "})
        EXPECT_TRUE(RefersToContentID(html, "id@x")) << html;
    for (const char* html : {"cid:id@x.y", "id@x", "cid:id%4", "cid:id@", ""})
        EXPECT_FALSE(RefersToContentID(html, "id@x")) << html;
}

}  // namespace
