#include "platform/directorysearch.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <utility>

#include "platform/faultplan.h"
#include "platform/namepattern.h"
#include "platform/posix/systempath.h"

namespace Platform {

struct CDirectorySearch::CState {
    CState(DIR* opened, CNamePattern wanted) : folder(opened), pattern(std::move(wanted)) {}
    CState(const CState&) = delete;
    CState& operator=(const CState&) = delete;
    ~CState() { closedir(folder); }

    DIR* folder;
    CNamePattern pattern;

    bool IsFolder(const dirent& entry) const {
        if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return entry.d_type == DT_DIR;
        struct stat status;
        return fstatat(dirfd(folder), entry.d_name, &status, 0) == 0 && S_ISDIR(status.st_mode);
    }
};

CDirectorySearch::CDirectorySearch() = default;
CDirectorySearch::CDirectorySearch(CDirectorySearch&&) noexcept = default;
CDirectorySearch& CDirectorySearch::operator=(CDirectorySearch&&) noexcept = default;
CDirectorySearch::~CDirectorySearch() = default;

bool CDirectorySearch::Open(std::string_view folder, std::string_view pattern) {
    Close();
    if (HitsFault(Operation::Open)) return false;
    CNamePattern wanted;
    if (!wanted.Set(pattern)) return false;
    DIR* opened = opendir(SystemPath(folder).c_str());
    if (!opened) return false;
    m_state = std::make_unique<CState>(opened, std::move(wanted));
    return true;
}

CDirectorySearch::Step CDirectorySearch::Next(DirectoryEntry& entry) {
    if (!m_state) {
        errno = EBADF;
        return Step::Failed;
    }
    for (;;) {
        errno = 0;
        const dirent* found = readdir(m_state->folder);
        if (!found) return errno == 0 ? Step::NoMoreFiles : Step::Failed;
        if (!m_state->pattern.Matches(found->d_name)) continue;
        entry.name = found->d_name;
        entry.isFolder = m_state->IsFolder(*found);
        return Step::Entry;
    }
}

bool CDirectorySearch::IsOpen() const noexcept {
    return m_state != nullptr;
}

void CDirectorySearch::Close() noexcept {
    m_state.reset();
}

}  // namespace Platform
