// flushfiles.h - many files onto the disk at once.
//
// File systems with a journal put what is flushed at the same time into one
// commit, so a hundred files together cost little more than a few in a row.
//
// Errors   false, with the reason of the first failure in the last-error text
//          and in Platform::LastSystemError(); the others may be flushed or not.
//          A file whose flush failed is not to be flushed again as if nothing
//          had happened: the system may have dropped its bytes.
// Threads  Any; each call has its own for as long as it lasts.
// Crash    True: the bytes of the files, and the names in the folders, survive
//          a power failure.  Does nothing while flushing is disabled (platform/file.h).

#ifndef LISTHAVEN_UTILITY_FLUSHFILES_H
#define LISTHAVEN_UTILITY_FLUSHFILES_H

#include <span>
#include <string>

// Closed files, and folders; each path should be given once.
bool FlushTogether(std::span<const std::string> files, std::span<const std::string> folders);

// A folder that is gone has no names that could be lost.
bool FlushFoldersThatAreThere(std::span<const std::string> folders);

#endif  // LISTHAVEN_UTILITY_FLUSHFILES_H
