// filelook.h - whether a file is still the one that was read.
//
// Errors   CLhvException for a file that is there and cannot be looked at.
// Threads  A CFileLook belongs to one thread at a time; IsFresh() may be called
//          from several while nobody notes.  A CFileLookStay is of its thread.

#ifndef LISTHAVEN_ENGINE_FILELOOK_H
#define LISTHAVEN_ENGINE_FILELOOK_H

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

// Two changes within one tick of the clock that stamps files can look alike.
inline constexpr std::int64_t FileClockTick = 20'000'000;  // nanoseconds, generously

struct FileLook {
    std::uint64_t identity = 0;
    std::uint64_t size = 0;
    std::int64_t modified = 0;

    bool operator==(const FileLook&) const = default;
};
std::optional<FileLook> LookAtFile(const std::string& path);  // nothing when there is none

// While it lives, its thread asks each CFileLook only once about the file: for
// work that is over in a moment.
class CFileLookStay {
public:
    CFileLookStay() noexcept;
    CFileLookStay(const CFileLookStay&) = delete;
    CFileLookStay& operator=(const CFileLookStay&) = delete;
    ~CFileLookStay();
};

class CFileLook {
public:
    CFileLook() = default;
    CFileLook(const CFileLook&) = delete;
    CFileLook& operator=(const CFileLook& other) noexcept;

    void Note(const std::string& path);  // before it is read
    void Forget() noexcept { m_isNoted = false; }
    bool IsFresh(const std::string& path) const;  // what was read then still holds

private:
    bool Holds(const std::string& path) const;

    bool m_isNoted = false;
    std::optional<FileLook> m_look;
    std::int64_t m_notedAt = 0;
    mutable std::atomic<std::uint64_t> m_stay{0};  // in which it was fresh; 0: none
};

#endif  // LISTHAVEN_ENGINE_FILELOOK_H
