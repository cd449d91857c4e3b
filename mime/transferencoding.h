// transferencoding.h - Base64 and quoted-printable (RFC 2045 sections 6.7, 6.8).
//
// The coders take their input in pieces of any size and give the same output
// for every cutting.  The output iterator is returned moved on; the output of
// n input characters and Finish() together is at most MaxOutput(n) characters.
//
// Errors   None.  Bad input yields less output.

#ifndef LISTHAVEN_MIME_TRANSFERENCODING_H
#define LISTHAVEN_MIME_TRANSFERENCODING_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace CoderTables {

inline constexpr char Base64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
inline constexpr char HexDigits[] = "0123456789ABCDEF";
inline constexpr std::uint8_t Invalid = 127;

extern const std::array<std::uint8_t, 256> Base64Values;  // Invalid for other characters
extern const std::array<std::uint8_t, 256> HexValues;     // likewise
extern const std::array<bool, 256> QpLiteral;             // written as they are, but for a dot that opens a line

}  // namespace CoderTables

template <class In, class Out>
class MimeCoder {
public:
    virtual Out Process(In begin, In end, Out out) = 0;
    virtual Out Finish(Out out) = 0;

protected:
    MimeCoder() = default;
    MimeCoder(const MimeCoder&) = default;
    MimeCoder& operator=(const MimeCoder&) = default;
    ~MimeCoder() = default;

    // Whole runs can be handled at once.
    static constexpr bool IsPlain = std::is_same_v<In, const char*> && std::is_same_v<Out, char*>;
};

// Lines of 72 characters; a full line ends with CR LF at once, the last one not.
template <class In, class Out>
class Base64Encoder final : public MimeCoder<In, Out> {
public:
    static constexpr std::size_t MaxOutput(std::size_t size) noexcept { return (size + 4) / 3 * 4 + size / 27 + 4; }

    Out Encode(In begin, In end, Out out) { return Process(begin, end, out); }

    Out Process(In begin, In end, Out out) override {
        for (; m_count != 0 && begin != end; ++begin)
            out = Put(static_cast<std::uint8_t>(*begin), out);
        if constexpr (MimeCoder<In, Out>::IsPlain) {
            while (end - begin >= 3)
                out = PutLine(begin, end, out);
        }
        for (; begin != end; ++begin)
            out = Put(static_cast<std::uint8_t>(*begin), out);
        return out;
    }

    Out Finish(Out out) override {
        if (m_count == 0) return out;
        const std::uint8_t second = m_count == 2 ? m_pending[1] : std::uint8_t{0};
        *out++ = CoderTables::Base64Alphabet[m_pending[0] >> 2];
        *out++ = CoderTables::Base64Alphabet[(m_pending[0] & 3) << 4 | second >> 4];
        *out++ = m_count == 2 ? CoderTables::Base64Alphabet[(second & 15) << 2] : '=';
        *out++ = '=';
        m_count = 0;
        return out;
    }

private:
    static constexpr int LineLength = 72;

    static Out PutGroup(std::uint8_t a, std::uint8_t b, std::uint8_t c, Out out) {
        *out++ = CoderTables::Base64Alphabet[a >> 2];
        *out++ = CoderTables::Base64Alphabet[(a & 3) << 4 | b >> 4];
        *out++ = CoderTables::Base64Alphabet[(b & 15) << 2 | c >> 6];
        *out++ = CoderTables::Base64Alphabet[c & 63];
        return out;
    }

    Out EndGroups(int groups, Out out) {
        m_line += groups * 4;
        if (m_line < LineLength) return out;
        m_line = 0;
        *out++ = '\r';
        *out++ = '\n';
        return out;
    }

    Out Put(std::uint8_t byte, Out out) {
        m_pending[m_count++] = byte;
        if (m_count < 3) return out;
        m_count = 0;
        return EndGroups(1, PutGroup(m_pending[0], m_pending[1], m_pending[2], out));
    }

    Out PutLine(In& begin, In end, Out out) {
        const auto groups = std::min<std::ptrdiff_t>((end - begin) / 3, (LineLength - m_line) / 4);
        for (std::ptrdiff_t i = 0; i < groups; ++i, begin += 3)
            out = PutGroup(static_cast<std::uint8_t>(begin[0]), static_cast<std::uint8_t>(begin[1]),
                           static_cast<std::uint8_t>(begin[2]), out);
        return EndGroups(static_cast<int>(groups), out);
    }

