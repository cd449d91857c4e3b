// multipartsplit.h - cuts the body of a multipart at its delimiters (RFC 2046 section 5.1.1).
//
// A delimiter stands at the start of a line and has nothing but blanks behind
// it, so that the beginning of a longer boundary is none.  Linear in the text.

#ifndef LISTHAVEN_MIME_MULTIPARTSPLIT_H
#define LISTHAVEN_MIME_MULTIPARTSPLIT_H

#include <string_view>
#include <vector>

struct CMultipartPieces {  // all of them pieces of the body
    std::string_view preamble;
    std::vector<std::string_view> parts;
    std::string_view epilogue;
};

// False when there is no delimiter, when the text ends behind one that is not
// the closing one, and when a part of white space is followed by further parts.
// A last part without closing delimiter is taken.  Line ends are LF.
bool SplitMultipart(std::string_view body, std::string_view boundary, CMultipartPieces& pieces);

#endif  // LISTHAVEN_MIME_MULTIPARTSPLIT_H
