#include "engine/incoming/moderation.h"

#include <algorithm>
#include <tuple>

#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/moderatornote.h"
#include "engine/messagetemplate.h"
#include "engine/rules/incomingmessage.h"
#include "engine/utf8text.h"
#include "mime/mimemessage.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/namedmutex.h"
#include "platform/systemerror.h"
#include "senddaemon/batchfolder.h"
#include "senddaemon/messageiterator.h"
#include "senddaemon/queuename.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/lhvexception.h"
#include "utility/mutexguard.h"
#include "utility/paths.h"
#include "utility/text.h"

namespace {

constexpr const char* NoLongerThere = "Message no longer exists.";
constexpr std::size_t HeaderStart = 64 * 1024;  // in which what a listing shows is looked for

std::string MutexName(std::uint32_t listNumber) {
    return "Vantorel.Listhaven.3.Moderation" + GetPendingFolder(listNumber);
}

// False for one that has vanished.
bool Describe(const std::string& path, CPendingMessage& message) {
    SendDaemon::CQueueName name;
    Platform::FileStatus status;
    std::string start;
    if (!SendDaemon::ParseQueueName(path, name) || !Platform::GetFileStatus(path, status)) return false;
    if (!ReadFileStart(path, HeaderStart, start)) return false;
    const CMimeSource source(std::move(start));
    const CMimeHead head = ReadMimeHead(source.View());
    message.id = name.number;
    message.path = path;
    message.received = ParseNumber(head.header.GetField(ControlHeader::Received)).value_or(0);
    message.from = HeaderFieldInUtf8(head.header, "From");
    message.subject = HeaderFieldInUtf8(head.header, "Subject");
    message.size = status.size;
    message.written = status.times.modified;
    return true;
}

void AddFrom(const std::string& folder, std::uint32_t list, bool isAccepted, std::vector<CPendingMessage>& messages) {
    CMessageIterator iterator;
    if (!Platform::FolderIsThere(folder) || !iterator.Start(folder)) return;
    const auto first = static_cast<std::ptrdiff_t>(messages.size());
    std::string path;
    while (iterator.PeekCurrent(path)) {
        CPendingMessage message;
        message.list = list;
        message.isAccepted = isAccepted;
        if (Describe(path, message)) messages.push_back(std::move(message));
        if (!iterator.Next()) break;
    }
    std::sort(messages.begin() + first, messages.end(), [](const CPendingMessage& a, const CPendingMessage& b) {
        return std::tie(a.received, a.written, a.id) < std::tie(b.received, b.written, b.id);
    });
}

// The paths that are there are compared with the number: none is made of it.
bool FindPath(std::uint32_t listNumber, const std::string& folder, std::string_view id, CPendingMessage& message) {
    CMessageIterator iterator;
    if (!Platform::FolderIsThere(folder) || !iterator.Start(folder)) return false;
    std::string path;
    while (iterator.PeekCurrent(path)) {
        SendDaemon::CQueueName name;
        if (SendDaemon::ParseQueueName(path, name) && name.number == id) {
            message.list = listNumber;
            return Describe(path, message);
        }
        if (!iterator.Next()) break;
    }
    return false;
}

bool IsNumber(std::string_view id) {
    return !id.empty() && id.find_first_not_of("0123456789") == std::string_view::npos;
}

bool FindWaiting(std::uint32_t listNumber, std::string_view id, CPendingMessage& message) {
    if (IsNumber(id) && FindPath(listNumber, GetPendingFolder(listNumber), id, message)) return true;
    SetLastErrorText(NoLongerThere);
    return false;
}

bool AddNote(const std::string& path, std::string_view note) {
    CMimeMessage message;
    if (!LoadIncoming(path, CMimeSource::Sealed::Split, message)) {
        SetLastErrorText(NoLongerThere);
        return false;
    }
    return PutNoteInFront(message, note) && message.Save(path);
}

bool MoveToAccepted(const std::string& path, std::uint32_t listNumber) {
    const std::string folder = GetAcceptedFolder(listNumber);
    CBatchFolder accepted;
    std::string newPath;
    if (!EnsureFolder(folder) || !accepted.Open(folder)) return false;
    if (!accepted.AddMessage(path, CBatchFolder::Transfer::Move, CBatchFolder::Times::Keep, {}, newPath)) {
        if (newPath.empty()) return false;
    }
    // A power failure leaves it in one of the two folders in any case.
    Platform::FlushFolder(ParentFolder(newPath));
    Platform::FlushFolder(ParentFolder(path));
    return true;
}

// Of a message as it lies on disk.
std::string ReadInboxHeader(const std::string& path) {
    std::string start;
    if (!ReadFileStart(path, HeaderStart, start)) return {};
    const CMimeSource source(std::move(start));
    return ReadMimeHead(source.View()).header.GetField(ControlHeader::Inbox);
}

bool Accept(std::uint32_t listNumber, std::string_view id, const std::string& note) {
    CPendingMessage message;
    if (!FindWaiting(listNumber, id, message)) return false;
    const std::string inbox(Trim(ReadInboxHeader(message.path)));
    if (inbox.empty()) {
        SetLastErrorText("The message does not say which inbox it is to go to, so it cannot be accepted.");
        return false;
    }
    if (inbox != InboxHeaderOf(listNumber)) {
        SetLastErrorText("The message names an inbox that is not this list's, so it cannot be accepted.");
        return false;
    }
    if (!note.empty() && !AddNote(message.path, note)) return false;
    return MoveToAccepted(message.path, listNumber);
}

}  // namespace

std::vector<CPendingMessage> ListPending(std::uint32_t listNumber) {
    std::vector<CPendingMessage> messages;
    AddFrom(GetPendingFolder(listNumber), listNumber, false, messages);
    AddFrom(GetAcceptedFolder(listNumber), listNumber, true, messages);
    return messages;
}

bool FindPending(std::uint32_t listNumber, std::string_view id, CPendingMessage& message) {
    if (IsNumber(id)) {
        message.isAccepted = false;
        if (FindPath(listNumber, GetPendingFolder(listNumber), id, message)) return true;
        message.isAccepted = true;
        if (FindPath(listNumber, GetAcceptedFolder(listNumber), id, message)) return true;
    }
    SetLastErrorText(NoLongerThere);
    return false;
}

std::string InboxHeaderOf(std::uint32_t listNumber) {
    return "Inbox/" + std::to_string(listNumber) + "/.Accepted";
}

bool AcceptPending(std::uint32_t listNumber, std::string_view id, std::string_view note) {
    try {
        Platform::CNamedMutex mutex(MutexName(listNumber));
        const CMutexGuard guard(mutex);
        return Accept(listNumber, id, CrLfToLf(note));
    } catch (const CLhvException& exception) {
        SetLastErrorFromException(exception);
        return false;
    }
}

bool RejectPending(std::uint32_t listNumber, std::string_view id) {
    Platform::CNamedMutex mutex(MutexName(listNumber));
    const CMutexGuard guard(mutex);
    CPendingMessage message;
    if (!FindWaiting(listNumber, id, message)) return false;
    if (!Platform::RemoveFile(message.path)) {
        if (Platform::IsNotFound(Platform::LastSystemError()))
            SetLastErrorText(NoLongerThere);
        else
            SetLastErrorFromSystem();
        return false;
    }
    Platform::FlushFolder(ParentFolder(message.path));
    return true;
}
