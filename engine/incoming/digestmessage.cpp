#include "engine/incoming/digestmessage.h"

#include <algorithm>
#include <vector>

#include "engine/addressline.h"
#include "engine/datafields.h"
#include "engine/eventlog.h"
#include "engine/finalize.h"
#include "engine/incoming/listheaders.h"
#include "engine/incoming/messageparts.h"
#include "engine/incoming/originalfields.h"
#include "engine/literaltext.h"
#include "engine/messagefields.h"
#include "engine/utf8text.h"
#include "mime/mimemultipartmixed.h"
#include "mime/mimetext.h"
#include "platform/guid.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

constexpr const char* Title = "$(List-Name) digest #";  // and its number
constexpr const char* ContentsDate = ", $(Digest-Creation-Date)\n\nIn this digest:\n\n";
constexpr const char* ContentsEntry = "$(Message-Number). $(Original-Subject)\n    $(Original-From)\n";
constexpr const char* ContentsUnreadable = "$(Message-Number). (This message could not be read.)\n";
constexpr std::size_t LongestLine = 500;  // bytes of a field in the contents

constexpr std::string_view LeaveCommand = "\"UNSUBSCRIBE\"";

const std::string PreambleEnd(70, '-');  // RFC 1153
const std::string Separator(30, '-');

std::string Expanded(std::string text) {
    ExpandDataFields(&text, false);
    return text;
}

// The fields of the next message; "" as text when it is none.
void TakeEntry(const std::string& path, std::size_t number, std::string& text, CMimeMessage* message) {
    SetDataField(DataField::MessageNumber, std::to_string(number));
    if (!ReadWholeFile(path, text))
        throw CLhvException("A message of the digest cannot be read: " + path + ": " + DescribeLastError());
    text = CrLfToLf(text);
    const CMimeHead head = ReadMimeHead(text);
    SetOriginalFields(head.header, {}, {});
    for (const DataField field : {DataField::OriginalSubject, DataField::OriginalFrom}) {
        const std::string value = GetDataField(DataFieldName(field));
        SetLiteralDataField(field, value.empty() ? "(none)" : CutUtf8(value, LongestLine));
    }
    if (message != nullptr && !message->LoadText(CMimeSource(text))) text.clear();
}

// A boundary that no text holds: nobody could have known it, and it is looked for all the same.
std::string FreeBoundary(const std::vector<std::string>& texts) {
    for (;;) {
        const Platform::Guid guid = Platform::NewGuid();
        std::string boundary =
            "digest-" +
            EncodeHex(std::string_view(reinterpret_cast<const char*>(guid.data4.data()), guid.data4.size())) +
            FormatText("%08x%04x", static_cast<unsigned>(guid.data1), static_cast<unsigned>(guid.data2));
        bool isFree = true;
        for (const std::string& text : texts)
            isFree = isFree && text.find(boundary) == std::string::npos;
        if (isFree) return boundary;
    }
}

CSharedPointer<CMimeText> MakeText(std::string_view text) {
    auto part = MakeShared<CMimeText>();
    part->SetContentType("text/plain; charset=\"utf-8\"");
    part->SetBody(LiteralText(text));
    return part;
}

// Behind the contents: how to leave, if a command of the list does that.
std::string HowToLeave(const BroadcastList& list) {
    if (list.commandAddress.empty() || FindNoCase(list.usage, LeaveCommand) == std::string_view::npos) return {};
    return "\nTo unsubscribe, send a message to\n" + list.commandAddress + "\ncontaining " + std::string(LeaveCommand) +
           " in subject.\n";
}

