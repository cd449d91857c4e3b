#include "senddaemon/wirebody.h"

#include <algorithm>

#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/text.h"

namespace SendDaemon {

namespace {

constexpr std::size_t WriteBlock = 256 * 1024;

// Of an entity, in what was read of it.
enum Trait : std::uint8_t {
    HighText = 1,    // its own text has bytes above 127
    HighInside = 2,  // what is in it has
    Unsendable = 4,  // its own text has a zero byte or a line that is too long
    HasParts = 8,    // something is in it
};

bool HasNul(std::string_view text) noexcept {
    return text.find('\0') != std::string_view::npos;
}

bool HasLongLine(std::string_view text) noexcept {
    while (text.size() > LongestWireLine) {
        const std::size_t lf = text.substr(0, LongestWireLine + 2).rfind('\n');
        if (lf == std::string_view::npos) return true;
        text.remove_prefix(lf + 1);
    }
    return false;
}

}  // namespace

bool CWireTarget::Create(std::string_view path) {
    // A new file: some systems write one to the disk at once when it was emptied before.
    if (m_file.Open(path, Platform::FileMode::CreateNew)) return true;
    if (Platform::IsAlreadyThere(Platform::LastSystemError()) && Platform::RemoveFile(path) &&
        m_file.Open(path, Platform::FileMode::CreateNew)) {
        return true;
    }
    SetLastErrorFromSystem();
    return false;
}

void CWireTarget::WriteBuffer() {
    if (!m_hasFailed && !m_file.Write(m_buffer)) {
        SetLastErrorFromSystem();
        m_hasFailed = true;
    }
    m_buffer.clear();
}

void CWireTarget::Put(std::string_view text) {
    m_size += text.size();
    if (m_buffer.size() + text.size() > WriteBlock) WriteBuffer();
    m_buffer += text;
}

bool CWireTarget::Finish() {
    if (!m_buffer.empty()) WriteBuffer();
    if (!m_hasFailed && !m_file.Close()) {
        SetLastErrorFromSystem();
        m_hasFailed = true;
    }
    return !m_hasFailed;
}

std::uint8_t& CBodyPlan::Traits(std::size_t number) {
    if (number >= m_traits.size()) m_traits.resize(number + 1);
    return m_traits[number];
}

void CBodyPlan::Note(const CEntityWalk& walk, const CWireLine& line, std::size_t column) {
    std::uint8_t& own = Traits(walk.GetEntity().number);
    if (column > LongestWireLine || HasNul(line.text)) own |= Unsendable;
    if (!HasHighBytes(line.text)) return;
    own |= HighText;
    for (const CWireEntity& container : walk.GetContainers())
        Traits(container.number) |= HighInside;
}

void CBodyPlan::NoteHeader(const CEntityWalk& walk) {
    if (!HasHighBytes(walk.GetHeader())) return;
    for (const CWireEntity& container : walk.GetContainers())
        Traits(container.number) |= HighInside;
}

void CBodyPlan::NoteContainer(const CWireEntity& entity) {
    if (entity.isContainer && entity.boundary.empty()) Traits(entity.number) |= HasParts;
}

bool CBodyPlan::Read(std::string_view header, CMessageReader& reader) {
    CEntityWalk walk(header);
    NoteContainer(walk.GetEntity());
    CWireLines lines(reader);
    CWireLine line;
    bool isAtEnd = false;
    std::size_t column = 0;
    while (lines.Next(line, isAtEnd)) {
        if (isAtEnd) {
            if (walk.TookHeader()) NoteHeader(walk);
            return true;
        }
        column = line.isStart ? line.text.size() : column + line.text.size();
        switch (walk.Take(line)) {
            case CEntityWalk::Role::Header:
                break;
            case CEntityWalk::Role::HeaderEnd:
                NoteHeader(walk);
                NoteContainer(walk.GetEntity());
                if (walk.IsHeaderTooLarge()) {
                    Note(walk, {.text = walk.GetHeader()}, HasLongLine(walk.GetHeader()) ? LongestWireLine + 1 : 0);
                    Note(walk, line, column);
                }
                break;
            case CEntityWalk::Role::Text:
                Note(walk, line, column);
                break;
            case CEntityWalk::Role::Delimiter:
                if (walk.TookHeader()) NoteHeader(walk);
                Traits(walk.GetEntity().number) |= HasParts;
                break;
        }
    }
    return false;
}

CEntityPlan CBodyPlan::For(const CWireEntity& entity) const {
    using Text = CEntityPlan::Text;
    const unsigned traits = entity.number < m_traits.size() ? m_traits[entity.number] : 0U;
    const bool isNamed = entity.encoding == WireEncoding::EightBit || entity.encoding == WireEncoding::Binary;
    const bool isUnnamed = entity.encoding == WireEncoding::None || entity.encoding == WireEncoding::SevenBit;
    const bool isHigh = (traits & HighText) != 0;
    const bool isRefused = (traits & Unsendable) != 0 || (isHigh && !m_has8BitMime);
    CEntityPlan plan;
    if (entity.isContainer && (traits & HasParts) != 0) {
        if (isRefused) plan.text = Text::Mend;
        if ((traits & (HighText | HighInside)) == 0) return plan;
        if (m_has8BitMime && isUnnamed) plan.encoding = "8bit";
        if (!m_has8BitMime && isNamed) plan.encoding = "7bit";
    } else if (entity.IsEncoded()) {
        if (isRefused) plan.text = entity.encoding == WireEncoding::Base64 ? Text::MendBase64 : Text::MendQuoted;
    } else if (isRefused) {
        plan = {.text = Text::Quote, .encoding = "quoted-printable", .becomesText = entity.isComposite};
    } else if (isHigh && isUnnamed) {
        plan.encoding = "8bit";
    }
    return plan;
}

void CBodyWriter::Put(std::string_view text) {
    m_hasHigh = m_hasHigh || SendDaemon::HasHighBytes(text);
    m_target.Put(text);
}

void CBodyWriter::PutQuoted(std::string_view text) {
    std::string quoted;
    AppendQuotedPrintable(m_coder, text, quoted);
    Put(LfToCrLf(quoted));
}

void CBodyWriter::PutMended(std::string_view text) {
    const bool isQuoted = m_entity.text == CEntityPlan::Text::MendQuoted;
    const bool isBase64 = m_entity.text == CEntityPlan::Text::MendBase64;
    std::string mended;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool isBad = byte == 0 || (byte > 127 && (!m_plan.Has8BitMime() || isBase64));
        if (isBad && isBase64) continue;
        if (m_column + 4 > LongestWireLine && m_escape == 0) {
            mended += isQuoted ? "=\r\n" : "\r\n";
            m_column = 0;
        }
        if (m_escape > 0) --m_escape;
        if (!isBad) {
            if (isQuoted && c == '=') m_escape = 2;
            mended += c;
            ++m_column;
        } else if (isQuoted) {
            mended.append({'=', CoderTables::HexDigits[byte >> 4], CoderTables::HexDigits[byte & 15]});
            m_column += 3;
        } else {
            mended += byte == 0 ? ' ' : '?';
            ++m_column;
        }
    }
    Put(mended);
}

