// temporaryfolder.h - an empty folder for one test, removed with what is in it.

#ifndef LISTHAVEN_TESTS_PLATFORM_TEMPORARYFOLDER_H
#define LISTHAVEN_TESTS_PLATFORM_TEMPORARYFOLDER_H

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/directorysearch.h"
#include "platform/file.h"
#include "platform/guid.h"
#include "platform/knownfolders.h"

// With the functions of the platform, which take names of any length.
inline void RemoveTemporaryTree(const std::string& folder) {
    std::vector<std::string> folders;
    Platform::CDirectorySearch search;
    Platform::DirectoryEntry entry;
    search.Open(folder, "*");
    while (search.Next(entry) == Platform::CDirectorySearch::Step::Entry) {
        if (entry.name == "." || entry.name == "..") continue;
        const std::string path = folder + '/' + entry.name;
        if (!Platform::RemoveFile(path)) folders.push_back(path);
    }
    search.Close();
    for (const std::string& inner : folders)
        RemoveTemporaryTree(inner);
    Platform::RemoveEmptyFolder(folder);
}

// As the programs write names themselves.
inline std::string WithSystemSeparators(std::string path) {
    std::replace(path.begin(), path.end(), '/', Platform::PathSeparator());
    return path;
}

class CTemporaryFolder {
public:
    CTemporaryFolder()
        : m_path(
              WithSystemSeparators(Platform::TemporaryFolder() + "/lhv" + std::to_string(Platform::NewGuid().data1))) {
        if (!Platform::MakeFolder(m_path)) throw std::runtime_error(m_path);
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;
    ~CTemporaryFolder() { RemoveTemporaryTree(m_path); }

    const std::string& GetPath() const { return m_path; }
    std::string operator/(const std::string& name) const { return WithSystemSeparators(m_path + '/' + name); }

private:
    std::string m_path;
};

inline void Put(const std::string& path, const std::string& content) {
    std::ofstream(std::filesystem::path(path), std::ios::binary) << content;
}

inline std::string Get(const std::string& path) {
    std::ifstream file(std::filesystem::path(path), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

#endif  // LISTHAVEN_TESTS_PLATFORM_TEMPORARYFOLDER_H
