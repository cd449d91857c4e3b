#include "platform/directorysearch.h"

#include <windows.h>

#include <utility>

#include "platform/faultplan.h"
#include "platform/namepattern.h"
#include "platform/win32/systempath.h"

namespace Platform {

struct CDirectorySearch::CState {
    explicit CState(CNamePattern wanted) : pattern(std::move(wanted)) {}
    CState(const CState&) = delete;
    CState& operator=(const CState&) = delete;
    ~CState() {
        if (search != INVALID_HANDLE_VALUE) FindClose(search);
    }

    HANDLE search = INVALID_HANDLE_VALUE;  // also when the folder holds nothing at all
    WIN32_FIND_DATAW found = {};
    bool isFresh = false;  // "found" was not given yet
    CNamePattern pattern;  // the system's own patterns match the short names too

    Step Advance() {
        if (isFresh) {
            isFresh = false;
            return Step::Entry;
        }
        if (search == INVALID_HANDLE_VALUE) return Step::NoMoreFiles;
        if (FindNextFileW(search, &found)) return Step::Entry;
        return GetLastError() == ERROR_NO_MORE_FILES ? Step::NoMoreFiles : Step::Failed;
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
    std::wstring path = SystemPath(folder);
    if (path.empty()) {
        SetLastError(ERROR_PATH_NOT_FOUND);
        return false;
    }
    path += path.ends_with(L'\\') ? L"*" : L"\\*";
    auto state = std::make_unique<CState>(std::move(wanted));
    state->search = FindFirstFileExW(path.c_str(), FindExInfoBasic, &state->found, FindExSearchNameMatch, nullptr,
                                     FIND_FIRST_EX_LARGE_FETCH);
    state->isFresh = state->search != INVALID_HANDLE_VALUE;
    // A root folder, which has no "." and "..", may be empty.
    if (!state->isFresh && GetLastError() != ERROR_FILE_NOT_FOUND) return false;
    m_state = std::move(state);
    return true;
}

CDirectorySearch::Step CDirectorySearch::Next(DirectoryEntry& entry) {
    if (!m_state) {
        SetLastError(ERROR_INVALID_HANDLE);
        return Step::Failed;
    }
    for (;;) {
        const Step step = m_state->Advance();
        if (step != Step::Entry) return step;
        entry.name = FromWide(m_state->found.cFileName);
        if (!m_state->pattern.Matches(entry.name)) continue;
        entry.isFolder = (m_state->found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
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
