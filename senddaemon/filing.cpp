// Where a dispatcher puts messages that are not to be handed to a sender (any
// more), and how it takes back what was parked or claimed.

#include <algorithm>
#include <charconv>
#include <exception>
#include <utility>

#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "senddaemon/daemonlog.h"
#include "senddaemon/dispatcherstate.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace SendDaemon {

namespace {

constexpr std::int64_t NanosecondsPerSecond = 1000000000;
constexpr std::size_t SecondsLength = 10;  // since 2001: "2026-11.eml" is no time

bool IsDecimal(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// Seconds since 1970, from the name NUMBER-SECONDS.eml.
std::optional<std::int64_t> GetQueuedTime(std::string_view name) {
    const std::size_t dash = name.find('-');
    const std::size_t dot = name.find('.');
    if (dash == std::string_view::npos || dot == std::string_view::npos || dot < dash) return std::nullopt;
    const std::string_view seconds = name.substr(dash + 1, dot - dash - 1);
    std::int64_t value = 0;
    if (!IsDecimal(name.substr(0, dash)) || !IsDecimal(seconds) || seconds.size() < SecondsLength) return std::nullopt;
    const auto parsed = std::from_chars(seconds.data(), seconds.data() + seconds.size(), value);
    return parsed.ec == std::errc() ? std::optional(value) : std::nullopt;
}

// Of what was filed must be known after a power failure that it was.
void FlushFolderOf(const std::string& path) {
    const std::string folder = ParentFolder(path);
    if (Platform::FlushFolder(folder)) return;
    SetLastErrorFromSystem();
    LogFormat(LogLevelFailure, "Error while flushing the folder \"%s\": %s", folder.c_str(),
              DescribeLastError().c_str());
}

}  // namespace

bool CDispatcher::CState::MoveTo(AccountFolder folder, const std::string& path, CBatchFolder::Times times) {
    CBatchFolder* target = account.GetFolder(folder);
    std::string newPath;
    if (target != nullptr && target->AddMessage(path, CBatchFolder::Transfer::Move, times, {}, newPath)) {
        FlushFolderOf(newPath);
        return true;
    }
    LogFormat(LogLevelFailure, "Error while moving message \"%s\" to \"%s\" folder: %s", path.c_str(),
              std::string(GetAccountFolderName(folder)).c_str(), DescribeLastError().c_str());
    return !newPath.empty();
}

// Parking renews the file's time, so the name keeps the time that expiry goes
// by: NUMBER-SECONDS.eml.  A name that cannot be given is not worth a failure.
DispatchStep CDispatcher::CState::Park(const std::string& path) {
    std::string named = path;
    const std::string name = LastPathComponent(path);
    Platform::FileStatus status;
    if (!GetQueuedTime(name) && Platform::GetFileStatus(path, status)) {
        const std::string number = IsDecimal(name.substr(0, name.find('.'))) ? name.substr(0, name.find('.'))
                                                                             : std::to_string(Platform::RandomNumber());
        const std::int64_t seconds = std::max<std::int64_t>(0, status.times.created / NanosecondsPerSecond);
        named = JoinPath(ParentFolder(path), number + "-" + std::to_string(seconds) + ".eml");
        if (!Platform::RenameNew(path, named)) named = path;
    }
    if (!MoveTo(AccountFolder::Parked, named, CBatchFolder::Times::Renew)) return DispatchStep::NotParked;
    const std::lock_guard guard(lock);
    ++totals.parked;
    return DispatchStep::HandedOn;
}

bool CDispatcher::CState::IsExpired(const std::string& path) const {
    if (!expiry) return false;
    if (const auto queued = GetQueuedTime(LastPathComponent(path))) return clock() - *queued > *expiry;
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status)) return false;
    return clock() - status.times.created / NanosecondsPerSecond > *expiry;
}

bool CDispatcher::CState::Expire(const std::string& path) {
    std::string subject;
    std::string recipient;
    ReadMessageTitle(path, subject, recipient);
    if (!MoveTo(AccountFolder::Expired, path, CBatchFolder::Times::Keep)) return false;
    LogFormat(LogLevelNotice, "Message \"%s\" to %s has expired and will not be sent.", subject.c_str(),
              recipient.c_str());
    const std::lock_guard guard(lock);
    ++totals.expired;
    return true;
}

CMessageInfo CDispatcher::CState::GetInfo(const std::string& messageFile) const {
    CMessageInfo info;
    {
        const std::lock_guard guard(lock);
        const auto found = inFlight.find(messageFile);
        if (found != inFlight.end()) return found->second;
    }
    ReadMessageInfo(messageFile, info);
    return info;
}

