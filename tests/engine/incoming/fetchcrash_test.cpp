#include <atomic>
#include <filesystem>
#include <fstream>

#include "engine/incoming/digests.h"
#include "platform/faultplan.h"
#include "tests/engine/incoming/processingfixture.h"
#include "tests/engine/incoming/scriptedmailbox.h"
#include "tests/platform/filespeed.h"

namespace {

class FetchCrash : public ProcessingTest {
protected:
    void SetMailbox() const {
        CCatalogue& catalogue = GetCatalogue();
        const std::int32_t index = catalogue.FindByNumber(m_list);
        catalogue.SetText(index, ListColumn::PopHost, "127.0.0.1:" + std::to_string(m_server.GetPort()));
        catalogue.SetText(index, ListColumn::PopLogin, "club");
        catalogue.SetText(index, ListColumn::PopPassword, "club");
    }

    // A request, a post, what no rule knows, and one that is not for memory.
    void Deliver(const std::string& id) {
        const auto message = [&](const std::string& from, const std::string& to, const std::string& subject) {
            return CScriptedMailbox::CMessage{subject + id, "Return-Path: <" + from + ">\r\nFrom: " + from +
                                                                "\r\nTo: " + to + "\r\nSubject: " + subject +
                                                                "\r\nMessage-ID: <" + subject + id +
                                                                "@x.example>\r\n\r\nHello " + id + "\r\n"};
        };
        auto large = message("ann@x.example", ListAddress, "large");
        large.text += std::string(70, 'x') + "\r\n";
        large.repeated = 6'000;
        m_server.Set({message("new" + id + "@x.example", CommandAddress, "subscribe"),
                      message("ann@x.example", ListAddress, "post"), large,
                      message("eve" + id + "@x.example", ListAddress, "stranger")});
    }

    CycleResult Cycle() {
        CCycleTotals totals;
        return RunMailCycle(m_list, {}, totals);
    }

