#include "mime/mimeattachment.h"

#include <algorithm>

#include "mime/transferencoding.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr std::string_view EncodingField = "Content-Transfer-Encoding";

// A quoted parameter cannot hold quotes, nor backslashes that stay when it is read.
std::string ParameterText(std::string_view name) {
    std::string text = OneLine(name);
    std::replace(text.begin(), text.end(), '"', '\'');
    std::replace(text.begin(), text.end(), '\\', '_');
    return text;
}

}  // namespace

CMimeAttachment::~CMimeAttachment() = default;

std::string CMimeAttachment::GetBody() const {
    return {};
}

void CMimeAttachment::AttachFile(std::string_view path) {
    std::string content;
    if (!ReadWholeFile(path, content))
        throw CLhvException("Error reading the file " + std::string(path), Platform::LastSystemError());
    std::string encoded;
    EncodeBase64(content.data(), content.data() + content.size(), encoded);
    const std::string name = ParameterText(LastPathComponent(path));
    SetContentType("application/octet-stream; name=\"" + name + "\"");
    SetField("Content-Disposition", "attachment; filename=\"" + name + "\"");
    SetField(EncodingField, "base64");
    m_body.SetShared(CrLfToLf(encoded));
}

void CMimeAttachment::SetContentID(std::string_view id) {
    SetField("Content-ID", "<" + std::string(id) + ">");
}

std::string CMimeAttachment::GetContentID() const {
    const std::string value(Trim(GetField("Content-ID")));
    return value.size() < 3 ? std::string() : value.substr(1, value.size() - 2);
}

std::string CMimeAttachment::GetFileName() const {
    std::string name = CMimeHeader::GetParameter(GetField("Content-Disposition"), "filename");
    if (name.empty()) name = CMimeHeader::GetParameter(GetField("Content-Type"), "name");
    return name;
}

std::string CMimeAttachment::GetContent() const {
    const std::string encoding = GetField(EncodingField);
    if (EqualNoCase(encoding, "quoted-printable")) return DecodeQuotedPrintable(GetStoredBody());
    if (EqualNoCase(encoding, "base64")) return DecodeBase64Text(GetStoredBody());
    return std::string(GetStoredBody());
}

void CMimeAttachment::SaveToFile(std::string_view path) const {
    if (!WriteFileAtomically(path, GetContent()))
        throw CLhvException("Error writing the file " + std::string(path), Platform::LastSystemError());
}
