// The ledger of deliveries, and the schedule of retries.

#include "senddaemon/deliverylog.h"

#include <atomic>
#include <set>
#include <thread>

#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/openfiles.h"
#include "senddaemon/deliveryposition.h"
#include "senddaemon/retryschedule.h"
#include "tests/senddaemon/sendfixture.h"

namespace SendDaemon {

namespace {

using Flush = CDeliveryLog::Flush;

CDeliveryLine Line(DeliveryStatus status, const std::string& message, const std::string& recipient = "a@x.example") {
    return {.time = 1700000000, .status = status, .broadcast = "7", .message = message, .recipient = recipient};
}

class DeliveryLog : public CSendFixture {
protected:
    void SetUp() override {
        CSendFixture::SetUp();
        m_root = InFolder("SendDaemon/1");
        m_path = JoinPath(m_root, DeliveryLogFileName);
        ASSERT_TRUE(EnsureFolder(m_root));
    }
    bool Add(CDeliveryLog& log, const std::string& message, Flush flush = Flush::No) const {
        const CDeliveryLine line = Line(DeliveryStatus::Sent, message);
        return log.Append({&line, 1}, flush);
    }
    // The messages of all lines, with "!" for each that could not be read.
    std::string Messages() const {
        std::string text;
        std::uint64_t skipped = 0;
        const auto visit = [&](const CDeliveryLine& line) {
            text += line.message + " ";
            return true;
        };
        EXPECT_TRUE(ForEachDeliveryLine(m_root, visit, &skipped)) << GetLastErrorText();
        return text.append(skipped, '!');
    }
    void RemoveRoot(CDeliveryLog& log) const {
        if (!Platform::OpenFilesCanBeReplaced()) log.SetUp(m_root, 0, 0);  // which closes the file
        std::filesystem::remove_all(m_root);
    }
    std::string m_root;
    std::string m_path;
};

TEST(RetrySchedule, IsReadOrLeftAsItWas) {
    const struct {
        const char* text;
        std::vector<std::int64_t> steps;
    } cases[] = {
        {"5m,1h", {300, 3600}},
        {" 30S , 2d,10", {30, 172800, 600}},
        {"365d", {31536000}},
    };
    for (const auto& row : cases) {
        CRetrySchedule schedule;
        EXPECT_TRUE(schedule.Parse(row.text)) << row.text;
        EXPECT_EQ(schedule.GetSteps(), row.steps) << row.text;
    }
    CRetrySchedule schedule;
    const auto usual = schedule.GetSteps();
    for (const char* text :
         {"", "5m,", "0m", "-5m", "5x", "m", "5 5m", "366d", "99999999999999999999s", "9223372036854775807d"})
        EXPECT_FALSE(schedule.Parse(text)) << text;
    EXPECT_EQ(schedule.GetSteps(), usual);
}

TEST(RetrySchedule, TheLastStepRepeatsAndBackOffEnds) {
    const CRetrySchedule schedule;
    const std::pair<std::uint32_t, std::int64_t> times[] = {{1, 300}, {2, 900}, {7, 28800}, {8, 28800}, {~0U, 28800}};
    for (const auto& [attempts, seconds] : times)
        EXPECT_EQ(schedule.GetNextTime(attempts, 1000), 1000 + seconds) << attempts;
    const std::pair<std::uint32_t, std::int64_t> pauses[] = {{1, 60}, {2, 120}, {5, 960}, {6, 1800}, {~0U, 1800}};
    for (const auto& [failures, seconds] : pauses)
        EXPECT_EQ(GetBackOffSeconds(failures), seconds) << failures;
}

TEST(DeliveryLine, NoValueBreaksTheLine) {
    CDeliveryLine line{.time = -1,
                       .status = DeliveryStatus::Deferred,
                       .broadcast = "",
                       .message = "a\tb\nc",
                       .recipient = std::string("x\0y@z", 5),
                       .host = "mx\r\n250 ok",
                       .code = 451,
                       .enhanced = "4.7.1",
                       .text = std::string(1023, 'x') + "\xC3\xA4" + "\x1b[2J"};
    const std::string text = FormatDeliveryLine(line);
    EXPECT_EQ(text.find('\n'), text.size() - 1);
    CDeliveryLine read;
    ASSERT_TRUE(ParseDeliveryLine(std::string_view(text).substr(0, text.size() - 1), read));
    EXPECT_EQ(read.time, -1);
    EXPECT_EQ(read.status, DeliveryStatus::Deferred);
    EXPECT_EQ(read.message + "|" + read.recipient + "|" + read.host, "a b c|x y@z|mx  250 ok");
    EXPECT_EQ(read.code, 451);
    EXPECT_EQ(read.enhanced, "4.7.1");
    EXPECT_EQ(read.text, std::string(1023, 'x'));  // and not half a character
}

TEST(DeliveryLine, OthersAreRefused) {
    CDeliveryLine line;
    ASSERT_TRUE(ParseDeliveryLine("1\tsent\t\tm\tr\t\t0\t\t", line));
    for (const char* text : {"", "1\tsent\t\tm\tr\t\t0\t", "1\tsent\t\tm\tr\t\t0\t\t\t", "\tsent\t\tm\tr\t\t0\t\t",
                             "1\tSent\t\tm\tr\t\t0\t\t", "1\tsent\t\tm\tr\t\t\t\t", "1x\tsent\t\tm\tr\t\t0\t\t",
                             "1\tsent\t\tm\tr\t\t1000\t\t", "1\tsent\t\tm\tr\t\t-1\t\t", "1\tsent\t\tm\tr\t\t0\t\tx\r"})
        EXPECT_FALSE(ParseDeliveryLine(text, line)) << text;
}

TEST_F(DeliveryLog, TornLinesEndAtTheNextAppend) {
    CDeliveryLog log;
    CDeliveryLog other;  // of another program
    log.SetUp(m_root, 0, 0);
    other.SetUp(m_root, 0, 0);
    EXPECT_EQ(Messages(), "");
    ASSERT_TRUE(Add(log, "1") && Add(other, "2") && Add(log, "3"));
    const auto tear = [&](std::string_view bytes) {
        Platform::CFile file;
        EXPECT_TRUE(file.Open(m_path, Platform::FileMode::Append) && file.Write(bytes));
    };
    tear("1700000000\tsent\t7\tdead");
    EXPECT_EQ(Messages(), "1 2 3 !");
    ASSERT_TRUE(Add(log, "4"));
    tear(std::string("\0\0\0", 3));
    ASSERT_TRUE(Add(other, "5"));
    tear(std::string(100000, 'x'));
    EXPECT_EQ(Messages(), "1 2 3 4 5 !!!");
    ASSERT_TRUE(Add(log, "6"));
    EXPECT_EQ(Messages(), "1 2 3 4 5 6 !!!");
    ASSERT_TRUE(Platform::RemoveFile(m_path));
    ASSERT_TRUE(Add(log, "7"));
    EXPECT_EQ(Messages(), "7 ");
}

TEST_F(DeliveryLog, FailuresAreTold) {
    CDeliveryLog log;
    EXPECT_FALSE(Add(log, "0"));
    log.SetUp(m_root, 0, 0);
    for (const auto operation : {Platform::Operation::Open, Platform::Operation::Write, Platform::Operation::Flush,
                                 Platform::Operation::FlushFolder}) {
        const Platform::CFaultPlan plan(operation, 1);
        EXPECT_FALSE(Add(log, "1", Flush::Yes)) << static_cast<int>(operation);
        EXPECT_TRUE(plan.WasHit()) << static_cast<int>(operation);
        EXPECT_NE(GetLastErrorText().find("delivery.log"), std::string::npos);
    }
    EXPECT_TRUE(Add(log, "2", Flush::Yes));
    EXPECT_EQ(Messages(), "1 1 2 ");
    RemoveRoot(log);
    EXPECT_FALSE(Add(log, "3"));  // of a list that is gone: its folder is not made anew
}

TEST_F(DeliveryLog, RotatesForOtherProgramsToo) {
    CDeliveryLog log;
    CDeliveryLog other;
    log.SetUp(m_root, 100, 2);  // two lines
    other.SetUp(m_root, 0, 0);
    ASSERT_TRUE(Add(other, "0"));
    for (int i = 1; i <= 6; ++i)
        ASSERT_TRUE(Add(i == 4 ? other : log, std::to_string(i)));
    EXPECT_EQ(Messages(), "0 1 2 3 4 5 6 ");
    ASSERT_TRUE(Add(log, "7") && Add(other, "8"));
    EXPECT_EQ(Messages(), "2 3 4 5 6 7 8 ");

    // An old one taken away leaves a gap.
    std::filesystem::remove(m_path + ".2");
    ASSERT_TRUE(Add(log, "9") && Add(log, "a"));
    EXPECT_EQ(Messages(), "5 6 7 8 9 a ");
    log.SetUp(m_root, 100, 1);
    ASSERT_TRUE(Add(log, "b") && Add(log, "c"));
    EXPECT_EQ(Messages(), "9 a b c ");
}

TEST_F(DeliveryLog, AReaderSeesEachLineOnceWhileItIsRotated) {
    CDeliveryLog log;
    log.SetUp(m_root, 100, 0);
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(Add(log, std::to_string(i)));
    std::string seen;
    EXPECT_TRUE(ForEachDeliveryLine(m_root, [&](const CDeliveryLine& line) {
        seen += line.message;
        EXPECT_TRUE(Add(log, "later") && Add(log, "later"));
        return line.message != "2";
    }));
    EXPECT_EQ(seen, "012");
}

TEST_F(DeliveryLog, ALedgerThatCannotBeRotatedGrows) {
    CDeliveryLog log;
    log.SetUp(m_root, 50, 3);
    ASSERT_TRUE(Add(log, "1"));
    {
        const Platform::CFaultPlan plan(Platform::Operation::Rename, 1);
        EXPECT_TRUE(Add(log, "2"));
        EXPECT_TRUE(plan.WasHit());
    }
    EXPECT_EQ(Messages(), "1 2 ");
    EXPECT_FALSE(Platform::FileIsThere(m_path + ".1"));
    EXPECT_TRUE(Add(log, "3") && Add(log, "4"));
    EXPECT_TRUE(Platform::FileIsThere(m_path + ".1"));
    EXPECT_EQ(Messages(), "1 2 3 4 ");
}

// Every line stays whole over rotations, and nobody flushes twice.
TEST_F(DeliveryLog, ThreadsKeepTheLinesOfACallTogether) {
    constexpr int Threads = 10;
    constexpr int Calls = 40;
    CDeliveryLog log;
    log.SetUp(m_root, 5000, 0);
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < Calls; ++i) {
                const std::string name = std::to_string(t) + "-" + std::to_string(i);
                const CDeliveryLine lines[] = {Line(DeliveryStatus::Accepted, name),
                                               Line(DeliveryStatus::Failed, name, "b@x.example")};
                if (!log.Append(lines, Flush::Yes)) ++failures;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_LE(log.GetFlushCount(), static_cast<std::uint64_t>(Threads * Calls));
    std::set<std::string> seen;
    std::string last;
    std::uint64_t skipped = 0;
    ForEachDeliveryLine(
        m_root,
        [&](const CDeliveryLine& line) {
            if (line.status == DeliveryStatus::Failed) {
                EXPECT_EQ(line.message, last);  // lines of one call stay together
            }
            last = line.message;
            seen.insert(line.message + line.recipient);
            return true;
        },
        &skipped);
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(2 * Threads * Calls));
    EXPECT_EQ(skipped, 0U);
}

// Each line once, however the files were rotated, and as text in between.
TEST_F(DeliveryLog, IsReadOnFromWhereItWas) {
    CDeliveryLog log;
    log.SetUp(m_root, 150, 0);
    std::string place = FormatDeliveryPosition({});
    const auto readOn = [&](std::size_t most) {
        CDeliveryPosition position;
        std::string text;
        EXPECT_TRUE(ParseDeliveryPosition(place, position));
        EXPECT_TRUE(ReadDeliveriesFrom(m_root, position, [&](const CDeliveryLine& line) {
            text += line.message + " ";
            return --most > 0;
        }));
        place = FormatDeliveryPosition(position);
        return text;
    };
    EXPECT_EQ(readOn(9), "");
    for (const char* message : {"1", "2", "3", "4", "5", "6", "7"})
        ASSERT_TRUE(Add(log, message));
    EXPECT_EQ(readOn(2), "1 2 ");
    EXPECT_EQ(readOn(3), "3 4 5 ");
    for (const char* message : {"8", "9", "10", "11", "12"})
        ASSERT_TRUE(Add(log, message));
    Platform::CFile torn;
    ASSERT_TRUE(torn.Open(m_path, Platform::FileMode::Append) && torn.Write("1700000000\tsent\t7\tdead"));
    torn.Close();
    EXPECT_EQ(readOn(99), "6 7 8 9 10 11 12 ");
    EXPECT_EQ(readOn(99), "");
    ASSERT_TRUE(Add(log, "13"));
    EXPECT_EQ(readOn(99), "13 ");
    // A copy of the data folder has other files, of the same bytes.
    std::filesystem::copy(m_root, m_root + ".copy");
    RemoveRoot(log);
    std::filesystem::rename(m_root + ".copy", m_root);
    ASSERT_TRUE(Add(log, "14"));
    EXPECT_EQ(readOn(99), "14 ");
    // Out of a backup all files are others: what is later counts.
    RemoveRoot(log);
    ASSERT_TRUE(EnsureFolder(m_root) && Add(log, "old"));
    CDeliveryLine later = Line(DeliveryStatus::Failed, "later");
    later.time += 1;
    ASSERT_TRUE(log.Append({&later, 1}, Flush::No));
    EXPECT_EQ(readOn(99), "later ");
    EXPECT_EQ(readOn(99), "");
    CDeliveryPosition end;
    EXPECT_TRUE(FindDeliveryEnd(m_root, end));
    EXPECT_EQ(FormatDeliveryPosition(end), place);
}

TEST_F(DeliveryLog, WhatWasAcceptedAndNotFiledIsFound) {
    using enum DeliveryStatus;
    const struct {
        const char* message;
        std::vector<DeliveryStatus> statuses;
        bool isUnfiled;
    } cases[] = {
        {"filed", {Accepted, Sent}, false},        {"crashed", {Accepted}, true},
        {"again", {Deferred, Accepted}, true},     {"twice", {Accepted, Sent, Requeued, Accepted}, true},
        {"requeued", {Accepted, Requeued}, false}, {"refused", {Failed}, false},
    };
    CDeliveryLog log;
    log.SetUp(m_root, 150, 0);  // over several small files
    for (const auto& row : cases) {
        for (const DeliveryStatus status : row.statuses) {
            const CDeliveryLine line = Line(status, row.message);
            ASSERT_TRUE(log.Append({&line, 1}, Flush::No));
        }
    }
    const CDeliveryLine odd = Line(Accepted, "odd\tname", "b@x.example");
    ASSERT_TRUE(log.Append({&odd, 1}, Flush::No));
    CUnfiledDeliveries unfiled;
    ASSERT_TRUE(unfiled.Load(m_root));
    std::size_t expected = 1;
    for (const auto& row : cases) {
        EXPECT_EQ(unfiled.Contains(row.message, "a@x.example"), row.isUnfiled) << row.message;
        EXPECT_FALSE(unfiled.Contains(row.message, "b@x.example")) << row.message;
        expected += row.isUnfiled ? 1 : 0;
    }
    EXPECT_TRUE(unfiled.Contains("odd\tname", "b@x.example"));
    std::size_t count = 0;
    unfiled.ForEach([&](const CDeliveryLine& line) { count += line.status == Accepted && line.broadcast == "7"; });
    EXPECT_EQ(count, expected);
}

}  // namespace

}  // namespace SendDaemon
