#include "app/datafolder.h"

#include <mutex>
#include <optional>

#include "platform/filestatus.h"
#include "platform/knownfolders.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "platform/profilefile.h"
#include "utility/files.h"
#include "utility/formattext.h"
#include "utility/lhvexception.h"
#include "utility/paths.h"

namespace {

constexpr const char* Environment = "LISTHAVEN_DATA_FOLDER";

struct CPlace {
    std::mutex lock;
    std::string given;     // by SetDataFolder()
    std::string resolved;  // with trailing separator; "" until first use
};

CPlace& GetPlace() {
    static CPlace place;
    return place;
}

std::string FindDataFolder(const std::string& given) {
    if (!given.empty()) return given;
    if (const auto value = Platform::EnvironmentValue(Environment); value && !value->empty()) return *value;
    const std::string common = Platform::CommonApplicationDataFolder();
    if (common.empty()) throw CLhvException("Unable to locate the application data folder.");
    return JoinPath(JoinPath(JoinPath(common, "Vantorel"), "Listhaven"), "3");
}

// A relative path would mean another folder once the working directory changes.
std::string MakeAbsolute(const std::string& path) {
    const bool isAbsolute = path.front() == '/' || path.front() == Platform::PathSeparator() ||
                            (path.size() > 1 && path[1] == ':' && Platform::PathsIgnoreCase());
    return isAbsolute ? path : JoinPath(Platform::WorkingFolder(), path);
}

void Settle(CPlace& place, const std::string& folder) {
    place.resolved = WithSeparator(MakeAbsolute(folder));
    EnsureFolder(place.resolved);
    Platform::SetNamedObjectFolder(JoinPath(place.resolved, ".locks"), JoinPath(place.resolved, ".mailslots"));
}

}  // namespace

void SetDataFolder(std::string_view folder) {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    place.given = folder;
}

void UseDataFolder(std::string_view folder) {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    place.given = folder;
    Settle(place, place.given);
}

std::string GetDataFolder() {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    if (place.resolved.empty()) Settle(place, FindDataFolder(place.given));
    return place.resolved;
}

std::string GetConfigFileName() {
    return JoinPath(GetDataFolder(), "Lhv.cfg");
}

std::string GetLogFolder() {
    std::string folder = JoinPath(GetDataFolder(), "Logs");
    EnsureFolder(folder);
    return folder;
}

std::string CheckDataFolder(std::string_view folder) {
    const std::string path(folder);
    Platform::FileStatus status;
    const bool isThere = Platform::GetFileStatus(WithoutSeparator(path), status);
    if (isThere && !status.isFolder)
        return FormatText(
            "The path \"%s\" is not a directory. Please remove the file and restart the application. \n\nThe "
            "application will now shut down.",
            path.c_str());
    if (!isThere && !EnsureFolder(path))
        return FormatText("Failed to create the data directory \"%s\". \n\nThe application will now shut down.",
                          path.c_str());
    if (Platform::GetFileStatus(WithoutSeparator(path), status) && status.isReadOnly)
        return FormatText("The path \"%s\" is readonly. \n\nThe application will now shut down.", path.c_str());
    return {};
}

std::string CheckSettingsFile() {
    const std::string path = GetConfigFileName();
    const auto fault = Platform::CheckProfileFile(path);
    if (!fault) return {};
    return path + ", line " + std::to_string(fault->line) + ": " + fault->reason;
}