    int m_line = 0;
    std::size_t m_count = 0;
    std::array<std::uint8_t, 3> m_pending{};
};

// Skips what does not belong there; goes on behind a padding.
template <class In, class Out>
class Base64Decoder final : public MimeCoder<In, Out> {
public:
    static constexpr std::size_t MaxOutput(std::size_t size) noexcept { return (size + 3) / 4 * 3; }

    Out Decode(In begin, In end, Out out) { return Process(begin, end, out); }

    Out Process(In begin, In end, Out out) override {
        while (begin != end) {
            if constexpr (MimeCoder<In, Out>::IsPlain) {
                if (m_count == 0 && !m_ended) out = TakeGroups(begin, end, out);
                if (begin == end) break;
            }
            out = Take(*begin, out);
            ++begin;
        }
        return out;
    }

    Out Finish(Out out) override {
        m_count = 0;
        return out;
    }

    std::size_t GetErrorCount() const noexcept { return m_errors; }

private:
    static std::uint8_t Value(char c) noexcept { return CoderTables::Base64Values[static_cast<std::uint8_t>(c)]; }

    static Out TakeGroups(In& begin, In end, Out out) {
        while (end - begin >= 4) {
            const unsigned a = Value(begin[0]);
            const unsigned b = Value(begin[1]);
            const unsigned c = Value(begin[2]);
            const unsigned d = Value(begin[3]);
            if (((a | b | c | d) & 64) != 0) break;
            const unsigned bits = a << 18 | b << 12 | c << 6 | d;
            out[0] = static_cast<char>(bits >> 16);
            out[1] = static_cast<char>(bits >> 8);
            out[2] = static_cast<char>(bits);
            begin += 4;
            out += 3;
        }
        return out;
    }

    Out Take(char c, Out out) {
        if (Value(c) == CoderTables::Invalid && c != '=') {
            if (c != '\r' && c != '\n') ++m_errors;
            return out;
        }
        m_pending[m_count++] = c;
        if (m_count < 4) return out;
        m_count = 0;
        return TakeGroup(out);
    }

    Out TakeGroup(Out out) {
        if (m_ended) {
            m_ended = false;
            ++m_errors;
        }
        if (m_pending[0] == '=' || m_pending[1] == '=') {
            ++m_errors;
            return out;
        }
        const unsigned b = Value(m_pending[1]);
        *out++ = static_cast<char>(Value(m_pending[0]) * 4u | b >> 4);
        if (m_pending[2] == '=') {
            if (m_pending[3] == '=')
                m_ended = true;
            else
                ++m_errors;
            return out;
        }
        const unsigned c = Value(m_pending[2]);
        *out++ = static_cast<char>(b << 4 | c >> 2);
        if (m_pending[3] == '=')
            m_ended = true;
        else
            *out++ = static_cast<char>(c << 6 | Value(m_pending[3]));
        return out;
    }

    std::size_t m_count = 0;
    std::size_t m_errors = 0;
    bool m_ended = false;
    std::array<char, 4> m_pending{};
};

// Lines of at most 76 characters.  A CR without LF disappears.
template <class In, class Out>
class QpEncoder final : public MimeCoder<In, Out> {
public:
    static constexpr std::size_t MaxOutput(std::size_t size) noexcept { return size * 4 + size / 8 + 8; }

    Out Encode(In begin, In end, Out out) { return Process(begin, end, out); }

    Out Process(In begin, In end, Out out) override {
        while (begin != end) {
            if constexpr (MimeCoder<In, Out>::IsPlain) {
                out = PutRun(begin, end, out);
                if (begin == end) break;
            }
            out = Put(*begin, out);
            ++begin;
        }
        return out;
    }

    Out Finish(Out out) override {
        if (m_line != 0) out = BreakSoftly(out);
        return out;
    }

    bool IsLineOpen() const noexcept { return m_line != 0; }  // Finish() will write two characters

private:
    static constexpr int MaxLine = 72;
    static constexpr char NoCharacter = 'x';  // counts as no white space and no line end

