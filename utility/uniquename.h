// uniquename.h - names that no other file of a folder has or gets.
//
// A file name is a random decimal number, a dot and an extension; a folder name
// the number alone.  All processes that make such names for a data folder hold
// one named mutex while they do.
//
// A file that must never be seen half-written goes through CNewFile: it is
// written under NUMBER.tmp, and takes its NUMBER.EXT name when it is whole.
//
// Errors   false, with the reason in the last-error text.
// Crash    A crash before Publish() leaves a .tmp file, which nobody reads.
//          Folders are flushed by Publish() alone; the others leave that to the
//          caller, who knows how many names go together.

#ifndef LISTHAVEN_UTILITY_UNIQUENAME_H
#define LISTHAVEN_UTILITY_UNIQUENAME_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/file.h"

class CNewFile {
public:
    CNewFile() = default;
    CNewFile(CNewFile&& other) noexcept;
    CNewFile& operator=(CNewFile&& other) noexcept;
    ~CNewFile();  // removes what was not published, unless Keep() was called

    // After a failure of any of these nothing is left of the file.
    // note is told the temporary path before anything has that name: whoever
    // keeps a list of such files then has each that is there.  False ends it.
    using Note = std::function<bool(const std::string& temporaryPath)>;
    bool Create(std::string_view folder, std::string_view extension, const Note& note = {});
    bool Write(std::string_view bytes);
    bool Overwrite(std::uint64_t offset, std::string_view bytes);  // of what was written
    void StartFlush() noexcept { m_file.StartFlush(); }            // so that FinishWriting() has less to wait for
    bool FinishWriting();                                          // flushes and closes; the name stays NUMBER.tmp
    bool CloseUnflushed();  // for FlushTogether(): before anything names the file, or it is published
    bool Publish();         // renames; FinishWriting() first if need be

    // Fails when there is no temporary file, or when the final name is taken.
    static bool PublishAs(std::string_view temporaryPath, std::string_view finalPath);
    void Keep() noexcept;  // the .tmp file outlives this object

    bool HasFile() const noexcept { return m_owned; }
    const std::string& GetTemporaryPath() const noexcept { return m_temporaryPath; }
    const std::string& GetFinalPath() const noexcept { return m_finalPath; }

private:
    bool Discard();  // false

    Platform::CFile m_file;
    std::string m_temporaryPath;
    std::string m_finalPath;
    bool m_owned = false;
};

// Renames path into folder under a new unique name.  One rename: the file is
// at every instant in one place.
bool MoveToUniqueName(std::string_view path, std::string_view folder, std::string_view extension, std::string& newPath);

bool MakeUniqueFolder(std::string_view parent, std::string& newPath);

#endif  // LISTHAVEN_UTILITY_UNIQUENAME_H