    CScriptedMailbox m_server;
};

// Operations fail in turn, and all that follow: then the cycle runs
// once more as if the program had been started again.
TEST_F(FetchCrash, WhatWasInMemoryIsStillOnTheServer) {
    MakeClub(ListKind::Discussion, {"ann@x.example", "bob@x.example"});
    SetMailbox();
    Deliver("0");
    ASSERT_EQ(Cycle(), CycleResult::Done) << GetLastErrorText();
    const std::size_t sent = TakeQueue().size();
    const std::size_t collected = QueuedFiles(GetDigestEntryFolder(m_list)).size();
    ASSERT_GE(sent, 4U);  // answers to two, two copies each of two posts, or one digest entry
    const unsigned step = ByFileSpeed(11U, 55U);
    unsigned n = 0;
    for (bool wasHit = true; wasHit;) {
        Deliver(std::to_string(n += step));
        {
            const Platform::CFaultPlan plan(Platform::Operation::Any, n, Platform::CFaultPlan::After::Stays);
            Cycle();
            wasHit = plan.WasHit();
        }
        ASSERT_EQ(Cycle(), CycleResult::Done) << n << " " << GetLastErrorText();
        ASSERT_EQ(m_server.Count(), 0U) << n;
        ASSERT_TRUE(QueuedFiles(GetInboxFolder(m_list)).empty()) << n;
        ASSERT_TRUE(QueuedFiles(GetFailedFolder(m_list)).empty()) << n;
        ASSERT_EQ(TakeQueue().size(), sent) << n;
        ASSERT_EQ(QueuedFiles(GetDigestEntryFolder(m_list)).size(), collected * (n / step + 1)) << n;
    }
    EXPECT_GT(n, 50U);
}

// What has come by then is processed; of the rest nothing is fetched.
TEST_F(FetchCrash, AStopDoesNotWaitForTheGroup) {
    MakeClub(ListKind::Discussion, {"ann@x.example"});
    SetMailbox();
    Deliver("0");
    std::atomic<bool> isStopped = false;
    m_server.SetTurn([&](const std::string& command) -> std::optional<CScriptedMailbox::CTurn> {
        isStopped = isStopped || command == "RETR 2";
        return std::nullopt;
    });
    CCycleTotals totals;
    ASSERT_EQ(RunMailCycle(
                  m_list, [&] { return isStopped.load(); }, totals),
              CycleResult::Done)
        << GetLastErrorText();
    EXPECT_LE(totals.fetched, 2U);
    EXPECT_EQ(m_server.Count(), 4U - totals.processed);
}

// It falls silent at some point.  What had come whole is processed and deleted, within the time for one mailbox.
TEST_F(FetchCrash, ASlowServerHasTheTimeForOneMailboxAndNoMore) {
    MakeClub(ListKind::Discussion, {"ann@x.example"});
    SetMailbox();
    const std::pair<const char*, std::size_t> stages[] = {{"", 0},       {"USER", 0},   {"LIST", 0},  {"UIDL", 0},
                                                          {"RETR 1", 0}, {"RETR 3", 2}, {"RETR 4", 3}};
    for (const auto& [stage, count] : stages) {
        Deliver(stage);
        m_server.SetTurn([stage = std::string(stage)](const std::string& command) {
            const bool isDue = stage.empty() ? command.empty() : command.starts_with(stage);
            return isDue ? std::optional(CScriptedMailbox::CTurn{stage[0] == 'R' ? "+OK\r\nFrom: a" : ""})
                         : std::nullopt;
        });
        CCycleControl control;
        CycleResult result = CycleResult::Done;
        CCycleTotals totals;
        auto limit = std::chrono::milliseconds(100);  // more, where a machine is slow
        do {
            control.LimitMailbox(limit *= 2);
            const auto began = std::chrono::steady_clock::now();
            result = RunMailCycle(m_list, {}, totals, &control);
            EXPECT_LT(std::chrono::steady_clock::now() - began, 2 * limit + std::chrono::seconds(20)) << stage;
        } while (m_server.Count() != 4 - count && limit < std::chrono::seconds(10));
        EXPECT_EQ(m_server.Count(), 4 - count) << stage;
        EXPECT_EQ(totals.processed, count) << stage;
        EXPECT_EQ(result, *stage == 'R' ? CycleResult::Cut : CycleResult::Failed) << stage;
        m_server.SetTurn({});
        ASSERT_EQ(RunMailCycle(m_list, {}, totals), CycleResult::Done) << GetLastErrorText();
        EXPECT_EQ(totals.processed, 4U) << stage;
        EXPECT_EQ(m_server.Count(), 0U) << stage;
    }
}

// What a group has done by then counts.
TEST_F(FetchCrash, AGroupIsLeftWhenTheServerEnds) {
    MakeClub(ListKind::Discussion);
    for (const char* from : {"ann@x.example", "ben@x.example", "cid@x.example", "dan@x.example"})
        Receive(from, CommandAddress, "help");
    int asked = 0;
    const auto stop = [&asked] { return ++asked > 3; };
    CCycleTotals totals;
    EXPECT_EQ(ProcessInbox(m_list, stop, totals, m_now), CycleResult::Done);
    EXPECT_TRUE(totals.processed > 0 && totals.processed < 4) << totals.processed;
    EXPECT_EQ(QueuedFiles(GetInboxFolder(m_list)).size(), 4 - totals.processed);
    Process();
    EXPECT_EQ(TakeQueue().size(), 4U);
}

// One that its rules cannot be applied to comes into the inbox, and the mailbox is emptied.
TEST_F(FetchCrash, WhatCannotBeProcessedWaitsInTheInbox) {
    MakeClub(ListKind::Discussion, {"ann@x.example"});
    SetMailbox();
    Deliver("0");
    ASSERT_EQ(Cycle(), CycleResult::Done);
    TakeQueue();
    std::filesystem::remove_all(GetDigestEntryFolder(m_list));
    std::ofstream(GetDigestEntryFolder(m_list)) << "no folder";
    Deliver("1");
    Cycle();
    std::filesystem::remove(GetDigestEntryFolder(m_list));
    ASSERT_EQ(Cycle(), CycleResult::Done) << GetLastErrorText();
    EXPECT_EQ(QueuedFiles(GetDigestEntryFolder(m_list)).size(), 2U);
    EXPECT_TRUE(QueuedFiles(GetInboxFolder(m_list)).empty());
    EXPECT_EQ(m_server.Count(), 0U);
}

}  // namespace