    static bool IsLiteral(char c) noexcept { return CoderTables::QpLiteral[static_cast<std::uint8_t>(c)]; }

    Out BreakSoftly(Out out) {
        *out++ = '=';
        *out++ = '\n';
        m_previous = '\n';
        m_line = 0;
        return out;
    }

    Out PutRun(In& begin, In end, Out out) {
        if (m_line == 0 && *begin == '.') return out;
        const In last = begin + std::min<std::ptrdiff_t>(end - begin, MaxLine + 1 - m_line);
        In next = begin;
        while (next != last && IsLiteral(*next))
            *out++ = *next++;
        if (next == begin) return out;
        m_line += static_cast<int>(next - begin);
        m_previous = next[-1];
        begin = next;
        return m_line > MaxLine ? BreakSoftly(out) : out;
    }

    Out PutLineEnd(char c, Out out) {
        const bool isBlankBefore = m_previous == ' ' || m_previous == '\t';
        if (isBlankBefore) *out++ = '=';
        if (c == '\r') {
            if (isBlankBefore) {
                *out++ = '\r';
                *out++ = '\n';
            }
        } else {
            if (isBlankBefore) *out++ = '\n';
            if (m_previous == '\r') *out++ = '\r';
            *out++ = '\n';
        }
        m_previous = c;
        m_line = 0;
        return out;
    }

    Out Put(char c, Out out) {
        if (c == '\r' || c == '\n') return PutLineEnd(c, out);
        if (IsLiteral(c) && !(c == '.' && m_line == 0)) {
            *out++ = c;
            m_previous = c;
            ++m_line;
        } else {
            const auto byte = static_cast<std::uint8_t>(c);
            *out++ = '=';
            *out++ = CoderTables::HexDigits[byte >> 4];
            *out++ = CoderTables::HexDigits[byte & 15];
            m_previous = NoCharacter;
            m_line += 3;
        }
        return m_line > MaxLine ? BreakSoftly(out) : out;
    }

    int m_line = 0;
    char m_previous = NoCharacter;
};

// Escapes of other than hex digits give some byte; an escaped CR gives none.
template <class In, class Out>
class QpDecoder final : public MimeCoder<In, Out> {
public:
    static constexpr std::size_t MaxOutput(std::size_t size) noexcept { return size; }

    Out Decode(In begin, In end, Out out) { return Process(begin, end, out); }

    Out Process(In begin, In end, Out out) override {
        while (begin != end) {
            if constexpr (MimeCoder<In, Out>::IsPlain) {
                if (!m_isOpen) {
                    const In next = std::find(begin, end, '=');
                    out = std::copy(begin, next, out);
                    begin = next;
                    if (begin == end) break;
                }
            }
            out = Take(*begin, out);
            ++begin;
        }
        return out;
    }

    Out Finish(Out out) override {
        m_isOpen = false;
        m_hasFirst = false;
        return out;
    }

private:
    Out Take(char c, Out out) {
        if (!m_isOpen) {
            if (c == '=')
                m_isOpen = true;
            else
                *out++ = c;
            return out;
        }
        if (c == '\n') return Finish(out);
        if (!m_hasFirst) {
            m_first = c;
            m_hasFirst = true;
            return out;
        }
        const unsigned byte = CoderTables::HexValues[static_cast<std::uint8_t>(m_first)] * 16u |
                              CoderTables::HexValues[static_cast<std::uint8_t>(c)];
        if ((byte & 255) != '\r') *out++ = static_cast<char>(byte & 255);
        return Finish(out);
    }

    bool m_isOpen = false;
    bool m_hasFirst = false;
    char m_first = 0;
};

void EncodeBase64(const char* begin, const char* end, std::string& out);     // appends; lines end with CR LF
void DecodeBase64(std::string_view text, std::vector<std::uint8_t>& bytes);  // appends
std::string DecodeBase64Text(std::string_view text);                         // all bytes, zeros too
std::string EncodeQuotedPrintable(std::string_view text);
std::string DecodeQuotedPrintable(std::string_view text);

// Goes on with a text whose first part the coder has encoded; without Finish().
void AppendQuotedPrintable(QpEncoder<const char*, char*>& coder, std::string_view text, std::string& out);

#endif  // LISTHAVEN_MIME_TRANSFERENCODING_H
