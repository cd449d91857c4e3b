#include "engine/broadcastfiles.h"
#include "engine/broadcastjob.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace {

// The settings go last: a job that is half removed is still one that has ended.
bool RemoveJob(const std::string& folder) {
    Platform::RemoveFile(BroadcastFile(folder, BroadcastMessageFile));
    return RemoveFolderTree(folder);
}

}  // namespace

bool CBroadcastJobs::PruneDone(std::int64_t before, std::size_t& pruned) {
    pruned = 0;
    std::vector<std::string> ended;
    const bool isListed = ForEach([&](const BroadcastInfo& job) {
        if (job.state == BroadcastState::Done || job.state == BroadcastState::Cancelled) ended.push_back(job.id);
    });
    if (!isListed) return false;
    std::string reason;
    for (const std::string& id : ended) {
        const std::string folder = JoinPath(m_root, id);
        Platform::FileStatus status;  // its settings are written once more when it ends
        if (!Platform::GetFileStatus(BroadcastFile(folder, BroadcastSettingsFile), status)) continue;
        if (status.times.modified / 1'000'000'000 >= before) continue;
        if (RemoveJob(folder))
            ++pruned;
        else
            reason = DescribeLastError();
    }
    if (!reason.empty()) SetLastErrorText(reason);
    return reason.empty();
}
