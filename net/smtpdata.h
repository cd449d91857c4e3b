// smtpdata.h - a message as it goes over the wire after DATA.
//
// Every line ends with CR LF.  A bare LF and a bare CR become CR LF, CR CR LF
// is one line end (the oldest of more CRs is a bare one), and a last line
// without end gets one: so no byte of a message can end it early, and none of
// it can be read as a command.  A dot at the start of a line is doubled.
//
// Errors   None.
// Threads  One at a time.
// Source   RFC 5321 (2.3.8, 4.1.1.4, 4.5.2).

#ifndef LISTHAVEN_NET_SMTPDATA_H
#define LISTHAVEN_NET_SMTPDATA_H

#include <string>
#include <string_view>

namespace Net {

class CSmtpDataEncoder {
public:
    void Add(std::string_view block, std::string& wire);  // appends; blocks may end anywhere
    void Finish(std::string& wire);  // the last line's end and the final "."; ready for the next message

private:
    void EndLine(std::string& wire);
    void EndBareLines(std::string& wire);
    void AddLineText(std::string_view text, std::string& wire);

    unsigned m_carriageReturns = 0;  // seen, not yet written; at most two
    bool m_isAtLineStart = true;
};

}  // namespace Net

#endif  // LISTHAVEN_NET_SMTPDATA_H
