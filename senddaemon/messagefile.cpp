#include "senddaemon/messagefile.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "platform/file.h"
#include "platform/filestatus.h"
#include "platform/systemerror.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"
#include "utility/uniquename.h"

namespace {

constexpr std::size_t CopyBlock = 256 * 1024;
constexpr std::string_view MessageExtension = "eml";

bool AppendFile(std::string_view source, CNewFile& target) {
    Platform::CFile file;
    std::uint64_t size = 0;
    if (!file.Open(source, Platform::FileMode::Read) || !file.GetSize(size)) {
        SetLastErrorFromSystem();
        return false;
    }
    std::vector<char> block(static_cast<std::size_t>(std::min<std::uint64_t>(size, CopyBlock)));
    for (std::uint64_t offset = 0; offset < size;) {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, block.size()));
        if (!file.ReadAt(offset, block.data(), length)) {
            SetLastErrorFromSystem();
            return false;
        }
        if (!target.Write(std::string_view(block.data(), length))) return false;
        offset += length;
    }
    return true;
}

bool WriteCopy(std::string_view source, std::string_view extraHeaders, CNewFile& target) {
    if (!extraHeaders.empty()) {
        std::string headers(extraHeaders);
        if (headers.back() != '\n') headers += '\n';
        if (!target.Write(headers)) return false;
    }
    return AppendFile(source, target);
}

// A name that could not be flushed is taken back: the caller will try again.
bool PublishOrRemove(CNewFile& file, std::string& newPath) {
    if (!file.Publish()) {
        if (!Platform::FileIsThere(file.GetTemporaryPath())) Platform::RemoveFile(file.GetFinalPath());
        return false;
    }
    newPath = file.GetFinalPath();
    return true;
}

bool NeedFolder(std::string_view folder) {
    if (folder.empty()) {
        SetLastErrorText("No folder is given for the message.");
        return false;
    }
    return EnsureFolder(folder);
}

}  // namespace

bool CopyMessageFile(std::string_view source, std::string_view target, std::string_view extraHeaders) {
    if (extraHeaders.empty()) return CopyWholeFile(source, target);
    const std::string folder = ParentFolder(target);
    CNewFile copy;
    if (!copy.Create(folder.empty() ? "." : folder, MessageExtension) || !WriteCopy(source, extraHeaders, copy) ||
        !copy.FinishWriting()) {
        return false;
    }
    if (!Platform::RenameReplacing(copy.GetTemporaryPath(), target)) {
        SetLastErrorFromSystem();
        return false;
    }
    copy.Keep();
    if (!Platform::FlushFolder(folder.empty() ? "." : folder)) {
        SetLastErrorFromSystem();
        return false;
    }
    return true;
}

bool CopyMessageToFolder(std::string_view source, std::string_view folder, std::string_view extraHeaders,
                         std::string& newPath) {
    CNewFile copy;
    return NeedFolder(folder) && copy.Create(folder, MessageExtension) && WriteCopy(source, extraHeaders, copy) &&
           PublishOrRemove(copy, newPath);
}

bool MoveMessageToFolder(std::string_view source, std::string_view folder, std::string_view extraHeaders,
                         std::string& newPath) {
    if (extraHeaders.empty()) return NeedFolder(folder) && MoveToUniqueName(source, folder, MessageExtension, newPath);
    std::string copy;
    if (!CopyMessageToFolder(source, folder, extraHeaders, copy)) return false;
    if (!Platform::RemoveFile(source)) {
        const auto code = Platform::LastSystemError();
        Platform::RemoveFile(copy);
        SetLastErrorFromSystem(code);
        return false;
    }
    newPath = copy;
    return true;
}

bool WriteMessageToFolder(std::string_view text, std::string_view folder, std::string& newPath) {
    CNewFile file;
    return NeedFolder(folder) && file.Create(folder, MessageExtension) && file.Write(text) &&
           PublishOrRemove(file, newPath);
}
