// messagefile.h - puts message files into folders, under new unique names.
//
// extraHeaders is "" or whole header lines ended by LF (a missing last one is
// added); they go in front of the message's own header.
//
// Errors   false, with the reason in the last-error text; what the call had
//          made by then is removed.
// Threads  Any.
// Crash    Into a folder only whole files are published.  A move without extra
//          headers is one rename; with them a crash can leave both files.

#ifndef LISTHAVEN_SENDDAEMON_MESSAGEFILE_H
#define LISTHAVEN_SENDDAEMON_MESSAGEFILE_H

#include <span>
#include <string>
#include <string_view>

// Replaces "target".
bool CopyMessageFile(std::string_view source, std::string_view target, std::string_view extraHeaders);

// Leaves out the fields of the names "dropped", and keeps the times.  The file
// is the old or the new one.
bool RewriteMessageHeader(std::string_view path, std::string_view extraHeaders,
                          std::span<const std::string_view> dropped);

// These make the folder when it is missing; "" as folder fails.
bool CopyMessageToFolder(std::string_view source, std::string_view folder, std::string_view extraHeaders,
                         std::string& newPath);
bool MoveMessageToFolder(std::string_view source, std::string_view folder, std::string_view extraHeaders,
                         std::string& newPath);
bool WriteMessageToFolder(std::string_view text, std::string_view folder, std::string& newPath);

#endif  // LISTHAVEN_SENDDAEMON_MESSAGEFILE_H
