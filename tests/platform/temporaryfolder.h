// temporaryfolder.h - an empty folder for one test, removed with what is in it.

#ifndef LISTHAVEN_TESTS_PLATFORM_TEMPORARYFOLDER_H
#define LISTHAVEN_TESTS_PLATFORM_TEMPORARYFOLDER_H

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/guid.h"
#include "platform/knownfolders.h"

class CTemporaryFolder {
public:
    CTemporaryFolder() : m_path(Platform::TemporaryFolder() + "/lhv" + std::to_string(Platform::NewGuid().data1)) {
        std::filesystem::create_directory(m_path);
    }
    CTemporaryFolder(const CTemporaryFolder&) = delete;
    CTemporaryFolder& operator=(const CTemporaryFolder&) = delete;
    ~CTemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    const std::string& GetPath() const { return m_path; }
    std::string operator/(const std::string& name) const { return m_path + '/' + name; }

private:
    std::string m_path;
};

inline void Put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

inline std::string Get(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

#endif  // LISTHAVEN_TESTS_PLATFORM_TEMPORARYFOLDER_H
