// files.h - whole files and folders.
//
// Errors   false, with the reason in the last-error text (lasterror.h) and in
//          Platform::LastSystemError().
// Threads  Any.
// Crash    A file written by WriteFileAtomically() is the old or the new one.

#ifndef LISTHAVEN_UTILITY_FILES_H
#define LISTHAVEN_UTILITY_FILES_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/file.h"

bool ReadWholeFile(std::string_view path, std::string& content);
bool ReadFileStart(std::string_view path, std::size_t maxBytes, std::string& content);

// Under another name in the same folder, flushed, renamed over path, folder
// flushed.  A file that is replaced keeps its permissions, except that Private
// holds always.
bool WriteFileAtomically(std::string_view path, std::string_view content,
                         Platform::FileAccess access = Platform::FileAccess::Group);

bool CopyWholeFile(std::string_view from, std::string_view to);  // replaces "to"; flushed
bool EnsureFolder(std::string_view path);                        // with all parents; false for a file of that name
bool RemoveFolderTree(std::string_view path);                    // true when it is not there; follows no links
bool ListFolder(
    std::string_view folder, std::string_view pattern,
    const std::function<bool(const std::string& name, bool isFolder)>& visit);  // no "." and ".."; stops at false
bool FolderIsEmpty(std::string_view folder);

#endif  // LISTHAVEN_UTILITY_FILES_H
