// Where a dispatcher puts messages that are not to be handed to a sender (any
// more), and how it takes back what was parked or claimed.

#include <algorithm>
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

// Copying a data folder gives its files a new time of creation where there is one, and keeps the other.
std::int64_t QueuedAt(const Platform::FileStatus& status) {
    return std::min(status.times.created, status.times.modified) / NanosecondsPerSecond;
}

// Of what was filed must be known after a power failure that it was.
bool FlushFolderOf(const std::string& path) {
    const std::string folder = ParentFolder(path);
    if (Platform::FlushFolder(folder)) return true;
    SetLastErrorFromSystem();
    LogFormat(LogLevelFailure, "Error while flushing the folder \"%s\": %s", folder.c_str(),
              DescribeLastError().c_str());
    return false;
}

}  // namespace

bool CPeriodicWalk::Begin(const std::string& folder, std::int64_t now) {
    if (isWalking) return true;
    if (begun && now >= *begun && now - *begun < CDispatcher::CheckSeconds) return true;
    begun = now;
    isWalking = iterator.Start(folder);
    return isWalking;
}

// Collected before they are moved: the walk is not to see its own changes.
std::vector<std::string> CPeriodicWalk::Collect(const std::function<bool(const std::string& path)>& isDue) {
    std::vector<std::string> due;
    for (int looked = 0; isWalking && looked < MessagesPerStep; ++looked) {
        std::string path;
        if (iterator.PeekCurrent(path) && isDue(path)) due.push_back(std::move(path));
        if (iterator.Next()) continue;
        isWalking = false;
        iterator.Close();
    }
    return due;
}

CDispatcher::CState::Moved CDispatcher::CState::MoveTo(AccountFolder folder, const std::string& path,
                                                       CBatchFolder::Times times, std::string_view name) {
    CBatchFolder* target = account.GetFolder(folder);
    std::string newPath;
    const std::string kept = name.empty() ? LastPathComponent(path) : std::string(name);
    if (target != nullptr && target->MoveMessageIn(path, kept, times, newPath)) {
        return FlushFolderOf(newPath) ? Moved::Yes : Moved::NotFlushed;
    }
    LogFormat(LogLevelFailure, "Error while moving message \"%s\" to \"%s\" folder: %s", path.c_str(),
              std::string(GetAccountFolderName(folder)).c_str(), DescribeLastError().c_str());
    return newPath.empty() ? Moved::No : Moved::NotFlushed;
}

// What happens to the file later renews its time, so the name keeps the one
// that expiry goes by.
CQueueName CDispatcher::CState::NameWithTime(const std::string& path) const {
    CQueueName name;
    if (!ParseQueueName(path, name)) name.number = std::to_string(Platform::RandomNumber());
    Platform::FileStatus status;
    if (!name.queued && Platform::GetFileStatus(path, status)) {
        name.queued = std::max<std::int64_t>(0, QueuedAt(status));
    }
    if (name.queued) name.queued = std::min(*name.queued, clock());  // which may have been set back
    return name;
}

DispatchStep CDispatcher::CState::Park(const std::string& path) {
    CMessageInfo info;
    ReadMessageInfo(path, info);
    if (MoveTo(AccountFolder::Parked, path, CBatchFolder::Times::Renew, FormatQueueName(NameWithTime(path))) ==
        Moved::No) {
        return DispatchStep::NotParked;
    }
    AppendForAll(info, DeliveryStatus::Parked, "Held back by a delivery limit.");
    const std::lock_guard guard(lock);
    ++totals.parked;
    return DispatchStep::HandedOn;
}

bool CDispatcher::CState::IsExpired(const std::string& path, std::optional<std::int64_t> limit) const {
    if (!limit) return false;
    CQueueName name;
    if (ParseQueueName(path, name) && name.queued) return clock() - *name.queued > *limit;
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status)) return false;
    return clock() - QueuedAt(status) > *limit;
}

bool CDispatcher::CState::Expire(const std::string& path) {
    std::string subject;
    std::string recipient;
    CMessageInfo info;
    ReadMessageTitle(path, subject, recipient);
    ReadMessageInfo(path, info);
    if (MoveTo(AccountFolder::Expired, path, CBatchFolder::Times::Keep) == Moved::No) return false;
    LogFormat(LogLevelNotice, "Message \"%s\" to %s has expired and will not be sent.", subject.c_str(),
              recipient.c_str());
    AppendForAll(info, DeliveryStatus::Expired, "Too old to be sent.");
    const std::lock_guard guard(lock);
    ++totals.expired;
    return true;
}

bool CDispatcher::CState::RemoveSent(const std::string& messageFile) {
    if (!Platform::RemoveFile(messageFile)) {
        SetLastErrorFromSystem();
        LogFormat(LogLevelNotice,
                  "Message in file \"%s\" has been just sent and it may get sent again to the same recipient. Please "
                  "contact support and cite the description of the error. We suggest that you exit the application "
                  "that caused the error. Error occurred while trying to move the message to the \"Sent\" folder: %s",
                  messageFile.c_str(), DescribeLastError().c_str());
        return false;
    }
    return FlushFolderOf(messageFile);
}

bool CDispatcher::CState::FreeParked() {
    CBatchFolder* parked = account.GetFolder(AccountFolder::Parked);
    CBatchFolder* waiting = account.GetFolder(AccountFolder::Waiting);
    const std::int64_t now = clock();
    if (parked == nullptr || waiting == nullptr ||
        !parkedWalk.Begin(GetAccountFolderPath(account.GetRootFolder(), AccountFolder::Parked), now)) {
        return false;
    }
    const auto isDue = [&](const std::string& path) {
        Platform::FileStatus status;
        return Platform::GetFileStatus(path, status) && now - QueuedAt(status) > ParkedSeconds;
    };
    bool isFreed = true;
    for (const std::string& path : parkedWalk.Collect(isDue)) {
        if (IsExpired(path, expiry)) {
            Expire(path);
        } else if (!parked->MoveMessageTo(path, *waiting) && Platform::FileIsThere(path)) {
            isFreed = false;
        }
    }
    return isFreed;
}

bool CDispatcher::CState::FreeAll() {
    parkedWalk.StartAnew();
    deferredWalk.StartAnew();
    do {
        if (!FreeParked()) return false;
    } while (parkedWalk.isWalking);
    do {
        if (!FreeDeferred()) return false;
    } while (deferredWalk.isWalking);
    return true;
}

}  // namespace SendDaemon
