#include "engine/copypattern.h"

#include "engine/addressline.h"
#include "engine/expandmessage.h"
#include "mime/mimemultipart.h"
#include "mime/mimewalk.h"
#include "platform/guid.h"
#include "utility/formattext.h"

namespace {

std::string NewMarker() {
    const Platform::Guid guid = Platform::NewGuid();
    return FormatText("part-%08x%04x%04x-", static_cast<unsigned>(guid.data1), static_cast<unsigned>(guid.data2),
                      static_cast<unsigned>(guid.data3));
}

// The form in which the header keeps a decoded value of one line.
std::string StoredForm(const std::string& name, const std::string& value) {
    CMimeHeader header;
    header.AddField(name, "-");
    StoreHeaderValue(header, 0, value);
    return header.GetStoredField(0).value;
}

void RemoveAllFields(CMimeHeader& header) {
    while (header.GetFieldCount() > 0)
        header.RemoveFieldAt(header.GetFieldCount() - 1);
}

bool IsStructural(std::string_view name) noexcept {
    return EqualNoCase(name, "Content-Type") || EqualNoCase(name, "Content-Transfer-Encoding") ||
           EqualNoCase(name, "Content-Disposition");
}

}  // namespace

bool CCopyPattern::Take(const CMimeMessage& message, const Replaced& replaced) {
    m_header.clear();
    m_parts.clear();
    const CMimeHeader& header = message.GetRoot()->GetHeader();
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        if (IsStructural(header.GetStoredField(i).name) && HoldsDataField(header.DecodeField(i))) return false;
    }
    if (!TakeBody(message)) return false;
    TakeHeader(message, replaced);
    return true;
}

void CCopyPattern::TakeHeader(const CMimeMessage& message, const Replaced& replaced) {
    const CMimeHeader& header = message.GetRoot()->GetHeader();
    std::map<std::string, bool, CLessNoCase> seen;
    bool hasSubject = false;
    bool hasEncoding = false;
    for (std::size_t i = 0; i < header.GetFieldCount(); ++i) {
        const CMimeField& field = header.GetStoredField(i);
        const bool isFirst = seen.emplace(field.name, true).second;
        Line line{Line::Kind::Constant, field.name, field.value, header.DecodeField(i), {}, {}, {}, true};
        if (isFirst && replaced.count(field.name) != 0) {
            line.kind = Line::Kind::Replaced;
        } else if (isFirst && m_rootIsText && EqualNoCase(field.name, "Content-Transfer-Encoding")) {
            line.kind = Line::Kind::Encoding;
            hasEncoding = true;
        } else if (HoldsDataField(line.decoded)) {
            line.kind = Line::Kind::Expanded;
            line.value = CDataFieldText(line.decoded);
            line.unexpanded = line.decoded;
            line.unchanged = line.stored;
        }
        if (isFirst && EqualNoCase(field.name, "Subject")) {
            m_subject = m_header.size();
            hasSubject = true;
        }
        m_header.push_back(std::move(line));
    }
    if (m_rootIsText && !hasEncoding) {
        m_header.push_back({Line::Kind::Encoding, "Content-Transfer-Encoding", {}, {}, {}, {}, {}, true});
    }
    if (!hasSubject) {
        m_subject = m_header.size();
        m_header.push_back({Line::Kind::Constant, "Subject", {}, {}, {}, {}, {}, false});
    }
}

// Serialises the tree with a marker in place of each text that has references,
// and takes the result apart at the markers.
bool CCopyPattern::TakeBody(const CMimeMessage& message) {
    CMimeMessage marked = message.Clone();
    const std::string marker = NewMarker();
    m_rootIsText = false;
    for (CMimeText* entity : CollectTextEntities(*marked.GetRoot())) {
        const std::string text = entity->GetBody();
        if (!HoldsDataField(text)) continue;
        m_parts.push_back({"", CPreparedText(*entity)});
        m_rootIsText = entity == marked.GetRoot().get();
        entity->SetBody(marker + std::to_string(m_parts.size()));
        if (!m_rootIsText) RemoveAllFields(entity->GetHeader());
    }
    std::string text = marked.GetText();
    const std::string header = marked.GetRoot()->GetHeader().GetText();
    if (text.compare(0, header.size() + 1, header + "\n") != 0) return false;
    std::size_t position = header.size() + 1;
    for (std::size_t i = 0; i < m_parts.size(); ++i) {
        const std::string what = (m_rootIsText ? "" : "\n") + marker + std::to_string(i + 1);
        const std::size_t found = text.find(what, position);
        if (found == std::string::npos) return false;
        m_parts[i].before = LfToCrLf(std::string_view(text).substr(position, found - position));
        position = found + what.size();
    }
    text.erase(0, position);
    MakeCrLf(text);
    m_end = std::move(text);
    return true;
}

void CCopyPattern::Expand(const Replaced& replaced) {
    CDataFieldExpansion plain(false);
    CDataFieldExpansion html(true);
    for (Part& part : m_parts)
        part.text.Expand(part.text.IsHtml() ? html : plain);
    for (Line& line : m_header) {
        if (line.kind == Line::Kind::Replaced) {
            line.stored = replaced.find(line.name)->second;
        } else if (line.kind == Line::Kind::Encoding) {
            line.stored = m_parts.front().text.IsQuotedPrintable() ? "quoted-printable" : "7bit";
        } else if (line.kind == Line::Kind::Expanded) {
            line.decoded.clear();
            plain.Append(line.decoded, line.value);
            line.decoded = OneLine(line.decoded);
            line.isThere = !line.decoded.empty();
            if (line.decoded == line.unexpanded) {
                line.stored = line.unchanged;
            } else {
                line.stored = StoredForm(line.name, line.decoded);
            }
        }
    }
}

const std::string& CCopyPattern::GetSubject() const {
    return m_header[m_subject].decoded;
}

void CCopyPattern::SetSubject(const std::string& decodedSubject) {
    m_header[m_subject].isThere = true;
    m_header[m_subject].stored = StoredForm("Subject", decodedSubject);
}

void CCopyPattern::AppendTo(std::string& result) const {
    std::size_t size = m_end.size();
    for (const Part& part : m_parts)
        size += part.before.size();
    result.reserve(result.size() + size + size / 8 + 1024);  // to grow would be to have it twice
    for (const Line& line : m_header) {
        if (!line.isThere) continue;
        result.append(line.name).append(": ");
        if (line.stored.find('\n') == std::string::npos) {
            result.append(line.stored);
        } else {
            result.append(LfToCrLf(line.stored));
        }
        result.append("\r\n");
    }
    result.append("\r\n");
    for (const Part& part : m_parts) {
        result.append(part.before);
        if (m_rootIsText) {
            part.text.AppendBody(result);
        } else {
            part.text.AppendEntity(result);
        }
    }
    result.append(m_end);
}
