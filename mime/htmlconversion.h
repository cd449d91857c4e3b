// htmlconversion.h - HTML to plain text, plain text to HTML, and the character
// entities of HTML 4.
//
// Bytes stay in the encoding they come in: a text whose bytes above 127 are
// valid UTF-8 is UTF-8 and stays it, one with other bytes above 127 is taken
// for ISO-8859-1 and stays that, and what is written for an entity goes along.
// A text without such bytes gets UTF-8.  In an ISO-8859-1 text a character
// above 255 gets an ASCII stand-in where one is usual (quotes, dashes, dots,
// bullet, euro, trade mark); another one stays a reference.  What the text says
// of its own charset is not looked at.
//
// Errors   Nothing fails: any bytes give a text.  Throws std::bad_alloc, and
//          CLhvException for HTML of 1 GiB or more.
// Threads  Any.
// Source   HTML 4.01, 24 (entities).

#ifndef LISTHAVEN_MIME_HTMLCONVERSION_H
#define LISTHAVEN_MIME_HTMLCONVERSION_H

#include <string>
#include <string_view>

// Text with LF line ends, wrapped at 76 characters except where a word is
// longer (a URL is never broken); every line ends in LF, "" when nothing is
// visible.  Links become "text (URL)", or the URL alone when the text is the
// same; list items "* " or "1. "; a table row one line, its cells separated by
// " | "; quotations begin with "> "; images their alternative text.  Elements
// nested deeper than 1000 lose their layout, not their text.
std::string HtmlToText(std::string_view html);

// A whole document.  Line ends (LF or CR LF) become "<br>\r\n"; URLs and
// addresses become links; blanks at the start of a line and runs of blanks keep
// their width.
std::string TextToHtml(std::string_view text);

// "&", "<", ">" and the double quote, nothing else.
std::string EncodeEntities(std::string_view text);

// Once: "&amp;lt;" gives "&lt;".  References that are unknown, that lack the
// semicolon or that name a control character (TAB, LF and CR apart) stay.
std::string DecodeEntities(std::string_view text);

#endif  // LISTHAVEN_MIME_HTMLCONVERSION_H
