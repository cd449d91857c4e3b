#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "app/datafolder.h"
#include "app/settings.h"
#include "app/thisapp.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "tests/platform/temporaryfolder.h"
#include "utility/paths.h"

namespace {

// Writes down what it is asked, with the mark of the running program at that time.
class CRecordingFrontEnd : public IFrontEnd {
public:
    std::string calls;
    std::string stop;
    std::string problem;
    bool hasOtherWindow = true;
    bool hasSplash = true;
    bool wantsRepair = false;
    bool repairWorks = true;

    bool ActivateOtherInstance() override { return Called("activate", hasOtherWindow); }
    bool ShowSplash() override { return Called("splash", hasSplash); }
    void CloseSplash() override { Called("close", true); }
    bool PrepareControls() override { return Called("controls", true); }
    bool RegisterMainWindow() override {
        EXPECT_TRUE(SamePath(std::filesystem::canonical(Platform::WorkingFolder()).string(),
                             std::filesystem::canonical(GetDataFolder()).string()));
        return Called("class", true);
    }
    bool AskForRepair() override { return Called("ask", wantsRepair); }
    bool Repair() override { return Called("repair", repairWorks); }
    bool LoadMainWindow() override {
        EXPECT_EQ(ReadSetting("Execution", "WasShutDown", 1), 0);
        return Called("window", true);
    }
    bool RunFirstSetup() override { return Called("setup", true); }
    void OpenLogWindow(bool visible) override { Called(visible ? "log" : "hiddenlog", true); }
    void ReportStop(const std::string& message) override { stop = message; }
    void ReportProblem(const std::string& message) override { problem = message; }

private:
    bool Called(const std::string& what, bool answer) {
        calls += (calls.empty() ? "" : " ") + what;
        return answer;
    }
};

class StartUp : public testing::Test {
protected:
    void SetUp() override { UseDataFolder(folder.GetPath()); }
    void TearDown() override { ASSERT_TRUE(Platform::ChangeToFolder(former)); }

    // What there is, and when it was last changed.
    std::map<std::string, std::int64_t> Files() const {
        std::map<std::string, std::int64_t> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.GetPath())) {
            Platform::FileStatus status;
            EXPECT_TRUE(Platform::GetFileStatus(entry.path().string(), status));
            files[entry.path().string()] = status.times.modified;
        }
        return files;
    }

    static int Mark() { return ReadSetting("Execution", "WasShutDown", -1); }

    const std::string former = Platform::WorkingFolder();
    const CTemporaryFolder folder;
    CRecordingFrontEnd frontEnd;
};

}  // namespace

TEST_F(StartUp, GoesThroughItsStepsInOrder) {
    ASSERT_TRUE(WriteSetting("Log Details Window", "LoadAtStartup", 1));
    {
        CThisApp app(frontEnd);
        EXPECT_TRUE(app.InitInstance());
        EXPECT_EQ(frontEnd.calls, "splash controls class window close setup hiddenlog");
        EXPECT_EQ(Mark(), 0);
        app.ExitInstance();
        EXPECT_EQ(Mark(), 1);
    }
    // The second time: set up, with the log shown and a splash that fails.
    frontEnd = CRecordingFrontEnd();
    frontEnd.hasSplash = false;
    ASSERT_TRUE(WriteSetting("Log Details Window", "ShowAtStartup", 1));
    CThisApp app(frontEnd);
    EXPECT_TRUE(app.InitInstance());
    EXPECT_EQ(frontEnd.calls, "splash controls class window log");
    EXPECT_EQ(frontEnd.problem, "Failed to create splash screen");
    EXPECT_EQ(ReadSetting("General", "ShowSplash", 1), 0);
    EXPECT_EQ(frontEnd.stop, "");
}

TEST_F(StartUp, AsksForRepairAfterACrash) {
    const struct {
        bool wantsRepair, repairWorks, starts;
        const char* calls;
    } table[] = {
        {false, true, true, "splash controls class ask window close setup"},
        {true, true, true, "splash controls class ask repair window close setup"},
        {true, false, false, "splash controls class ask repair close"},
    };
    for (const auto& row : table) {
        ASSERT_TRUE(WriteSetting("Execution", "WasShutDown", 0) && WriteSetting("Execution", "Configured", 0));
        frontEnd = CRecordingFrontEnd();
        frontEnd.wantsRepair = row.wantsRepair;
        frontEnd.repairWorks = row.repairWorks;
        CThisApp app(frontEnd);
        EXPECT_EQ(app.InitInstance(), row.starts);
        EXPECT_EQ(frontEnd.calls, row.calls);
        app.ExitInstance();
        EXPECT_EQ(Mark(), row.starts ? 1 : 0);
    }
}

TEST_F(StartUp, ASecondInstanceTouchesNothing) {
    CThisApp first(frontEnd);
    ASSERT_TRUE(first.InitInstance());
    const auto before = Files();

    CRecordingFrontEnd other;
    CThisApp second(other);
    EXPECT_FALSE(second.InitInstance());
    EXPECT_EQ(other.calls, "activate");
    EXPECT_EQ(other.stop, "");
    other.hasOtherWindow = false;
    EXPECT_FALSE(second.InitInstance());
    EXPECT_EQ(other.stop, "Another instance of this application is already running. ");
    second.ExitInstance();
    EXPECT_EQ(Files(), before);

    first.ExitInstance();
    EXPECT_TRUE(second.InitInstance());
}

TEST_F(StartUp, StopsAtAFolderOrSettingsFileThatIsNone) {
    Put(folder / "file", "x");
    UseDataFolder(folder / "file");
    EXPECT_FALSE(CThisApp(frontEnd).InitInstance());
    EXPECT_EQ(frontEnd.stop.find("The path \"" + folder / "file"), 0U) << frontEnd.stop;
    EXPECT_NE(frontEnd.stop.find("is not a directory"), std::string::npos);
    EXPECT_EQ(frontEnd.calls, "");

    UseDataFolder(folder.GetPath());
    Put(GetConfigFileName(), "[Service]\nno setting\n");
    EXPECT_FALSE(CThisApp(frontEnd).InitInstance());
    EXPECT_EQ(frontEnd.stop.find(GetConfigFileName() + ", line 2: "), 0U) << frontEnd.stop;
    EXPECT_EQ(Get(GetConfigFileName()), "[Service]\nno setting\n");
}