CSharedPointer<CMimeEntity> MakeParts(std::span<const std::string> entries, std::string contents,
                                      const std::string& leave) {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        std::string text;
        TakeEntry(entries[i], i + 1, text, nullptr);
        contents += Expanded(text.empty() ? ContentsUnreadable : ContentsEntry);
        if (!text.empty()) texts.push_back(std::move(text));
    }
    auto messages = MakeShared<CMimeMultipartMixed>();
    messages->SetContentType("multipart/digest");
    messages->SetBoundary(FreeBoundary(texts).c_str());
    for (std::string& text : texts) {
        auto part = MakeShared<CMimeEntity>();
        part->SetContentType("message/rfc822");
        part->SetBody(text);
        text = {};
        messages->InsertPart(messages->GetPartCount(), part);
    }
    auto root = MakeShared<CMimeMultipartMixed>();
    root->SetBoundary(FreeBoundary({}).c_str());
    root->InsertPart(0, MakeText(contents + leave));
    if (messages->GetPartCount() > 0) root->InsertPart(1, messages);
    return root;
}

void AppendField(std::string& text, const CMimeHeader& header, const char* name) {
    const std::string value = HeaderFieldInUtf8(header, name);
    if (!value.empty()) text.append(name).append(": ").append(CutUtf8(value, LongestLine)).append("\n");
}

void AppendMessage(std::string& text, const CMimeMessage& message) {
    const CMimeHeader& header = message.GetRoot()->GetHeader();
    for (const char* name : {"Date", "From", "To", "Cc", "Subject", "Message-ID"})
        AppendField(text, header, name);
    text += '\n';
    const std::string body = ReadableText(*message.GetRoot());
    for (const std::string_view line : Split(body, '\n')) {
        if (line.starts_with(Separator)) text += ' ';
        text.append(line).append("\n");
    }
    for (const auto& file : CollectFiles(message.GetRoot()))
        text.append("[Attachment: ").append(DescribeAttachment(*file)).append("]\n");
}

CSharedPointer<CMimeEntity> MakePlain(std::span<const std::string> entries, std::string contents,
                                      const std::string& leave, std::uint32_t number) {
    std::string messages;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        std::string text;
        CMimeMessage message;
        TakeEntry(entries[i], i + 1, text, &message);
        contents += Expanded(text.empty() ? ContentsUnreadable : ContentsEntry);
        if (text.empty()) continue;
        messages += Expanded("Message: $(Message-Number)\n");
        AppendMessage(messages, message);
        messages.append("\n").append(Separator).append("\n\n");
    }
    contents.append(leave).append("\n").append(PreambleEnd).append("\n\n").append(messages);
    const std::string end = Expanded("End of $(List-Name) digest #") + std::to_string(number);
    contents.append(end).append("\n").append(std::string(std::min<std::size_t>(end.size(), 70), '*')).append("\n");
    return MakeText(contents);
}

}  // namespace

bool MakeDigest(std::span<const std::string> entries, DigestFormat format, std::uint32_t number,
                const BroadcastList& list, std::int64_t now, CMimeMessage& digest) {
    if (list.address.empty() && list.commandAddress.empty()) {
        SetLastErrorText("The list has no address that its digest could be from.");
        return false;
    }
    try {
        const CDataFieldScope scope;
        SetListFields(list);
        SetDataField(DataField::DigestCreationDate, FormatMessageDate(now));
        const std::string count = std::to_string(number);
        const std::string contents = Expanded(Title) + count + Expanded(ContentsDate);
        digest.SetRoot(format == DigestFormat::Plain ? MakePlain(entries, contents, HowToLeave(list), number)
                                                     : MakeParts(entries, contents, HowToLeave(list)));
        CMimeHeader& header = digest.GetRoot()->GetHeader();
        const std::string& address = list.address.empty() ? list.commandAddress : list.address;
        SetStoredLine(header, "From", StoredMailbox({LiteralText(list.name), address}));
        SetStoredLine(header, "Reply-To", StoredMailbox({LiteralText(list.name), address}));
        SetStoredLine(header, "Subject", StoredSubject(LiteralText(Expanded(Title) + count)));
        header.SetField("Auto-Submitted", "auto-generated");
        SetEnvelopeSender(header, "", list);
        AddListFields(header, list, list.authorizedAddress.empty());
        AddLoopMarks(header, list);
        digest.RefreshAttachments();
        return true;
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}
