#include "engine/eventlog.h"

#include <atomic>
#include <chrono>
#include <future>

#include "app/logcontext.h"
#include "app/settings.h"
#include "engine/loglistener.h"
#include "platform/faultplan.h"
#include "tests/engine/memberfixture.h"
#include "utility/files.h"
#include "utility/lhvexception.h"
#include "utility/text.h"

namespace {

class CEventLogTest : public CDataFolderTest {
protected:
    ~CEventLogTest() override { SetLogView({}); }

    static std::string ReadLog() {
        std::string content;
        ReadWholeFile(GetLogFileName(), content);
        return content;
    }
};

// Which of the levels 0 to 6 are written.
TEST_F(CEventLogTest, SettingsDecideWhatIsLogged) {
    const struct {
        int enable, errorsOnly, debugMode;
        const char* levels;
    } rows[] = {{1, 0, 0, "01236"},   {0, 0, 2, ""},    {1, 1, 0, "12"},   {1, 0, 1, "012346"},
                {1, 0, 2, "0123456"}, {1, 1, 1, "124"}, {1, 1, 2, "1245"}, {0, 1, 0, ""}};
    for (const auto& row : rows) {
        WriteSetting("Service", "EnableLogging", row.enable);
        WriteSetting("Service", "LogErrorsOnly", row.errorsOnly);
        WriteSetting("Execution", "DebugMode", row.debugMode);
        TrimLog(0);
        std::string expected;
        for (int level = 0; level <= 6; ++level) {
            EXPECT_EQ(IsLogged(level), std::string(row.levels).find(std::to_string(level)) != std::string::npos);
            Log(level, "level %d", level);
        }
        const std::string log = ReadLog();
        std::string written;
        for (const auto line : Split(log, '\n')) {
            if (!line.empty()) written += line.back();
        }
        EXPECT_EQ(written, row.levels) << row.enable << row.errorsOnly << row.debugMode;
    }
}

TEST_F(CEventLogTest, LinesComeBackAsTheyWereLogged) {
    const struct {
        int level;
        const char* context;
        const char* text;
        const char* message;
    } rows[] = {{LogWarning, "", "plain", "plain"},
                {LogError, "Sender 1", "disk [full]", "(Sender 1) disk [full]"},
                {LogFatal, "a [b] c", "x", "(a [b] c) x"},
                {LogInfo, "", "one\r\ntwo\n", "onetwo"},
                {LogInfo, "", "  blanks  ", "blanks"},
                {LogError, "", "", ""},
                {LogInfo, "",
                 "\x1b[1m\tx\xc2\x9b"
                 "2m",
                 "?[1m\tx?2m"}};
    for (const auto& row : rows) {
        std::string seen;
        SetLogView([&](const std::string& line) { seen = line; });
        TrimLog(0);
        const CLogContext context(row.context);
        Log(row.level, "%s", row.text);
        EXPECT_EQ(ReadLog(), seen + "\n");
        EXPECT_EQ(seen.find('['), 26U);
        EXPECT_EQ(TrimRight(seen.substr(26, 14)), LogLevelTag(row.level));
        std::string time;
        std::string message;
        int level = -1;
        ASSERT_TRUE(ParseLogLine(seen, time, &level, &message));
        EXPECT_EQ(level, row.level);
        EXPECT_EQ(message, row.message);
        EXPECT_EQ(time.size(), 24U) << time;  // Wed Jun  9 21:49:08 2021
        EXPECT_EQ(time[10], ' ');
    }
}

TEST_F(CEventLogTest, LinesThatAreNone) {
    std::string time;
    std::string message;
    int level = 0;
    for (const char* line : {"", "no tag", "time [INFO", "time [NOTICE] text", "time [info] text"}) {
        EXPECT_FALSE(ParseLogLine(line, time, &level, &message)) << line;
    }
    EXPECT_TRUE(ParseLogLine("time  [NOTICE] text ", time, nullptr, &message));
    EXPECT_EQ(time + "|" + message, "time|text");
    EXPECT_TRUE(ParseLogLine("time [cut", time, nullptr, &message));
    EXPECT_EQ(time + "|" + message, "time|");
}

TEST_F(CEventLogTest, TrimKeepsWholeLinesOfTheLastHalf) {
    std::string content;
    for (int i = 0; content.size() < 3000; ++i)
        content += FormatText("line %04d\n", i);  // 10 bytes each
    const struct {
        std::uint64_t maxBytes;
        std::size_t keptFrom;
    } rows[] = {{2000, 2010}, {3000, 0}, {2999, 1510}, {1990, 2010}, {1, 3000}};
    for (const auto& row : rows) {
        ASSERT_TRUE(WriteFileAtomically(GetLogFileName(), content));
        TrimLog(row.maxBytes);
        EXPECT_EQ(ReadLog(), content.substr(row.keptFrom)) << row.maxBytes;
        EXPECT_EQ(GetLogSize(), content.size() - row.keptFrom);
    }
    for (unsigned n = 1;; ++n) {
        ASSERT_TRUE(WriteFileAtomically(GetLogFileName(), content));
        const Platform::CFaultPlan plan(Platform::Operation::Any, n);
        TrimLog(2000);
        if (!plan.WasHit()) break;
        const std::string after = ReadLog();
        EXPECT_TRUE(after == content || after == content.substr(2010)) << n;
    }
}

TEST_F(CEventLogTest, SaveAs) {
    EXPECT_THROW(SaveLogAs(PathOf("copy.txt")), CLhvException);  // nothing logged yet
    Log(LogInfo, "kept");
    ASSERT_TRUE(WriteFileAtomically(PathOf("copy.txt"), "older"));
    SaveLogAs(PathOf("copy.txt"));
    std::string copy;
    ASSERT_TRUE(ReadWholeFile(PathOf("copy.txt"), copy));
    EXPECT_EQ(copy, ReadLog());
    EXPECT_THROW(SaveLogAs(GetLogFileName()), CLhvException);
    EXPECT_THROW(SaveLogAs(PathOf("missing/copy.txt")), CLhvException);
    EXPECT_EQ(ReadLog(), copy);
}

TEST_F(CEventLogTest, TheListenerGetsLinesOfOthers) {
    EXPECT_FALSE(WriteLogLineToMailslot("nobody listens"));
    CLogListener listener;
    std::promise<void> done;
    std::vector<std::string> lines;
    ASSERT_TRUE(listener.Start([&](const std::string& line) {
        lines.push_back(line);
        if (lines.size() == 3) done.set_value();
    }));
    CLogListener second;
    EXPECT_FALSE(second.Start([](const std::string&) {}));
    for (const char* line : {"one", "two", "three\n"})
        EXPECT_TRUE(WriteLogLineToMailslot(line));
    ASSERT_EQ(done.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    listener.Stop();
    EXPECT_FALSE(listener.IsListening());
    EXPECT_EQ(lines, (std::vector<std::string>{"one", "two", "three"}));
}

}  // namespace
