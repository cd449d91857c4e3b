#include "utility/files.h"

#include <string>
#include <vector>

#include "platform/directorysearch.h"
#include "platform/filemode.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace {

constexpr int DeepestFolder = 200;

bool FailOn(std::string_view path) {
    const Platform::SystemError code = Platform::LastSystemError();
    SetLastErrorText(std::string(path) + ": " + Platform::SystemErrorText(code));
    Platform::SetLastSystemError(code);
    return false;
}

// A file that is replaced keeps its permissions.
bool KeepMode(std::string_view path, const std::string& name) {
    return !Platform::FileIsThere(path) || Platform::CopyFileMode(path, name);
}

// Removes a file unless it was given up.
class CScrap {
public:
    explicit CScrap(std::string path) : m_path(std::move(path)) {}
    CScrap(const CScrap&) = delete;
    CScrap& operator=(const CScrap&) = delete;
    ~CScrap() {
        if (m_path.empty()) return;
        const Platform::SystemError code = Platform::LastSystemError();
        Platform::RemoveFile(m_path);
        Platform::SetLastSystemError(code);
    }
    void Keep() { m_path.clear(); }

private:
    std::string m_path;
};

// In the folder of path, so that it can be renamed over it.
bool OpenBeside(std::string_view path, Platform::FileAccess access, Platform::CFile& file, std::string& name) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        name = std::string(path) + "." + std::to_string(Platform::RandomNumber()) + ".new";
        if (file.Open(name, Platform::FileMode::CreateNew, access)) return true;
        if (!Platform::IsAlreadyThere(Platform::LastSystemError())) return false;
    }
    return false;
}

bool ReplaceBy(const std::string& written, std::string_view path) {
    if (!Platform::RenameReplacing(written, path)) return FailOn(path);
    const std::string folder = ParentFolder(path);
    if (!Platform::FlushFolder(folder.empty() ? "." : folder)) return FailOn(path);
    return true;
}

// A link to a folder is taken for one by the search, but can be removed like a
// file, which a folder cannot.
bool RemoveTree(const std::string& path, int depth) {
    if (Platform::RemoveFile(path)) return true;
    if (depth > DeepestFolder) {
        SetLastErrorText(path + ": the folders are nested too deeply");
        return false;
    }
    std::vector<std::string> files;
    std::vector<std::string> folders;
    if (!ListFolder(path, "*", [&](const std::string& name, bool isFolder) {
            (isFolder ? folders : files).push_back(JoinPath(path, name));
            return true;
        }))
        return false;
    for (const std::string& file : files) {
        if (!Platform::RemoveFile(file) && !Platform::IsNotFound(Platform::LastSystemError())) return FailOn(file);
    }
    for (const std::string& folder : folders) {
        if (!RemoveTree(folder, depth + 1)) return false;
    }
    return Platform::RemoveEmptyFolder(path) || FailOn(path);
}

}  // namespace

bool ReadFileStart(std::string_view path, std::size_t maxBytes, std::string& content) {
    Platform::CFile file;
    std::uint64_t size = 0;
    if (!file.Open(path, Platform::FileMode::Read) || !file.GetSize(size)) return FailOn(path);
    content.resize(size < maxBytes ? static_cast<std::size_t>(size) : maxBytes);
    std::size_t got = 0;
    const bool whole = file.ReadAt(0, content.data(), content.size(), &got);
    content.resize(got);
    // A file that became shorter meanwhile is read as far as it goes.
    return whole || Platform::LastSystemError() == 0 || FailOn(path);
}

bool ReadWholeFile(std::string_view path, std::string& content) {
    return ReadFileStart(path, static_cast<std::size_t>(-1), content);
}

bool WriteFileAtomically(std::string_view path, std::string_view content, Platform::FileAccess access) {
    Platform::CFile file;
    std::string name;
    if (!OpenBeside(path, access, file, name)) return FailOn(path);
    CScrap scrap(name);
    if (access == Platform::FileAccess::Group && !KeepMode(path, name)) return FailOn(path);
    if (!file.Write(content) || !file.Flush() || !file.Close()) return FailOn(path);
    if (!ReplaceBy(name, path)) return false;
    scrap.Keep();
    return true;
}

bool CopyWholeFile(std::string_view from, std::string_view to) {
    constexpr std::size_t BlockSize = 256 * 1024;
    Platform::CFile source;
    if (!source.Open(from, Platform::FileMode::Read)) return FailOn(from);
    Platform::CFile target;
    std::string name;
    if (!OpenBeside(to, Platform::FileAccess::Group, target, name)) return FailOn(to);
    CScrap scrap(name);
    if (!KeepMode(to, name)) return FailOn(to);
    std::string block(BlockSize, '\0');
    for (std::uint64_t position = 0;;) {
        std::size_t got = 0;
        if (!source.ReadAt(position, block.data(), block.size(), &got) && Platform::LastSystemError() != 0)
            return FailOn(from);
        if (got == 0) break;
        if (!target.Write(std::string_view(block).substr(0, got))) return FailOn(to);
        position += got;
    }
    if (!target.Flush() || !target.Close()) return FailOn(to);
    if (!ReplaceBy(name, to)) return false;
    scrap.Keep();
    return true;
}

bool EnsureFolder(std::string_view path) {
    if (path.empty()) {
        SetLastErrorText("A folder has no name.");
        return false;
    }
    if (Platform::FolderIsThere(path)) return true;
    if (Platform::MakeFolder(path)) return true;
    if (Platform::IsNotFound(Platform::LastSystemError())) {
        const std::string parent = ParentFolder(path);
        if (parent.empty() || SamePath(parent, path)) return FailOn(path);
        if (!EnsureFolder(parent)) return false;
        if (Platform::MakeFolder(path)) return true;
    }
    // Somebody else may have made it meanwhile.
    const Platform::SystemError code = Platform::LastSystemError();
    if (Platform::FolderIsThere(path)) return true;
    Platform::SetLastSystemError(code);
    return FailOn(path);
}

bool RemoveFolderTree(std::string_view path) {
    Platform::FileStatus status;
    if (!Platform::GetFileStatus(path, status))
        return Platform::IsNotFound(Platform::LastSystemError()) || FailOn(path);
    if (!status.isFolder) {
        SetLastErrorText(std::string(path) + ": not a folder");
        return false;
    }
    return RemoveTree(WithoutSeparator(path), 0);
}

bool ListFolder(std::string_view folder, std::string_view pattern,
                const std::function<bool(const std::string& name, bool isFolder)>& visit) {
    using Platform::CDirectorySearch;
    CDirectorySearch search;
    if (!search.Open(folder, pattern)) return FailOn(folder);
    Platform::DirectoryEntry entry;
    for (;;) {
        const CDirectorySearch::Step step = search.Next(entry);
        if (step == CDirectorySearch::Step::NoMoreFiles) return true;
        if (step == CDirectorySearch::Step::Failed) return FailOn(folder);
        if (entry.name == "." || entry.name == "..") continue;
        if (!visit(entry.name, entry.isFolder)) return true;
    }
}

bool FolderIsEmpty(std::string_view folder) {
    bool empty = true;
    return ListFolder(folder, "*",
                      [&](const std::string&, bool) {
                          empty = false;
                          return false;
                      }) &&
           empty;
}