void CDispatcher::CState::FileSent(const std::string& messageFile) {
    try {
        const CMessageInfo info = events != nullptr ? GetInfo(messageFile) : CMessageInfo();
        if (events != nullptr) events->OnMessageSent(messageFile, info.returnPath, info.recipients);
    } catch (const std::exception& exception) {  // of the program's sink: filed it must be, or it is sent again
        LogFormat(LogLevelFailure, "Error while reporting that message \"%s\" was sent: %s", messageFile.c_str(),
                  exception.what());
    }
    if (config != nullptr && config->GetNumber("SaveSentMessages") > 0) {
        MoveTo(AccountFolder::Sent, messageFile, CBatchFolder::Times::Keep);
    } else {
        RemoveSent(messageFile);
    }
    {
        const std::lock_guard guard(lock);
        ++totals.sent;
    }
    EndJob(messageFile);
}

void CDispatcher::CState::RemoveSent(const std::string& messageFile) {
    if (Platform::RemoveFile(messageFile)) {
        FlushFolderOf(messageFile);
        return;
    }
    SetLastErrorFromSystem();
    LogFormat(LogLevelNotice,
              "Message in file \"%s\" has been just sent and it may get sent again to the same recipient. Please "
              "contact support and cite the description of the error. We suggest that you exit the application that "
              "caused the error. Error occurred while trying to move the message to the \"Sent\" folder: %s",
              messageFile.c_str(), DescribeLastError().c_str());
}

// A delivery that was cancelled goes back to those that wait.
void CDispatcher::CState::FileUnsent(const std::string& messageFile) {
    const std::string reason = DescribeLastError();
    bool isCancelled = false;
    {
        const std::lock_guard guard(lock);
        isCancelled = isCancelling;
        if (!isCancelled) ++totals.failed;
    }
    MoveTo(isCancelled ? AccountFolder::Waiting : AccountFolder::Errors, messageFile, CBatchFolder::Times::Keep);
    LogFormat(LogLevelNotice, "Message in file \"%s\" was not sent: %s", messageFile.c_str(), reason.c_str());
}

void CDispatcher::CState::EndJob(const std::string& messageFile) {
    const std::lock_guard guard(lock);
    inFlight.erase(messageFile);
    --inProgress;
    jobEnded.notify_all();
}

bool CDispatcher::CState::IsDue(const std::string& path) const {
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status)) return false;
    return clock() - status.times.created / NanosecondsPerSecond > ParkedSeconds;
}

// Collected before they are moved: the walk is not to see its own changes.
bool CDispatcher::CState::FreeParked() {
    CBatchFolder* parked = account.GetFolder(AccountFolder::Parked);
    CBatchFolder* waiting = account.GetFolder(AccountFolder::Waiting);
    if (parked == nullptr || waiting == nullptr) return false;
    if (!isWalkingParked) {
        const std::int64_t now = clock();
        if (parkedCheck && now >= *parkedCheck && now - *parkedCheck < ParkedCheckSeconds) return true;
        parkedCheck = now;
        const std::string folder = GetAccountFolderPath(account.GetRootFolder(), AccountFolder::Parked);
        if (!parkedIterator.Start(folder)) return false;
        isWalkingParked = true;
    }
    std::vector<std::string> due;
    for (int looked = 0; looked < ParkedPerStep; ++looked) {
        std::string path;
        if (parkedIterator.GetCurrent(path) && IsDue(path)) due.push_back(std::move(path));
        if (parkedIterator.Next()) continue;
        isWalkingParked = false;
        parkedIterator.Close();
        break;
    }
    for (const std::string& path : due) {
        if (IsExpired(path)) {
            Expire(path);
        } else if (!parked->MoveMessageTo(path, *waiting) && Platform::FileIsThere(path)) {
            return false;
        }
    }
    return true;
}

bool CDispatcher::CState::FreeAllParked() {
    isWalkingParked = false;
    parkedCheck.reset();
    do {
        if (!FreeParked()) return false;
    } while (isWalkingParked);
    return true;
}

bool CDispatcher::CState::UndoClaims() {
    Log(LogLevelTrace, "UndoQueueFolder ()");
    CBatchFolder* claimed = account.GetFolder(AccountFolder::Claimed);
    CBatchFolder* waiting = account.GetFolder(AccountFolder::Waiting);
    return claimed != nullptr && waiting != nullptr && claimed->Load() && claimed->MoveAllTo(*waiting);
}

}  // namespace SendDaemon
