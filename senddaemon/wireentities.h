// wireentities.h - follows the entities of a message line by line.
//
// A multipart is split at its delimiters: whole lines, blanks at their end
// allowed; where two multiparts share a boundary the outer one has it.  The
// message in a message/rfc822 is an entity of its own, unless it is encoded.
// Entities are numbered from 0, the message itself, in the order of the text.
//
// Threads  One at a time.
// Source   RFC 2046 (5.1, 5.2.1).

#ifndef LISTHAVEN_SENDDAEMON_WIREENTITIES_H
#define LISTHAVEN_SENDDAEMON_WIREENTITIES_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "senddaemon/wirelines.h"

namespace SendDaemon {

enum class WireEncoding { None, SevenBit, EightBit, Binary, QuotedPrintable, Base64, Other };

struct CWireEntity {
    std::size_t number = 0;
    WireEncoding encoding = WireEncoding::None;
    bool isComposite = false;  // by its type it holds other entities
    bool isDigest = false;     // whose parts are messages when they do not say otherwise
    bool isContainer = false;  // and is looked into
    std::string boundary;

    bool IsEncoded() const noexcept {
        return encoding == WireEncoding::QuotedPrintable || encoding == WireEncoding::Base64;
    }
};

class CEntityWalk {
public:
    static constexpr std::size_t MaxDepth = 100;  // what is nested deeper is not split

    enum class Role {
        Header,     // goes to GetHeader()
        HeaderEnd,  // the empty line, or the first line that is too much for a header; GetEntity() is new
        Text,       // of GetEntity()
        Delimiter,  // TookHeader() tells whether a header ended there
    };

    explicit CEntityWalk(std::string_view header);  // of the message

    Role Take(const CWireLine& line);

    const CWireEntity& GetEntity() const noexcept { return m_entity; }
    const std::string& GetHeader() const noexcept { return m_header; }         // the last one; lines end with CR LF
    bool TookHeader() const noexcept { return m_tookHeader || m_isInHeader; }  // which has no empty line (so far)
    bool IsHeaderTooLarge() const noexcept { return m_header.size() > CMessageReader::LargestHeader; }

    // What the current text is in, outermost first; a multipart is in itself up to its last delimiter.
    const std::vector<CWireEntity>& GetContainers() const noexcept { return m_containers; }

private:
    bool TakeDelimiter(std::string_view line);
    void OpenEntity(std::string_view header);

    CWireEntity m_entity;
    std::vector<CWireEntity> m_containers;
    std::string m_header;
    std::size_t m_count = 0;
    bool m_isInHeader = false;
    bool m_tookHeader = false;
    bool m_isHeaderNext = false;
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_SENDDAEMON_WIREENTITIES_H
