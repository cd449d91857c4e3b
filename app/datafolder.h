// datafolder.h - where everything is kept.
//
// The data folder is what SetDataFolder() said, or $LISTHAVEN_DATA_FOLDER, or
// Vantorel/Listhaven/3 in the system's common application-data folder; it is
// found out once per process and made, with its parents, on first use.
//
// Errors   CLhvException "Unable to locate the application data folder.", and
//          when programs of another operating system use it: their locks and
//          ours do not see each other.  A folder that cannot be made is
//          CheckDataFolder()'s to report.
// Threads  Any, once SetDataFolder() has been called.

#ifndef LISTHAVEN_APP_DATAFOLDER_H
#define LISTHAVEN_APP_DATAFOLDER_H

#include <string>
#include <string_view>

// To be called before the first use; throws CLhvException afterwards.  A
// relative path is taken from the working folder of now.
void SetDataFolder(std::string_view folder);

// For tests, which use one folder after the other: at any time.  Does not look
// for programs of another system.
void UseDataFolder(std::string_view folder);

std::string GetDataFolder();      // with trailing separator
std::string NameDataFolder();     // likewise, but makes nothing, and as it was named
std::string GetConfigFileName();  // "Lhv.cfg" in it
std::string GetLogFolder();       // "Logs" in it, made when missing; without trailing separator

// "" when the data folder can be used, else the message that start-up ends with:
// it is no folder, cannot be made, or may not be written.
std::string CheckDataFolder(std::string_view folder);

// "" when the settings file is one (or is missing), else "FILE, line N: reason".
std::string CheckSettingsFile();

#endif  // LISTHAVEN_APP_DATAFOLDER_H
