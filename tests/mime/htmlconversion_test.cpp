#include "mime/htmlconversion.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "tests/utility/repeat.h"
#include "utility/text.h"

namespace {

struct Conversion {
    std::string html;
    std::string text;
};

void ExpectTexts(const std::vector<Conversion>& conversions) {
    for (const Conversion& one : conversions)
        EXPECT_EQ(HtmlToText(one.html), one.text) << one.html;
}

TEST(HtmlToText, Blocks) {
    ExpectTexts(
        {{"", ""},
         {"<html><body> \n </body></html>", ""},
         {"just text", "just text\n"},
         {"<p>One</p><p>Two\n  lines</p>", "One\n\nTwo lines\n"},
         {"<div>a</div>b<br>c<br><br>d", "a\nb\nc\n\nd\n"},
         {"<p>a <b>bold</b><i> word</i>.</p>", "a bold word.\n"},
         {"<h1>News</h1><p>x</p><h3>More</h3>y", "News\n====\n\nx\n\nMore\n\ny\n"},
         {"<p>a</p><ul><li>one<li>two<ol><li>x</li><li>y</li></ol></ul><p>b</p>",
          "a\n\n* one\n* two\n  1. x\n  2. y\n\nb\n"},
         {"<ol start=9><li>a</li><li value=20>b</li></ol>", "9. a\n20. b\n"},
         {"<p>He said:</p><blockquote><p>a</p><p>b</p></blockquote>c", "He said:\n\n> a\n>\n> b\n\nc\n"},
         {"<pre>\n  if (a &lt; b)\n\n\treturn;</pre>x", "  if (a < b)\n\n\treturn;\n\nx\n"},
         {"<table><tr><th>Town</th><th>Boats</th></tr><tr><td>Kiel</td><td></td><td>3</td></tr></table>",
          "Town | Boats\nKiel |  | 3\n"},
         {"<table><tr><td><p>left</p><p>more</p></td><td><p>right</p></td></tr></table>", "left\n\nmore\n\nright\n"},
         {"a<hr>b", "a\n\n" + std::string(72, '-') + "\n\nb\n"},
         {"<dl><dt>Buoy</dt><dd>floats</dd></dl>", "Buoy\n    floats\n"}});
}

TEST(HtmlToText, Links) {
    ExpectTexts({{"<a href='http://a.example/x'>here</a>!", "here (http://a.example/x)!\n"},
                 {"<a href='http://a.example/'>A.example</a>", "A.example\n"},
                 {"<a href='mailto:a@b.example'>a@b.example</a>", "a@b.example\n"},
                 {"<a href='http://a.example/\n y z'><img src=x alt=''></a>", "http://a.example/%20y%20z\n"},
                 {"<a href='#top'>up</a><a href='javascript:x()'> run</a>", "up run\n"},
                 {"<a href=\"http://a.example/?a=1&amp;b=2\">q</a>", "q (http://a.example/?a=1&b=2)\n"},
                 {"<img src=x alt=\"The 'Gull'\">", "The 'Gull'\n"},
                 {"see " + Repeat("http://host.example/", 6), "see\n" + Repeat("http://host.example/", 6) + "\n"}});
}

TEST(HtmlToText, HiddenAndStrangeThings) {
    ExpectTexts(
        {{"<head><title>T</title><style>p{}</style></head><body><!-- no --><script>if(a<b)x()</script>yes", "yes\n"},
         {"<style>a</style>one<STYLE>b</STYLE>two", "onetwo\n"},
         {"a & b &amp; &lt;c&gt; &unknown; 1 < 2", "a & b & <c> &unknown; 1 < 2\n"},
         {"<p>&nbsp;&nbsp;in&nbsp;side &nbsp; x</p>", "  in side   x\n"},
         {"<p>a<p>b</div></td></blockquote>c", "a\n\nbc\n"},
         {std::string("a\0b\x01"
                      "c",
                      5),
          "a b c\n"},
         {"<p", ""},
         {"x <", "x <\n"}});
}

TEST(HtmlToText, Encodings) {
    ExpectTexts({{"M\xC3\xB6we &eacute; &#8364; &rsquo;", "M\xC3\xB6we \xC3\xA9 \xE2\x82\xAC \xE2\x80\x99\n"},
                 {"M\xF6we &eacute; &#8364; &rsquo; \x93 &#1078;", "M\xF6we \xE9 EUR ' \x93 &#1078;\n"},
                 {"caf&eacute; &#146;", "caf\xC3\xA9 \xE2\x80\x99\n"},
                 {"<meta charset='utf-16'><meta http-equiv=Content-Type content='text/html; "
                  "charset=koi8-r'>\xC3\xA9",
                  "\xC3\xA9\n"},
                 {"\xEF\xBB\xBFx", "x\n"}});
}

TEST(HtmlToText, WrapsAtBlanksByCharacters) {
    const std::string words = Repeat("\xC3\xA9\xC3\xA9\xC3\xA9 ", 60);
    const std::string text = HtmlToText("<blockquote>" + words + "</blockquote>");
    for (const std::string_view line : Split(TrimRight(text), '\n')) {
        EXPECT_TRUE(line.starts_with("> \xC3\xA9")) << line;
        EXPECT_LE(line.size(), 2 + 74 * 2u);
    }
    EXPECT_EQ(Split(text, '\n').size(), 5u);  // 18 words of 4 columns fit
}

TEST(HtmlToText, KeepsEveryWordOfALongText) {
    std::string html = "<p>";
    for (int i = 0; i < 50000; ++i)
        html += "w" + std::to_string(i) + (i % 7 == 0 ? " \xE2\x82\xAC" : " ");
    std::string expected = html.substr(3);
    std::string text = HtmlToText(html);
    ReplaceAll(text, "\n", " ");
    EXPECT_EQ(TrimRight(text), TrimRight(expected));
}

// None of these may take the time or the stack that a simple-minded parser would need.
TEST(HtmlToText, StandsHostileDocuments) {
    const std::array<std::string, 5> documents = {
        Repeat("<div>", 200000) + "x" + Repeat("</b>", 200000), Repeat("<blockquote>", 900) + "x<p>y",
        "<p " + Repeat("a=1 ", 300000) + ">x", Repeat("<a href='y'>", 100000) + "x", Repeat("<!-- ", 100000) + "x"};
    for (const std::string& html : documents) {
        const std::string text = HtmlToText(html);
        EXPECT_LT(text.size(), html.size());
        EXPECT_EQ(text.find('x') != std::string::npos, html.find("<!--") == std::string::npos);
    }
}

TEST(TextToHtml, EscapesBreaksAndLinks) {
    const std::array<Conversion, 11> cases = {{
        {"a<br>\r\nb<br>\r\n", "a\nb"},
        {"a<br>\r\n<br>\r\nb<br>\r\n", "a\r\n\r\nb\r\n"},
        {"1 &lt; 2 &amp; &quot;x&quot;<br>\r\n", "1 < 2 & \"x\""},
        {"&nbsp;&nbsp;in a&nbsp; b<br>\r\n", "  in a  b  "},
        {"&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;&nbsp;x<br>\r\n", "\tx"},
        {"(<a href=\"http://a.example/(b)?c&amp;d\">http://a.example/(b)?c&amp;d</a>).<br>\r\n",
         "(http://a.example/(b)?c&d)."},
        {"<a href=\"http://www.a.example\">www.a.example</a>, x<br>\r\n", "www.a.example, x"},
        {"&lt;<a href=\"mailto:o'neill@b.example\">o'neill@b.example</a>&gt;<br>\r\n", "<o'neill@b.example>"},
        {"a@b @c. xhttp://y http://<br>\r\n", "a@b @c. xhttp://y http://"},
        {"<a href=\"mailto:a.b@c.example\">mailto:a.b@c.example</a><br>\r\n", "mailto:a.b@c.example"},
        {"", ""},
    }};
    for (const Conversion& c : cases) {
        const std::string expected = "<html>\r\n<head></head>\r\n<body>\r\n" + c.html + "</body>\r\n</html>\r\n";
        EXPECT_EQ(TextToHtml(c.text), expected) << c.text;
    }
}

TEST(TextToHtml, ReadBackGivesTheText) {
    const std::string text =
        "Dear <you> & \"me\",\n\n  indented  twice\nhttp://a.example/?x=1&y=2\na@b.example\n-- \xE4\n";
    EXPECT_EQ(HtmlToText(TextToHtml(text)), text);
}

TEST(Entities, Decode) {
    const std::array<Conversion, 12> cases = {{
        {"&lt;&gt;&amp;&quot;&apos;", "<>&\"'"},
        {"&amp;lt;", "&lt;"},
        {"&copy=1&copy &nosuch; &; &#; &#x; &#xD800; &#1114112;",
         "&copy=1&copy &nosuch; &; &#; &#x; &#xD800; &#1114112;"},
        {"&#65;&#x41;&#X1F600;", "AA\xF0\x9F\x98\x80"},
        {"&#0;&#27;&#9;", "&#0;&#27;\t"},
        {"&Eacute;&eacute;&nbsp;", "\xC3\x89\xC3\xA9\xC2\xA0"},
        {"&euro;\xE4&euml;", "EUR\xE4\xEB"},
        {"\xE4&Omega;x", "\xE4&Omega;x"},
        {"\xC3\xA4&euml;", "\xC3\xA4\xC3\xAB"},
        {"&#150;", "\xE2\x80\x93"},
        {"&&amp;&", "&&&"},
        {"&thetasym;", "\xCF\x91"},
    }};
    for (const Conversion& c : cases)
        EXPECT_EQ(DecodeEntities(c.html), c.text) << c.html;
}

TEST(Entities, DecodeUndoesEncode) {
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    for (const std::string& text : {bytes, std::string("&amp; &lt;\"<>&&;\xC3\xA4"), std::string("&#38;")}) {
        EXPECT_EQ(DecodeEntities(EncodeEntities(text)), text);
    }
}

}  // namespace
