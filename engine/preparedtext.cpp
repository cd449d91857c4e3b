#include "engine/preparedtext.h"

#include <algorithm>

#include "mime/transferencoding.h"
#include "utility/text.h"

namespace {

constexpr std::size_t LongLine = 72;  // characters; from here on a text is quoted-printable

bool HasLongLine(std::string_view text) noexcept {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        if (end - start >= LongLine) {  // unless a CR parts it
            std::size_t length = 0;
            for (const char c : text.substr(start, end - start)) {
                length = c == '\r' ? 0 : length + 1;
                if (length >= LongLine) return true;
            }
        }
        start = end + 1;
    }
    return false;
}

std::string HeaderWith(const CMimeText& entity, const char* encoding) {
    CMimeHeader header = entity.GetHeader();
    header.SetField("Content-Transfer-Encoding", encoding);
    return LfToCrLf(header.GetText() + "\n");
}

// Every LF gets a CR in front.
void AppendWithCr(std::string& result, std::string_view text) {
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            result.append(text.substr(start));
            return;
        }
        result.append(text.substr(start, end - start)).append("\r\n");
        start = end + 1;
    }
}

void AppendPlain(std::string& result, std::string_view text) {
    if (text.find('\r') == std::string_view::npos) {
        AppendWithCr(result, text);
    } else {
        AppendWithCr(result, CrLfToLf(text));
    }
}

void AppendQuoted(std::string& result, std::string_view text) {
    using Encoder = QpEncoder<const char*, char*>;
    char buffer[1024];
    if (Encoder::MaxOutput(text.size()) > sizeof(buffer)) {
        AppendWithCr(result, EncodeQuotedPrintable(text));
        return;
    }
    Encoder encoder;
    char* end = encoder.Process(text.data(), text.data() + text.size(), buffer);
    end = encoder.Finish(end);
    AppendWithCr(result, std::string_view(buffer, static_cast<std::size_t>(end - buffer)));
}

}  // namespace

CPreparedText::CPreparedText(const CMimeText& entity)
    : m_isHtml(EqualNoCase(entity.GetSubType(), "html")),
      m_plainHeader(HeaderWith(entity, "7bit")),
      m_quotedHeader(HeaderWith(entity, "quoted-printable")) {
    const std::string text = entity.GetBody();
    const std::string_view rest = text;
    std::size_t runStart = 0;  // of the run without references that is being collected
    std::size_t position = 0;
    const auto addPlain = [&](std::size_t end) {
        if (end == runStart) return;
        const std::string_view lines = rest.substr(runStart, end - runStart);
        Run& run = m_runs.emplace_back();
        AppendPlain(run.plain, lines);
        AppendQuoted(run.quoted, lines);
        m_hasLongLine |= HasLongLine(lines);
    };
    for (;;) {
        const std::size_t start = rest.find("$(", position);
        const std::size_t close = start == std::string_view::npos ? start : rest.find(')', start);
        if (close == std::string_view::npos) break;
        const std::size_t before = start == 0 ? std::string_view::npos : rest.rfind('\n', start - 1);
        const std::size_t lineStart = before == std::string_view::npos ? 0 : before + 1;
        addPlain(lineStart);
        std::size_t lineEnd = close + 1;
        // A reference may open in the line in which another one ends.  The end of
        // the line is looked for once: it can be long, and hold many.
        std::size_t end = 0;
        for (;;) {
            if (lineEnd > end) end = std::min(rest.find('\n', lineEnd), rest.size() - 1) + 1;
            const std::size_t next = rest.find("$(", lineEnd);
            const std::size_t nextClose = next < end ? rest.find(')', next) : std::string_view::npos;
            if (nextClose == std::string_view::npos) {
                lineEnd = end;
                break;
            }
            lineEnd = nextClose + 1;
        }
        Run& run = m_runs.emplace_back();
        run.text = CDataFieldText(rest.substr(lineStart, lineEnd - lineStart));
        run.hasReferences = true;
        runStart = position = lineEnd;
    }
    addPlain(rest.size());
}

void CPreparedText::Expand(CDataFieldExpansion& expansion) {
    m_isQuoted = m_hasLongLine;
    for (Run& run : m_runs) {
        if (!run.hasReferences) continue;
        run.expanded.clear();
        expansion.Append(run.expanded, run.text);
        m_isQuoted = m_isQuoted || HasLongLine(run.expanded);
    }
}

void CPreparedText::AppendEntity(std::string& result) const {
    result.append(m_isQuoted ? m_quotedHeader : m_plainHeader);
    AppendBody(result);
}

void CPreparedText::AppendBody(std::string& result) const {
    for (const Run& run : m_runs) {
        if (!run.hasReferences) {
            result.append(m_isQuoted ? run.quoted : run.plain);
        } else if (m_isQuoted) {
            AppendQuoted(result, run.expanded);
        } else {
            AppendPlain(result, run.expanded);
        }
    }
}
