#include "engine/incoming/messageparts.h"

#include <algorithm>
#include <vector>

#include "engine/incoming/jointexts.h"
#include "engine/utf8text.h"
#include "mime/htmlconversion.h"
#include "mime/mimemultipart.h"
#include "mime/mimemultipartmixed.h"
#include "mime/mimetext.h"
#include "mime/mimewalk.h"
#include "utility/formattext.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

using Child = CMimeMultipart::Child;

constexpr int MaxDepth = CMimeMultipart::MaxDepth;
constexpr std::size_t MostNamed = 20;  // removed attachments that are named
constexpr std::size_t LongestNamed = 80;

bool IsMultipart(const CMimeEntity& entity) noexcept {
    return entity.GetKind() >= MimeClass::Multipart;
}

const CMimeMultipart& AsMultipart(const CMimeEntity& entity) noexcept {
    return static_cast<const CMimeMultipart&>(entity);
}

std::string TextOf(const CMimeText& entity) {
    std::string text;
    BodyInUtf8(entity, text);
    return std::string(TrimRight(entity.GetSubType() == "html" ? HtmlToText(text) : CrLfToLf(text)));
}

void AppendTexts(const CMimeEntity& entity, int depth, std::string& text);

// The plain text, else the last of the others that has one: they get better towards the end.
void AppendBestText(const CMimeMultipart& alternatives, int depth, std::string& text) {
    const int plain = alternatives.FindPart("text", "plain");
    if (plain >= 0) {
        AppendTexts(*alternatives.GetPart(static_cast<std::size_t>(plain)), depth + 1, text);
        return;
    }
    const std::size_t before = text.size();
    for (std::size_t i = alternatives.GetPartCount(); i-- > 0 && text.size() == before;)
        AppendTexts(*alternatives.GetPart(i), depth + 1, text);
}

void AppendTexts(const CMimeEntity& entity, int depth, std::string& text) {
    if (depth > MaxDepth) return;
    if (entity.GetKind() == MimeClass::Text && entity.IsTextBody()) {
        const std::string piece = TextOf(static_cast<const CMimeText&>(entity));
        if (!text.empty() && !piece.empty()) text.append("\n\n");
        text.append(piece);
    } else if (entity.GetKind() == MimeClass::MultipartAlternative) {
        AppendBestText(AsMultipart(entity), depth, text);
    } else if (IsMultipart(entity)) {
        const CMimeMultipart& parts = AsMultipart(entity);
        for (std::size_t i = 0; i < parts.GetPartCount(); ++i)
            AppendTexts(*parts.GetPart(i), depth + 1, text);
    }
}

bool IsSignature(const CMimeEntity& entity) {
    const std::string subType = entity.GetSubType();
    return subType == "pgp-signature" || subType == "pkcs7-signature" || subType == "x-pkcs7-signature";
}

bool IsText(const CMimeEntity& entity) {
    return entity.GetMainType() == "text";
}

// What is attached, without what only shows together with the HTML.
void AppendFiles(const Child& entity, bool isInHtml, int depth, std::vector<Child>& files) {
    if (depth > MaxDepth) return;
    if (IsMultipart(*entity) && !AsMultipart(*entity).IsUnsplit()) {
        const CMimeMultipart& parts = AsMultipart(*entity);
        const bool isHtml = isInHtml || entity->GetKind() == MimeClass::MultipartRelated;
        for (std::size_t i = 0; i < parts.GetPartCount(); ++i)
            AppendFiles(parts.GetPart(i), isHtml, depth + 1, files);
        return;
    }
    const bool isOfHtml = isInHtml && entity->HasField("Content-ID");
    if (!entity->IsTextBody() && !isOfHtml && !IsSignature(*entity)) files.push_back(entity);
}

std::string RemovalNote(const std::vector<Child>& removed) {
    std::string note;
    std::size_t count = 0;
    for (const Child& entity : removed) {
        if (IsSignature(*entity)) continue;
        if (++count <= MostNamed)
            note.append("[Attachment removed: ").append(DescribeAttachment(*entity)).append("]\n");
    }
    if (count > MostNamed) note += FormatText("[%zu more attachments removed]\n", count - MostNamed);
    return note;
}

