// openfiles.h - what may be done to a file that somebody has open.
//
// Threads  Any.

#ifndef LISTHAVEN_PLATFORM_OPENFILES_H
#define LISTHAVEN_PLATFORM_OPENFILES_H

namespace Platform {

// Whether RenameReplacing() and RemoveFile() (file.h) take the name of a file
// that is open.  True on POSIX systems and Windows 10 or later; where it is
// false, files that others replace are to be closed between uses.
bool OpenFilesCanBeReplaced();

}  // namespace Platform

#endif  // LISTHAVEN_PLATFORM_OPENFILES_H
