// sendfixture.h - a data folder for one test, and what tests of queues share.

#ifndef LISTHAVEN_TESTS_SENDDAEMON_SENDFIXTURE_H
#define LISTHAVEN_TESTS_SENDDAEMON_SENDFIXTURE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "app/datafolder.h"
#include "platform/filestatus.h"
#include "platform/guid.h"
#include "platform/knownfolders.h"
#include "senddaemon/accountfolders.h"
#include "senddaemon/daemonlog.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/files.h"
#include "utility/lasterror.h"
#include "utility/paths.h"

namespace SendDaemon {

class CLogRecorder : public IMessageHandler {
public:
    void OnWarning(const std::string& text) override { Add(0, text); }
    void OnError(const std::string& text) override { Add(1, text); }
    void OnFatal(const std::string& text) override { Add(2, text); }
    void OnInformation(const std::string& text) override { Add(3, text); }
    void OnTrace(const std::string& text) override { Add(4, text); }

    std::vector<std::string> GetLines(int level) {
        const std::lock_guard guard(m_lock);
        return m_lines[level];
    }
    bool Contains(int level, std::string_view part) {
        const auto lines = GetLines(level);
        return std::any_of(lines.begin(), lines.end(),
                           [&](const std::string& line) { return line.find(part) != std::string::npos; });
    }

private:
    void Add(int level, const std::string& text) {
        const std::lock_guard guard(m_lock);
        m_lines[level].push_back(text);
    }
    std::mutex m_lock;
    std::map<int, std::vector<std::string>> m_lines;
};

class CSendFixture : public testing::Test {
protected:
    void SetUp() override {
        m_folder = JoinPath(Platform::TemporaryFolder(), "lhv-send-" + std::to_string(Platform::RandomNumber()));
        ASSERT_TRUE(EnsureFolder(m_folder));
        UseDataFolder(m_folder);
        SetMessageHandler(m_log);
    }
    void TearDown() override {
        SetMessageHandler(nullptr);
        EXPECT_TRUE(RemoveFolderTree(m_folder)) << GetLastErrorText();
    }

    std::string InFolder(std::string_view name) const { return WithSystemSeparators(JoinPath(m_folder, name)); }

    std::string MakeFile(std::string_view name, std::string_view content) const {
        const std::string path = InFolder(name);
        EXPECT_TRUE(EnsureFolder(ParentFolder(path)));
        EXPECT_TRUE(WriteFileAtomically(path, content));
        return path;
    }

    static std::string Message(std::string_view to, std::string_view subject = "News") {
        return "From: \"Harbour News\" <news@harbour.example>\r\nTo: " + std::string(to) +
               "\r\nSubject: " + std::string(subject) + "\r\n\r\nText\r\n";
    }

    // A number of messages in a batch folder, by name.
    std::string FillBatch(std::string_view batch, int count) const {
        for (int i = 0; i < count; ++i) {
            MakeFile(JoinPath(batch, std::to_string(i) + ".eml"), Message("m" + std::to_string(i) + "@there.example"));
        }
        return InFolder(batch);
    }

    static std::size_t CountFilesUnder(const std::string& folder, std::string_view extension = ".eml") {
        std::size_t count = 0;
        if (!std::filesystem::exists(folder)) return 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.is_regular_file() && entry.path().extension() == extension) ++count;
        }
        return count;
    }

    // Shifts the time of every message below a folder.
    static void MakeOlder(const std::string& folder, std::int64_t seconds) {
        const std::int64_t time = Platform::NanosecondsSince1970() - seconds * 1000000000;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (!entry.is_regular_file()) continue;
            EXPECT_TRUE(Platform::SetFileTimes(entry.path().string(), {.created = time, .modified = time}));
        }
    }

    std::string m_folder;
    std::shared_ptr<CLogRecorder> m_log = std::make_shared<CLogRecorder>();
};

}  // namespace SendDaemon

#endif  // LISTHAVEN_TESTS_SENDDAEMON_SENDFIXTURE_H
