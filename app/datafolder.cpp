#include "app/datafolder.h"

#include <mutex>
#include <optional>

#include "platform/filestatus.h"
#include "platform/knownfolders.h"
#include "platform/namedmutex.h"
#include "platform/process.h"
#include "platform/profilefile.h"
#include "platform/systemclaim.h"
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
    bool isMade = false;
    Platform::CSystemClaim claim;
};

CPlace& GetPlace() {
    static CPlace* const place = new CPlace;  // outlives every other static object
    return *place;
}

std::string MachineFolder(const std::string& common) {
    return JoinPath(JoinPath(JoinPath(common, "Vantorel"), "Listhaven"), "3");
}

std::string FindDataFolder(const std::string& given) {
    if (!given.empty()) return given;
    if (const auto value = Platform::EnvironmentValue(Environment); value && !value->empty()) return *value;
    const std::string common = Platform::CommonApplicationDataFolder();
    if (common.empty()) throw CLhvException("Unable to locate the application data folder.");
    return MachineFolder(common);
}

// Whether it is the machine's own one, named outright or not.
bool IsMachineFolder(const std::string& folder) {
    const std::string path = WithoutSeparator(folder);
    if (!path.ends_with(MachineFolder(""))) return false;  // asking for the common folder may make it
    return Platform::CanonicalFolder(MachineFolder(Platform::CommonApplicationDataFolder())) == path;
}

// A relative path would mean another folder once the working directory changes.
std::string MakeAbsolute(const std::string& path) {
    const bool isAbsolute =
        path.find_first_of("/\\") == 0 || (path.size() > 1 && path[1] == ':' && Platform::PathSeparator() == '\\');
    return isAbsolute ? path : JoinPath(Platform::WorkingFolder(), path);
}

// One that cannot be opened is for CheckDataFolder() to report.
void Claim(CPlace& place) {
    const std::string file = JoinPath(JoinPath(place.resolved, ".locks"), "system");
    if (!place.isMade || !EnsureFolder(ParentFolder(file)) ||
        place.claim.Take(file) != Platform::CSystemClaim::Result::OtherSystem)
        return;
    place.isMade = false;
    throw CLhvException("Programs of another operating system or machine use the data folder \"" +
                        WithoutSeparator(place.resolved) + "\".");
}

// A folder that cannot be made is tried again at the next use, when the reason
// may have gone.
void Make(CPlace& place) {
    place.isMade = EnsureFolder(place.resolved);
    // Names of mutexes hold paths: all programs have to write them alike.
    place.resolved = WithSeparator(Platform::CanonicalFolder(place.resolved));
    Platform::SetNamedObjectFolder(
        JoinPath(place.resolved, ".locks"), JoinPath(place.resolved, ".mailslots"),
        IsMachineFolder(place.resolved) ? Platform::NamedObjectScope::Machine : Platform::NamedObjectScope::Folder);
}

}  // namespace

void SetDataFolder(std::string_view folder) {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    if (folder.empty()) throw CLhvException("The data folder must have a name.");
    if (!place.resolved.empty()) throw CLhvException("The data folder is already in use: " + place.resolved);
    place.given = MakeAbsolute(std::string(folder));
}

void UseDataFolder(std::string_view folder) {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    place.claim.Release();
    place.resolved = WithSeparator(MakeAbsolute(std::string(folder)));
    Make(place);
}

std::string NameDataFolder() {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    return place.resolved.empty() ? WithSeparator(MakeAbsolute(FindDataFolder(place.given))) : place.resolved;
}

std::string GetDataFolder() {
    CPlace& place = GetPlace();
    const std::lock_guard guard(place.lock);
    if (place.resolved.empty()) place.resolved = WithSeparator(MakeAbsolute(FindDataFolder(place.given)));
    if (!place.isMade) {
        Make(place);
        Claim(place);
    }
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
    bool isThere = Platform::GetFileStatus(WithoutSeparator(path), status);
    if (isThere && !status.isFolder)
        return FormatText(
            "The path \"%s\" is not a directory. Please remove the file and restart the application. \n\nThe "
            "application will now shut down.",
            path.c_str());
    if (!isThere) isThere = EnsureFolder(path) && Platform::GetFileStatus(WithoutSeparator(path), status);
    if (!isThere)
        return FormatText("Failed to create the data directory \"%s\". \n\nThe application will now shut down.",
                          path.c_str());
    if (!Platform::MayWrite(path))
        return FormatText("The path \"%s\" is readonly. \n\nThe application will now shut down.", path.c_str());
    return {};
}

std::string CheckSettingsFile() {
    const std::string path = GetConfigFileName();
    const auto fault = Platform::CheckProfileFile(path);
    if (!fault) return {};
    return path + ", line " + std::to_string(fault->line) + ": " + fault->reason;
}
