// wirebody.h - the body of a message in the form in which it goes to a server.
//
// Text that cannot go as it is - bytes above 127 without 8BITMIME, zero bytes,
// lines of more than 998 octets - becomes quoted-printable, leaf by leaf; so
// does a multipart in which no delimiter is found, then as text/plain.  A leaf
// with bytes above 127 is called 8bit, and what it is in.  Of text that is
// encoded already such bytes are escaped (quoted-printable) or left out
// (base64), and long lines broken.  In front of the first part and behind the
// last one such bytes become '?' or a blank.  The rest goes byte for byte.
//
// Errors   false, with the reason in the last-error text.
// Threads  One at a time.
// Source   RFC 2045 (2.7, 2.8, 6), 6152.

#ifndef LISTHAVEN_SENDDAEMON_WIREBODY_H
#define LISTHAVEN_SENDDAEMON_WIREBODY_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "mime/transferencoding.h"
#include "platform/file.h"
#include "senddaemon/wireentities.h"
#include "senddaemon/wireheader.h"

namespace SendDaemon {

class CWireTarget {
public:
    bool Create(std::string_view path);
    void Put(std::string_view text);
    bool Finish();  // writes what is left; false when any write failed

    std::uint64_t GetSize() const noexcept { return m_size; }
    bool HasFailed() const noexcept { return m_hasFailed; }

private:
    void WriteBuffer();

    Platform::CFile m_file;
    std::string m_buffer;
    std::uint64_t m_size = 0;
    bool m_hasFailed = false;
};

struct CEntityPlan {
    enum class Text { Copy, Quote, MendQuoted, MendBase64, Mend };

    Text text = Text::Copy;
    std::string_view encoding;  // what it is called from now on; "": as it was
    bool becomesText = false;   // its type is text/plain from now on
};

class CBodyPlan {
public:
    explicit CBodyPlan(bool has8BitMime) : m_has8BitMime(has8BitMime) {}

    bool Read(std::string_view header, CMessageReader& reader);  // the whole body
    CEntityPlan For(const CWireEntity& entity) const;
    bool Has8BitMime() const noexcept { return m_has8BitMime; }

private:
    void Note(const CEntityWalk& walk, const CWireLine& line, std::size_t column);
    void NoteHeader(const CEntityWalk& walk);
    void NoteContainer(const CWireEntity& entity);  // a message has its content in any case
    std::uint8_t& Traits(std::size_t number);

    bool m_has8BitMime;
    std::vector<std::uint8_t> m_traits;  // by the number of the entity
};

class CBodyWriter {
public:
    CBodyWriter(const CBodyPlan& plan, CWireHeaderRules& rules, CWireTarget& target)
        : m_plan(plan), m_rules(rules), m_target(target) {}

    bool Write(std::string_view header, CMessageReader& reader);  // not the header itself
    bool HasHighBytes() const noexcept { return m_hasHigh; }      // what was written

private:
    void Put(std::string_view text);
    void PutLine(const CWireLine& line);
    void PutQuoted(std::string_view text);
    void PutMended(std::string_view text);
    void PutHeader(const std::string& header);
    void PutHeaderEnd(const CEntityWalk& walk, const CWireLine& line);

    const CBodyPlan& m_plan;
    CWireHeaderRules& m_rules;
    CWireTarget& m_target;
    CEntityPlan m_entity;
    QpEncoder<const char*, char*> m_coder;
    std::size_t m_column = 0;
    std::size_t m_escape = 0;  // characters of an escape that are still to come
    bool m_hasHigh = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_WIREBODY_H