void CBodyWriter::PutLine(const CWireLine& line) {
    if (line.isStart) m_column = m_escape = 0;
    if (m_entity.text == CEntityPlan::Text::Quote) {
        PutQuoted(line.text);
        if (line.isEnd) PutQuoted("\n");
        return;
    }
    if (m_entity.text == CEntityPlan::Text::Copy)
        Put(line.text);
    else
        PutMended(line.text);
    if (line.isEnd) Put("\r\n");
}

// Of a part; fields without fault go as they are.
void CBodyWriter::PutHeader(const std::string& header) {
    const bool isFaulty =
        (!m_plan.Has8BitMime() && SendDaemon::HasHighBytes(header)) || HasNul(header) || HasLongLine(header);
    if (!isFaulty && m_entity.encoding.empty()) {
        Put(header);
        return;
    }
    bool isCalled = m_entity.encoding.empty();
    bool isTyped = !m_entity.becomesText;
    for (const CWireField& field : SplitWireFields(header)) {
        std::string text;
        if (!m_entity.encoding.empty() && EqualNoCase(field.name, "Content-Transfer-Encoding")) {
            if (!isCalled) text.append(field.name).append(": ").append(m_entity.encoding).append("\r\n");
            isCalled = true;
        } else if (m_entity.becomesText && EqualNoCase(field.name, "Content-Type")) {
            if (!isTyped) text = "Content-Type: text/plain\r\n";
            isTyped = true;
        } else if (field.name.empty()) {
            text = AsciiOnly(OneLine(field.raw)) + "\r\n";
        } else {
            const std::size_t start = static_cast<std::size_t>(field.name.data() - header.data());
            const auto end = static_cast<std::size_t>(field.raw.data() + field.raw.size() - header.data());
            const std::string_view whole = std::string_view(header).substr(start, end - start);
            const bool isFieldFaulty =
                (!m_plan.Has8BitMime() && SendDaemon::HasHighBytes(whole)) || HasNul(whole) || HasLongLine(whole);
            if (isFieldFaulty)
                AppendWireField(AsciiOnly(OneLine(field.name)), field.raw, m_rules, text);
            else
                text.append(whole).append("\r\n");
        }
        Put(text);
    }
    if (!isTyped) Put("Content-Type: text/plain\r\n");
    if (!isCalled) Put("Content-Transfer-Encoding: " + std::string(m_entity.encoding) + "\r\n");
}

void CBodyWriter::PutHeaderEnd(const CEntityWalk& walk, const CWireLine& line) {
    m_entity = m_plan.For(walk.GetEntity());
    m_coder = {};
    if (!walk.IsHeaderTooLarge()) {
        PutHeader(walk.GetHeader());
        Put("\r\n");
        return;
    }
    for (const std::string_view text : Split(walk.GetHeader(), '\n')) {
        const bool isEnd = text.ends_with('\r');
        PutLine({.text = isEnd ? text.substr(0, text.size() - 1) : text, .isEnd = isEnd});
    }
    PutLine(line);
}

bool CBodyWriter::Write(std::string_view header, CMessageReader& reader) {
    CEntityWalk walk(header);
    m_entity = m_plan.For(walk.GetEntity());
    CWireLines lines(reader);
    CWireLine line;
    bool isAtEnd = false;
    bool isOpen = false;
    while (!m_target.HasFailed() && lines.Next(line, isAtEnd)) {
        if (isAtEnd) {
            const bool isHeader = walk.TookHeader();
            m_entity = isHeader ? CEntityPlan() : m_entity;
            if (isHeader) PutHeader(walk.GetHeader());
            if (isOpen) PutLine({.text = "", .isStart = false});
            return true;
        }
        isOpen = !line.isEnd;
        switch (walk.Take(line)) {
            case CEntityWalk::Role::Header:
                break;
            case CEntityWalk::Role::HeaderEnd:
                PutHeaderEnd(walk, line);
                break;
            case CEntityWalk::Role::Text:
                PutLine(line);
                break;
            case CEntityWalk::Role::Delimiter:
                m_entity = {};
                if (walk.TookHeader()) PutHeader(walk.GetHeader());
                m_entity = m_plan.For(walk.GetEntity());
                Put(line.text);
                Put("\r\n");
                isOpen = false;
                break;
        }
    }
    return false;
}

}  // namespace SendDaemon
