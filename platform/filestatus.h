// filestatus.h - what the system knows of a file without opening it.
//
// Times are nanoseconds since 1970-01-01 00:00 UTC.  "created" is the time of
// creation where the system lets a program set it, else it equals "modified":
// a file that is put into a queue anew gets both set by SetFileTimes().
//
// Errors   false, with the reason in LastSystemError().

#ifndef LISTHAVEN_PLATFORM_FILESTATUS_H
#define LISTHAVEN_PLATFORM_FILESTATUS_H

#include <cstdint>
#include <string_view>

namespace Platform {

struct FileTimes {
    std::int64_t created = 0;
    std::int64_t modified = 0;
};

struct FileStatus {
    bool isFolder = false;
    std::uint64_t size = 0;
    std::uint64_t identity = 0;  // differs for two files that exist at one time on one volume
    FileTimes times;
};

bool GetFileStatus(std::string_view path, FileStatus& status);
bool SetFileTimes(std::string_view path, const FileTimes& times);

bool MayWrite(std::string_view path);  // this process, so far as the rights say

bool FileIsThere(std::string_view path);    // a file, not a folder
bool FolderIsThere(std::string_view path);  // a folder

// Now, by the clock that stamps files.  SecondsSince1970() is the same cut to seconds.
std::int64_t NanosecondsSince1970();
std::int64_t SecondsSince1970();

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_FILESTATUS_H
