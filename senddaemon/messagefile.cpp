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
#include "utility/text.h"
#include "utility/uniquename.h"

namespace {

constexpr std::size_t LargestHeader = std::size_t{1} << 20;
constexpr std::size_t CopyBlock = 256 * 1024;
constexpr std::string_view MessageExtension = "eml";

bool AppendFile(std::string_view source, std::uint64_t offset, CNewFile& target) {
    Platform::CFile file;
    std::uint64_t size = 0;
    if (!file.Open(source, Platform::FileMode::Read) || !file.GetSize(size)) {
        SetLastErrorFromSystem();
        return false;
    }
    std::vector<char> block(static_cast<std::size_t>(std::min<std::uint64_t>(size, CopyBlock)));
    while (offset < size) {
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
    return AppendFile(source, 0, target);
}

bool ReplaceBy(CNewFile& file, std::string_view target) {
    const std::string folder = ParentFolder(target);
    if (!Platform::RenameReplacing(file.GetTemporaryPath(), target)) {
        SetLastErrorFromSystem();
        return false;
    }
    file.Keep();
    if (Platform::FlushFolder(folder.empty() ? "." : folder)) return true;
    SetLastErrorFromSystem();
    return false;
}

// The lines of the header that stay; read says how far the text was looked at.
// One that continues nothing would continue what is put in front.
std::string KeepFields(std::string_view text, std::span<const std::string_view> dropped, std::size_t& read) {
    std::string kept;
    bool isDropped = true;
    for (read = 0; read < text.size();) {
        const std::size_t lf = text.find('\n', read);
        if (lf == std::string_view::npos) break;
        const std::string_view line = text.substr(read, lf + 1 - read);
        if (TrimRight(line).empty()) break;
        const std::size_t colon = line.find(':');
        if (line.front() != ' ' && line.front() != '\t' && colon != std::string_view::npos) {
            const std::string_view name = Trim(line.substr(0, colon));
            isDropped = std::any_of(dropped.begin(), dropped.end(),
                                    [&](std::string_view each) { return EqualNoCase(each, name); });
        }
        if (!isDropped) kept += line;
        read = lf + 1;
    }
    return kept;
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
    return ReplaceBy(copy, target);
}

bool RewriteMessageHeader(std::string_view path, std::string_view extraHeaders,
                          std::span<const std::string_view> dropped) {
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status)) {
        SetLastErrorFromSystem();
        return false;
    }
    std::string start;
    std::size_t read = 0;
    CNewFile file;
    if (!ReadFileStart(path, LargestHeader, start)) return false;
    const std::string kept = KeepFields(start, dropped, read);
    if (!file.Create(ParentFolder(path), MessageExtension) || !file.Write(extraHeaders) || !file.Write(kept) ||
        !AppendFile(path, read, file) || !file.FinishWriting()) {
        return false;
    }
    Platform::SetFileTimes(file.GetTemporaryPath(), status.times);  // a failure costs no message
    return ReplaceBy(file, path);
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
