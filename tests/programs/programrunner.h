// programrunner.h - runs the built program on a data folder of its own.

#ifndef LISTHAVEN_TESTS_PROGRAMS_PROGRAMRUNNER_H
#define LISTHAVEN_TESTS_PROGRAMS_PROGRAMRUNNER_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "platform/childprocess.h"
#include "platform/clock.h"
#include "platform/guid.h"
#include "platform/systemerror.h"
#include "tests/platform/filespeed.h"
#include "utility/files.h"

struct CRunResult {
    int status = -1;
    std::string output;
    std::string errors;
};

// A folder that is removed at the end, with a data folder in it that the
// program makes.
class CProgramRunner {
public:
    CProgramRunner() {
        const std::string name = "listhaven-test-" + std::to_string(Platform::NewGuid().data1);
        m_folder = (std::filesystem::temp_directory_path() / name).string();
        std::filesystem::create_directories(m_folder);
    }
    CProgramRunner(const CProgramRunner&) = delete;
    CProgramRunner& operator=(const CProgramRunner&) = delete;
    ~CProgramRunner() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    std::string Path(const std::string& name) const { return m_folder + "/" + name; }
    std::string DataFolder() const { return Path("data"); }

    std::string WriteFile(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
        return Path(name);
    }

    static std::string ReadFile(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // What it prints goes into the files stdout and stderr, with the prefix.
    bool Start(Platform::CChildProcess& child, const std::vector<std::string>& arguments,
               const std::string& program = LISTHAVEN_PROGRAM, const std::string& prefix = {}) const {
        Platform::ChildOptions options;
        options.environment = {"LISTHAVEN_DATA_FOLDER=" + DataFolder()};
        options.outputFile = Path(prefix + "stdout");
        options.errorFile = Path(prefix + "stderr");
        std::filesystem::remove(options.outputFile);
        std::filesystem::remove(options.errorFile);
        // On a busy machine Wine does not start a program now and then; nothing of it has run by then.
        int tries = ByFileSpeed(1, 5);
        while (!child.Start(program, arguments, options)) {
            const Platform::SystemError code = Platform::LastSystemError();
            std::cerr << program << " is not started: " << Platform::SystemErrorText(code) << " (" << code << ")\n";
            if (--tries == 0) return false;
            Platform::SleepMilliseconds(200);
        }
        return true;
    }

    CRunResult Run(const std::vector<std::string>& arguments) const {
        CRunResult result;
        Platform::CChildProcess child;
        if (!Start(child, arguments)) {
            ADD_FAILURE() << "the program could not be started";
            return result;
        }
        EXPECT_TRUE(child.WaitFor(std::chrono::minutes(2), result.status)) << "the program hangs";
        result.output = ReadFile(Path("stdout"));
        result.errors = ReadFile(Path("stderr"));
        return result;
    }

    std::string MustRun(const std::vector<std::string>& arguments) const {
        const CRunResult result = Run(arguments);
        EXPECT_EQ(result.status, 0) << "listhaven " << arguments.front() << ": " << result.errors;
        return result.output;
    }

    // A list that sends through the null sender, without pauses, into Path("delivered").
    void MakeNullList(const std::string& name) const {
        std::filesystem::create_directories(Path("delivered"));
        MustRun({"settings", "set", "Execution", "GenerationPause", "0"});
        MustRun({"list", "create", name, "--email", "list@lists.example", "--kind", "announcement"});
        MustRun({"account", "set", name, "SendMethod", "NullMessageSender"});
        MustRun({"account", "set", name, "TargetFolder", Path("delivered")});
        MustRun({"account", "set", name, "NullSenderWait", "0"});
    }

private:
    std::string m_folder;
};

#endif  // LISTHAVEN_TESTS_PROGRAMS_PROGRAMRUNNER_H
