// directorysearch.h - walks the entries of one folder, one at a time.
//
// Patterns are "*", "*.*" (both: every entry) and "*.EXT" (EXT without regard
// to case).  "." and ".." are given like every other entry.  The order is the
// system's; entries added or removed during the walk may or may not be seen.
// No step reads more of the folder than it needs.
//
// Errors   Open() returns false, Next() returns Step::Failed, with the reason
//          in LastSystemError().  A folder that is missing fails in Open().
// Threads  One thread at a time.

#ifndef LISTHAVEN_PLATFORM_DIRECTORYSEARCH_H
#define LISTHAVEN_PLATFORM_DIRECTORYSEARCH_H

#include <memory>
#include <string>
#include <string_view>

namespace Platform {

struct DirectoryEntry {
    std::string name;  // without the folder
    bool isFolder = false;
};

class CDirectorySearch {
public:
    enum class Step { Entry, NoMoreFiles, Failed };

    CDirectorySearch();
    CDirectorySearch(CDirectorySearch&&) noexcept;
    CDirectorySearch& operator=(CDirectorySearch&&) noexcept;
    ~CDirectorySearch();  // closes

    bool Open(std::string_view folder, std::string_view pattern);  // closes what was open
    Step Next(DirectoryEntry& entry);                              // Failed when not open
    bool IsOpen() const noexcept;
    void Close() noexcept;

private:
    struct CState;
    std::unique_ptr<CState> m_state;
};

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_DIRECTORYSEARCH_H
