#include "mime/mimemultipart.h"

#include <algorithm>

#include "mime/createentity.h"
#include "mime/multipartsplit.h"
#include "platform/guid.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr std::string_view SourceName = "Shared/Mime/mimemultipart";
constexpr std::string_view BoundaryName = "boundary=";

bool IsBlank(std::string_view text) noexcept {
    return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

bool EndsBoundary(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 32 || byte == 127 || std::string_view("()<>@,;:\"/[]?=").find(c) != std::string_view::npos;
}

}  // namespace

std::string CMimeMultipart::BoundaryOf(std::string_view contentType) {
    const std::size_t semicolon = contentType.find(';');
    if (semicolon == std::string_view::npos) return {};
    const std::string_view parameters = Trim(contentType.substr(semicolon));
    const std::size_t at = FindNoCase(parameters, BoundaryName);
    if (at == std::string_view::npos) return {};
    std::string_view value = parameters.substr(at + BoundaryName.size());
    if (!value.empty() && value.front() == '"') {
        value.remove_prefix(1);
        value = value.substr(0, value.find('"'));
    } else {
        const auto end = std::find_if(value.begin(), value.end(), EndsBoundary);
        value = value.substr(0, static_cast<std::size_t>(end - value.begin()));
    }
    return std::string(Trim(value));
}

CMimeMultipart::CMimeMultipart(MimeClass kind, const char* contentType) : CMimeEntity(kind) {
    SetContentType(contentType);
    SetBoundary(NewBoundary().c_str());
}

CMimeMultipart::CMimeMultipart(const CMimeMultipart& other)
    : CMimeEntity(other), m_epilogue(other.m_epilogue), m_isUnsplit(other.m_isUnsplit) {
    m_parts.reserve(other.m_parts.size());
    for (const Child& part : other.m_parts)
        m_parts.push_back(part ? part->Clone() : Child());
}

CMimeMultipart::~CMimeMultipart() = default;

bool CMimeMultipart::MayMerge(const CMimeMultipart& other) const {
    return GetKind() == other.GetKind() || other.GetPartCount() == 1;
}

bool CMimeMultipart::Merge(const Child& other) {
    const auto* multipart = dynamic_cast<const CMimeMultipart*>(other.get());
    if (!multipart || multipart == this || !MayMerge(*multipart)) return false;
    // Without parts all that it says stands in its own text, which has no place here.
    if (multipart->m_parts.empty() && !(IsBlank(multipart->GetStoredBody()) && IsBlank(multipart->GetEpilogue())))
        return false;
    for (const Child& part : multipart->m_parts) {
        // A refused part goes where it would go when it is read again.
        if (!AddPart(part) && !Merge(part)) InsertPart(m_parts.size(), part);
    }
    AppendEpilogue(multipart->GetStoredBody());
    AppendEpilogue(multipart->GetEpilogue());
    return true;
}

void CMimeMultipart::AppendEpilogue(std::string_view text) {
    if (IsBlank(text)) return;
    std::string& epilogue = m_epilogue.Own();
    if (!epilogue.empty()) epilogue += '\n';
    epilogue += TrimRight(text);
}

void CMimeMultipart::Normalize() {
    for (const Child& part : m_parts)
        part->Normalize();
}

CMimeMultipart::Child CMimeMultipart::CreatePart(const CMimeSource& text) {
    return CreateEntity(text);
}

bool CMimeMultipart::IsSealedType() const {
    const std::string subType = GetSubType();
    return subType == "signed" || subType == "encrypted" || subType == "digest" || subType == "report";
}

void CMimeMultipart::KeepUnsplit(const CMimeSource& text, std::string_view body) {
    m_isUnsplit = true;
    // White space at the end of a part would grow with every load and save.
    if (text.GetDepth() == 0)
        m_body.Share(text, body);
    else
        KeepBody(text, body);
}

bool CMimeMultipart::Parse(const CMimeSource& text) {
    m_parts.clear();
    m_epilogue = CMimeBody();
    m_isUnsplit = false;
    std::string_view body;
    if (!TakeHead(text, body)) {
        m_isUnsplit = true;
        return false;
    }
    if (text.GetSealed() == CMimeSource::Sealed::Kept && IsSealedType()) {
        KeepUnsplit(text, body);
        return true;
    }
    CMultipartPieces pieces;
    if (text.GetDepth() >= MaxDepth || !SplitMultipart(body, GetBoundary(), pieces)) {
        KeepUnsplit(text, body);
        return false;
    }
    m_body.Share(text, pieces.preamble);
    if (!IsBlank(pieces.epilogue)) m_epilogue.Share(text, TrimRight(pieces.epilogue));
    m_isParsing = true;
    for (const std::string_view piece : pieces.parts) {
        const Child child = CreatePart(text.Part(piece));
        if (!Merge(child) && !AddPart(child)) InsertPart(m_parts.size(), child);
    }
    m_isParsing = false;
    Normalize();
    return true;
}

