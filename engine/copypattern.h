// copypattern.h - a message of which only the data fields are still to be
// filled in, taken apart for many copies.
//
// The header lines, parts and lines of text without references are serialised
// once.  A copy made here has the same bytes as one whose tree was expanded
// (expandmessage.h) and written.
//
// Errors   CLhvException.
// Threads  One at a time in the process: the table of data fields is shared.

#ifndef LISTHAVEN_ENGINE_COPYPATTERN_H
#define LISTHAVEN_ENGINE_COPYPATTERN_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "engine/datafields.h"
#include "engine/preparedtext.h"
#include "mime/mimemessage.h"
#include "utility/text.h"

class CCopyPattern {
public:
    // Fields of the header that each copy gets anew: name, and the value as
    // stored.  What the message lacks of them is not added.
    using Replaced = std::map<std::string, std::string, CLessNoCase>;

    // False when the message has to be expanded as a whole: references stand
    // where they could change its structure.
    bool Take(const CMimeMessage& message, const Replaced& replaced);

    // Fills in; the rest goes by what this found until the next Expand().
    // replaced must have the names that Take() was given.
    void Expand(const Replaced& replaced);
    const std::string& GetSubject() const;               // decoded
    void SetSubject(const std::string& decodedSubject);  // for the copy that was expanded last

    void AppendTo(std::string& result) const;  // as it goes on disk (CR LF)

private:
    struct Line {
        enum class Kind { Constant, Replaced, Expanded, Encoding };
        Kind kind = Kind::Constant;
        std::string name;
        std::string stored;
        std::string decoded;
        CDataFieldText value;  // of an expanded line, and both forms of it
        std::string unexpanded;
        std::string unchanged;
        bool isThere = true;  // in this copy
    };
    struct Part {
        std::string before;  // constant, CR LF
        CPreparedText text;
    };

    bool TakeBody(const CMimeMessage& message);
    void TakeHeader(const CMimeMessage& message, const Replaced& replaced);

    std::vector<Line> m_header;
    std::size_t m_subject = 0;  // its line
    bool m_rootIsText = false;  // the only part is the root, and its header the one above
    std::vector<Part> m_parts;
    std::string m_end;
};

#endif  // LISTHAVEN_ENGINE_COPYPATTERN_H
