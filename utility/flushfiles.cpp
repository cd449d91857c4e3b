#include "utility/flushfiles.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/file.h"
#include "platform/systemerror.h"
#include "utility/lasterror.h"

namespace {

// They wait for the disk, not for a processor.
constexpr std::size_t MostThreads = 16;
constexpr std::size_t FewestPerThread = 2;

enum class GoneFolder { Fails, IsDone };

// Open for writing: not every system flushes a file that is only read.
bool FlushFile(const std::string& path) {
    Platform::CFile file;
    return file.Open(path, Platform::FileMode::ReadWrite) && file.Flush() && file.Close();
}

class CFlushing {
public:
    CFlushing(std::span<const std::string> files, std::span<const std::string> folders, GoneFolder gone)
        : m_files(files), m_folders(folders), m_gone(gone) {}

    bool Run();

private:
    void Work() noexcept;
    bool Flush(std::size_t index) const;
    void Fail(const std::string& path);

    std::span<const std::string> m_files;
    std::span<const std::string> m_folders;
    GoneFolder m_gone;
    std::atomic<std::size_t> m_next = 0;
    std::atomic<bool> m_hasFailed = false;
    std::mutex m_lock;
    std::string m_failedPath;
    Platform::SystemError m_error{};
};

bool CFlushing::Run() {
    const std::size_t total = m_files.size() + m_folders.size();
    std::vector<std::jthread> threads;
    try {
        for (std::size_t i = 1; i < std::min(MostThreads, total / FewestPerThread); ++i)
            threads.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {  // those that there are do it
    }
    Work();
    threads.clear();
    if (!m_hasFailed) return true;
    SetLastErrorText(m_failedPath + ": " + Platform::SystemErrorText(m_error));
    Platform::SetLastSystemError(m_error);
    return false;
}

void CFlushing::Work() noexcept {
    const std::size_t total = m_files.size() + m_folders.size();
    for (std::size_t i = m_next++; i < total && !m_hasFailed; i = m_next++) {
        if (!Flush(i)) Fail(i < m_files.size() ? m_files[i] : m_folders[i - m_files.size()]);
    }
}

bool CFlushing::Flush(std::size_t index) const {
    if (index < m_files.size()) return FlushFile(m_files[index]);
    return Platform::FlushFolder(m_folders[index - m_files.size()]) ||
           (m_gone == GoneFolder::IsDone && Platform::IsNotFound(Platform::LastSystemError()));
}

void CFlushing::Fail(const std::string& path) {
    const Platform::SystemError error = Platform::LastSystemError();
    const std::lock_guard guard(m_lock);
    if (m_hasFailed) return;
    m_failedPath = path;
    m_error = error;
    m_hasFailed = true;
}

bool FlushAll(std::span<const std::string> files, std::span<const std::string> folders, GoneFolder gone) {
    return !Platform::IsFlushEnabled() || CFlushing(files, folders, gone).Run();
}

}  // namespace

bool FlushTogether(std::span<const std::string> files, std::span<const std::string> folders) {
    return FlushAll(files, folders, GoneFolder::Fails);
}

bool FlushFoldersThatAreThere(std::span<const std::string> folders) {
    return FlushAll({}, folders, GoneFolder::IsDone);
}
