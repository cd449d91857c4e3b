// file.h - one open file, and the operations on names that go with it.
//
// Names are UTF-8 on every system, either separator is accepted.  Sizes and
// offsets are 64-bit and in bytes.
//
// Errors   false (or 0), with the reason in LastSystemError().  Nothing throws
//          but std::bad_alloc.
// Threads  A CFile belongs to one thread at a time, but ReadAt() may be called
//          from several at once.  The functions may be called from any thread.
// Crash    Nothing is certain to survive a power failure before Flush() (the
//          bytes) and FlushFolder() (the name) have returned true.  Both do
//          nothing and return true while SetFlushEnabled(false) is in force.
//          Windows has no certain flush of a folder: names reach the disk with
//          the journal of the file system, which renames and removals there
//          write through.
// Others   A file that some program has open can be renamed, replaced and
//          removed, and its name is free at once; who has it open keeps the
//          old file.  Windows knows that on its own file system only.
//          Elsewhere (shares, FAT) replacing waits up to five seconds for the
//          file to be closed, then fails: nobody should replace what he has
//          open himself.  A folder cannot be renamed there, nor on any Windows
//          file system, while something in it is open.

#ifndef LISTHAVEN_PLATFORM_FILE_H
#define LISTHAVEN_PLATFORM_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Platform {

enum class FileMode {
    Read,           // must exist
    ReadWrite,      // must exist
    OpenOrCreate,   // read and write, created when missing, never truncated
    CreateNew,      // read and write, fails when it exists
    CreateOrEmpty,  // read and write, an existing one is emptied
    Append,         // created when missing; every Write() goes to the end
};

// Who besides the owner may use a newly created file (ignored where the system
// has no such permissions; never widens what an existing file has).
enum class FileAccess {
    Group,  // owner and group read and write: 0660; on Windows as its folder says
    // For secrets: the owner only, 0600, but 0660 in a folder that hands its group on (setgid); on Windows
    // administrators and the system too, and services that have been let into the folder.
    Private,
};

class CFile {
public:
    CFile() noexcept = default;
    CFile(CFile&& other) noexcept;
    CFile& operator=(CFile&& other) noexcept;
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    ~CFile();  // closes

    bool Open(std::string_view path, FileMode mode, FileAccess access = FileAccess::Group);
    bool IsOpen() const noexcept;
    bool Close();  // true also when nothing was open

    // All of "size" bytes, or false.  got (if given) is what was read: a file
    // that ends early is false with LastSystemError() == 0.
    bool ReadAt(std::uint64_t offset, void* to, std::size_t size, std::size_t* got = nullptr) const;
    bool WriteAt(std::uint64_t offset, const void* from, std::size_t size);
    bool Write(std::string_view bytes);  // at the file pointer: the end for Append, else after the last Write()

    bool GetSize(std::uint64_t& size) const;
    bool SetSize(std::uint64_t size);  // new bytes are zero
    bool Flush();                      // to the disk, without metadata that is not needed to read it back
    void StartFlush() noexcept;        // so that a Flush() to come has less to wait for; nothing is certain yet

private:
    std::intptr_t m_handle = -1;
};

bool FlushFolder(std::string_view folder);  // the names in it

// Process-wide; on at start.
void SetFlushEnabled(bool on) noexcept;
bool IsFlushEnabled() noexcept;

// Atomic.  RenameReplacing() replaces what is at "to"; RenameNew() fails with
// IsAlreadyThere() and leaves both.  Both must be on one volume.
bool RenameReplacing(std::string_view from, std::string_view to);
bool RenameNew(std::string_view from, std::string_view to);

// Another name of the same file, on the same volume.  Fails with
// IsAlreadyThere(), and where the file system gives a file one name only.
bool LinkFile(std::string_view from, std::string_view to);

bool RemoveFile(std::string_view path);

// One level, 0770; fails with IsAlreadyThere().  On Windows as the folder around
// it says, but in the one for all users' data for its owner, administrators and
// the system.
bool MakeFolder(std::string_view path);
bool RemoveEmptyFolder(std::string_view path);  // fails with IsNotEmpty()
bool ChangeToFolder(std::string_view path);     // of the process
std::string WorkingFolder();

// The full name of a file, for libraries that open it themselves (on Windows
// with the prefix that takes the limit of 260 characters away); the same for
// names that differ in separators, "." and empty parts only.  "" for a name
// that no call finds.
std::string NameForLibraries(std::string_view path);

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_FILE_H