void CMimeMultipart::AppendMultipartTo(std::string& out) const {
    AppendHeadTo(out);
    out.append(GetStoredBody());
    if (m_isUnsplit) return;
    const std::string boundary = GetBoundary();
    for (const Child& part : m_parts) {
        out.append("\n--").append(boundary).append("\n");
        part->AppendTextTo(out);
        out += '\n';
    }
    out.append("\n--").append(boundary).append("--\n");
    if (!GetEpilogue().empty()) out.append(GetEpilogue()).append("\n");
}

std::size_t CMimeMultipart::GetMultipartSize() const {
    const std::size_t delimiter = GetHeader().FindStored("Content-Type").size() + 8;  // at most
    std::size_t size = GetHeader().GetTextSize() + GetStoredBody().size() + GetEpilogue().size() + delimiter + 2;
    for (const Child& part : m_parts)
        size += part->GetTextSize() + delimiter;
    return size;
}

std::string CMimeMultipart::GetText() const {
    return CMimeEntity::GetText();
}

// As it stands in the header: a boundary is no text that could be encoded.
std::string CMimeMultipart::GetBoundary() const {
    return BoundaryOf(CMimeHeader::Unfold(GetHeader().FindStored("Content-Type")));
}

void CMimeMultipart::SetBoundary(const char* boundary) {
    if (!boundary) return;
    std::string value(Trim(GetHeader().FindStored("Content-Type")));
    const std::string old = BoundaryOf(value);
    if (value.empty()) {
        value = FormatText("multipart/mixed;\n\tboundary=\"%s\"", boundary);
    } else if (!old.empty()) {
        const std::size_t at = FindNoCase(value, BoundaryName);
        std::string parameter = value.substr(at + BoundaryName.size());
        ReplaceAll(parameter, old, boundary);
        value.replace(at + BoundaryName.size(), std::string::npos, parameter);
    } else {
        value += FormatText("\n\t;boundary=\"%s\"", boundary);
    }
    SetField("Content-Type", value);
}

std::string CMimeMultipart::NewBoundary() {
    for (;;) {
        const Platform::Guid guid = Platform::NewGuid();
        if (guid == Platform::Guid()) ThrowInternalError(SourceName, __LINE__);
        const auto word = [&guid](std::size_t i) {
            return std::uint32_t{guid.data4[i]} | std::uint32_t{guid.data4[i + 1]} << 8 |
                   std::uint32_t{guid.data4[i + 2]} << 16 | std::uint32_t{guid.data4[i + 3]} << 24;
        };
        const std::uint32_t w1 = guid.data2 | std::uint32_t{guid.data3} << 16;
        if (w1 == 0 || word(0) == 0 || word(4) == 0) continue;
        return FormatText("--next_part%u", ((guid.data1 % w1) % word(0)) % word(4));
    }
}

const CMimeMultipart::Child& CMimeMultipart::GetPart(std::size_t index) const {
    if (index >= m_parts.size()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    return m_parts[index];
}

void CMimeMultipart::RemovePart(std::size_t index) {
    if (index >= m_parts.size()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    m_parts.erase(m_parts.begin() + static_cast<std::ptrdiff_t>(index));
}

void CMimeMultipart::RemoveAllParts() {
    m_parts.clear();
}

void CMimeMultipart::InsertPart(std::size_t index, const Child& child) {
    if (index > m_parts.size()) ThrowInternalError(SourceName, __LINE__, InternalErrorKind::InvalidArguments);
    if (m_isUnsplit) {
        // What could not be split goes in front of the parts, where no old delimiter may count.
        m_isUnsplit = false;
        SetBoundary(NewBoundary().c_str());
    }
    m_parts.insert(m_parts.begin() + static_cast<std::ptrdiff_t>(index), child);
}

int CMimeMultipart::FindPart(std::string_view mainType, std::string_view subType) const {
    for (std::size_t i = 0; i < m_parts.size(); ++i) {
        if (m_parts[i] && EqualNoCase(m_parts[i]->GetMainType(), mainType) &&
            EqualNoCase(m_parts[i]->GetSubType(), subType))
            return static_cast<int>(i);
    }
    return -1;
}
