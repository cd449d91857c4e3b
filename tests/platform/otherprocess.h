// otherprocess.h - runs the other process of the tests (otherprocess.cpp).

#ifndef LISTHAVEN_TESTS_PLATFORM_OTHERPROCESS_H
#define LISTHAVEN_TESTS_PLATFORM_OTHERPROCESS_H

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/childprocess.h"

class COtherProcess {
public:
    COtherProcess(const std::string& command, std::string folder, const std::vector<std::string>& further = {},
                  const Platform::ChildOptions& options = {})
        : m_folder(std::move(folder)) {
        std::filesystem::remove(m_folder + "/ready");
        std::vector<std::string> arguments = {command, m_folder};
        arguments.insert(arguments.end(), further.begin(), further.end());
        EXPECT_TRUE(child.Start(LISTHAVEN_OTHER_PROCESS, arguments, options));
    }

    bool IsThere(const std::string& file = "ready") {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!std::filesystem::exists(m_folder + "/" + file)) {
            if (!child.IsRunning() || std::chrono::steady_clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    int Wait() {
        int status = -1;
        EXPECT_TRUE(child.WaitFor(std::chrono::minutes(2), status));
        return status;
    }

    Platform::CChildProcess child;

private:
    std::string m_folder;
};

#endif  // LISTHAVEN_TESTS_PLATFORM_OTHERPROCESS_H