// Takes out what is no text, in the order of the message.
void Strip(CMimeMultipart& multipart, int depth, std::vector<Child>& removed) {
    std::vector<Child> kept;
    for (std::size_t i = 0; i < multipart.GetPartCount(); ++i) {
        const Child part = multipart.GetPart(i);
        if (IsMultipart(*part) && depth < MaxDepth && !AsMultipart(*part).IsUnsplit()) {
            Strip(static_cast<CMimeMultipart&>(*part), depth + 1, removed);
            if (AsMultipart(*part).GetPartCount() > 0) kept.push_back(part);
        } else {
            (IsText(*part) ? kept : removed).push_back(part);
        }
    }
    multipart.RemoveAllParts();  // one by one would be quadratic
    for (const Child& part : kept)
        multipart.InsertPart(multipart.GetPartCount(), part);
    if (multipart.IsSealedType()) {  // it is none any more
        multipart.SetContentType("multipart/mixed");
        multipart.SetBoundary(CMimeMultipart::NewBoundary().c_str());
    }
}

// The fields of the root that do not speak of its content go along.
void ReplaceRoot(CMimeMessage& message, const Child& root) {
    root->GetHeader().CopyMissingFields(message.GetRoot()->GetHeader());
    message.SetRoot(root);
}

void SetContent(CMimeMessage& message, std::string_view text, const std::vector<Child>& files) {
    auto body = MakeShared<CMimeText>();
    body->SetContentType("text/plain; charset=\"utf-8\"");
    body->SetBody(text);
    if (files.empty()) {
        ReplaceRoot(message, body);
        return;
    }
    auto parts = MakeShared<CMimeMultipartMixed>();
    parts->InsertPart(0, body);
    for (const Child& file : files) {
        if (file.get() != message.GetRoot().get()) {
            parts->InsertPart(parts->GetPartCount(), file);
            continue;
        }
        WrapInMultipart(message);
        parts->InsertPart(parts->GetPartCount(), message.GetRoot().As<CMimeMultipart>()->GetPart(0));
    }
    ReplaceRoot(message, parts);
}

bool IsQuoted(std::string_view line) noexcept {
    return TrimLeft(line).starts_with(">");
}

bool HasReadableText(const CMimeEntity& root) {
    return !VisitEntities(root, [](const CMimeEntity& entity, int) {
        return !(entity.GetKind() == MimeClass::Text && !Trim(entity.GetBody()).empty());
    });
}

}  // namespace

std::string DescribeAttachment(const CMimeEntity& entity) {
    std::string name = HeaderLineInUtf8(CMimeHeader::GetParameter(entity.GetField("Content-Disposition"), "filename"));
    if (name.empty()) name = HeaderLineInUtf8(CMimeHeader::GetParameter(entity.GetField("Content-Type"), "name"));
    std::string type = entity.GetMainType() + "/" + entity.GetSubType();
    const bool isPlain = type.size() <= LongestNamed && type.find_first_not_of(
                                                            "abcdefghijklmnopqrstuvwxyz0123456789"
                                                            "/.+-_") == std::string::npos;
    if (!isPlain) type = "unknown type";
    if (name.empty()) return type;
    return std::string(CutUtf8(SafeFileName(name), LongestNamed)) + ", " + type;
}

std::vector<Child> CollectFiles(const Child& root) {
    std::vector<Child> files;
    AppendFiles(root, false, 0, files);
    return files;
}

std::string ReadableText(const CMimeEntity& root) {
    std::string text;
    AppendTexts(root, 0, text);
    std::replace(text.begin(), text.end(), '\r', '\n');
    std::replace(text.begin(), text.end(), '\0', ' ');
    return text;
}

std::string TrimForWireless(std::string_view text) {
    std::vector<std::string_view> lines;
    for (const std::string_view line : Split(text, '\n')) {
        if (line == "-- " || line == "--") break;
        const std::string_view trimmed = TrimRight(line);
        if (IsQuoted(trimmed)) {
            // "On Monday Anna wrote:" with the blank line behind it
            while (!lines.empty() && lines.back().empty())
                lines.pop_back();
            if (!lines.empty() && lines.back().ends_with(":")) lines.pop_back();
            continue;
        }
        if (!trimmed.empty() || (!lines.empty() && !lines.back().empty())) lines.push_back(trimmed);
    }
    std::string result;
    for (const std::string_view line : lines)
        result.append(line).append("\n");
    result.resize(TrimRight(result).size());
    std::size_t end = 0;
    for (std::size_t characters = 0; end < result.size(); ++end) {
        const bool isStart = (static_cast<unsigned char>(result[end]) & 0xC0) != 0x80;
        if (isStart && ++characters > LongestWirelessText) break;
    }
    if (end == result.size()) return result;
    const std::size_t blank = result.find_last_of(" \n", end);
    if (blank != std::string::npos && blank > end / 2) end = blank;
    result.resize(end);
    return std::string(TrimRight(result)) + " ...";
}

bool HasUsableFormat(const CMimeMessage& message, std::string& invalid) {
    if (!message.GetRoot() || message.GetRoot()->GetHeader().GetFieldCount() == 0) {
        invalid = "The message has no header.";
        return false;
    }
    const CMimeEntity& root = *message.GetRoot();
    if (root.GetMainType() == "message" && root.GetSubType() == "partial") {
        invalid = "The message is only a part of a divided message.";
        return false;
    }
    if (IsMultipart(root)) {
        const CMimeMultipart& parts = AsMultipart(root);
        const bool isKeptWhole = parts.IsUnsplit() && parts.IsSealedType() && !Trim(parts.GetStoredBody()).empty();
        if (parts.GetPartCount() == 0 && !isKeptWhole) {
            invalid = "The parts of the message cannot be told apart: its boundary is missing.";
            return false;
        }
        if (isKeptWhole) return true;
    }
    if (HasReadableText(root)) return true;
    bool hasFile = false;
    VisitEntities(root, [&hasFile](const CMimeEntity& entity, int) {
        const bool isLeaf = !IsMultipart(entity) || AsMultipart(entity).IsUnsplit();
        hasFile = isLeaf && entity.GetKind() != MimeClass::Text && !Trim(entity.GetStoredBody()).empty();
        return !hasFile;
    });
    if (!hasFile) invalid = "The message is empty.";
    return hasFile;
}

bool ApplyContentOptions(CMimeMessage& message, const ContentOptions& options, std::string& invalid) {
    if (!options.TakesApart()) return true;
    const Child root = message.GetRoot();
    if (options.wirelessTrim || options.plainText) {
        std::vector<Child> files;
        if (!options.wirelessTrim) files = CollectFiles(root);
        std::string text = ReadableText(*root);
        if (options.wirelessTrim) text = TrimForWireless(text);
        std::vector<Child> removed;
        if (options.stripAttachments && !options.wirelessTrim) {
            const auto isText = [](const Child& file) { return IsText(*file); };
            const auto first = std::stable_partition(files.begin(), files.end(), isText);
            removed.assign(first, files.end());
            files.erase(first, files.end());
        }
        if (text.empty() && files.empty()) {
            invalid = "The message has no text.";
            return false;
        }
        SetContent(message, text, files);
        JoinTexts(message, {}, NoteText(RemovalNote(removed)), TextSeparator::None);
        return true;
    }
    std::vector<Child> removed;
    if (IsMultipart(*root) && !AsMultipart(*root).IsUnsplit()) Strip(static_cast<CMimeMultipart&>(*root), 0, removed);
    if (!HasReadableText(*root) || (!IsMultipart(*root) && !IsText(*root))) {
        invalid = "The message has no text, and this list takes no other attachments.";
        return false;
    }
    JoinTexts(message, {}, NoteText(RemovalNote(removed)), TextSeparator::None);
    return true;
}

void WrapInMultipart(CMimeMessage& message) {
    const Child content = message.GetRoot();
    auto parts = MakeShared<CMimeMultipartMixed>();
    parts->GetHeader().CopyMissingFields(content->GetHeader());
    CMimeHeader& header = content->GetHeader();
    for (std::size_t i = header.GetFieldCount(); i-- > 0;) {
        if (!StartsWithNoCase(header.GetStoredField(i).name, "Content-")) header.RemoveFieldAt(i);
    }
    parts->InsertPart(0, content);
    message.SetRoot(parts);
}
