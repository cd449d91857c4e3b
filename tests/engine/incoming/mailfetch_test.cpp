#include "engine/incoming/mailfetch.h"

#include <filesystem>
#include <map>

#include "app/heartbeat.h"
#include "engine/incoming/cycletransaction.h"
#include "engine/incoming/fetchedheader.h"
#include "engine/incoming/inboxmessage.h"
#include "platform/process.h"
#include "tests/engine/incoming/scriptedmailbox.h"
#include "tests/engine/messagefixture.h"
#include "tests/servers/popserver.h"

namespace {

using CTurn = CScriptedMailbox::CTurn;
using Turn = CScriptedMailbox::Turn;

using Counts = std::map<std::string, int>;

constexpr std::int64_t Now = 1'800'000'000;

class MailFetch : public MessageTest {
protected:
    MailFetch() { Platform::SetFlushEnabled(false); }
    ~MailFetch() override { Platform::SetFlushEnabled(true); }

    static CScriptedMailbox::CMessage Message(const std::string& subject) {
        return {"id-" + subject, "From: a@x.example\r\nX-Lhv-Forged: 1\r\nSubject: " + subject + "\r\n\r\nbody\r\n"};
    }

    CFetchOptions Options() const {
        CFetchOptions options;
        options.host = "127.0.0.1";
        options.port = m_server.GetPort();
        options.login = options.password = "news";
        options.timeoutSeconds = 20;
        return options;
    }

    static void Keep(CCycleState& state, const std::vector<CInboxMessage>& group) {
        CCycleTransaction transaction(state);
        std::string path;
        for (const CInboxMessage& message : group)
            EXPECT_TRUE(PutIntoInbox(message, List, transaction, path)) << DescribeLastError();
        EXPECT_TRUE(transaction.Commit()) << DescribeLastError();
    }

    // One session; the inbox then holds what it held before and what came.
    CMailFetch::Step Fetch(const CFetchOptions& options, std::int64_t now = Now) {
        CCycleState state;
        EXPECT_TRUE(state.Open(List) && state.Recover()) << DescribeLastError();
        CMailFetch fetch(List, state, options);
        std::vector<CInboxMessage> group;
        auto step = fetch.Open() ? CMailFetch::Step::Group : CMailFetch::Step::Failed;
        while (step == CMailFetch::Step::Group) {
            step = fetch.Next(now, group);
            Keep(state, group);
        }
        if (step == CMailFetch::Step::End && !fetch.Finish(now)) step = CMailFetch::Step::Failed;
        m_totals = fetch.GetTotals();
        m_reason = step == CMailFetch::Step::Failed ? GetLastErrorText() : "";
        EXPECT_EQ(m_reason.empty(), step == CMailFetch::Step::End);
        return step;
    }

    // Subjects of what lies in the queue; one that has none counts as "".
    static Counts Subjects(const std::string& queue = GetInboxFolder(List)) {
        Counts subjects;
        for (const std::string& path : QueuedFiles(queue)) {
            const std::string text = Get(path);
            const std::size_t at = std::min(text.find("Subject: "), text.size() - 9) + 9;
            EXPECT_TRUE(text.starts_with("X-Lhv-Received: ") && text.find("\r\nX-Lhv-Server-Id: ") < 40) << path;
            EXPECT_EQ(text.substr(0, text.find("\r\n\r\n")).find("Forged"), std::string::npos);
            ++subjects[text.substr(at, text.find('\r', at) - at)];
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(GetDataFolder()))
            EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
        return subjects;
    }

    static constexpr std::uint32_t List = 7;
    CScriptedMailbox m_server;
    CFetchTotals m_totals;
    std::string m_reason;
};

Turn Answer(const std::string& to, const std::string& answer, bool closes = false) {
    return [=](const std::string& command) {
        const bool isDue = to.empty() ? command.empty() : command.starts_with(to);
        return isDue ? std::optional(CTurn{answer, closes}) : std::nullopt;
    };
}

// Whatever the server does at whatever point: when it behaves again every
// message has come once, and is gone there.
TEST_F(MailFetch, AfterAnyMisbehaviourEachMessageHasComeOnce) {
    const std::string huge(5'000'000, 'x');
    const CTurn faults[] = {{"", true},
                            {"-ERR no\r\n"},
                            {"220 hello\r\n"},
                            {std::string("+OK \0\0\r\n\0\r\n.\r\n", 15)},
                            {"+OK " + huge, true},
                            {"+OK\r\n1 " + huge + "\r\n.\r\n"},
                            {"+OK\r\n1 1\r\nFrom: a", true},
                            {"+OK\r\n-1 -1\r\n4294967297 99999999999999999999\r\n.\r\n"},
                            {"+OK\r\n.\r\n+OK\r\n"}};
    for (const std::string stage : {"", "USER", "PASS", "LIST", "UIDL", "RETR 1", "RETR 3", "DELE 2", "QUIT"}) {
        for (const CTurn& fault : faults) {
            SCOPED_TRACE(stage + ": " + fault.answer.substr(0, 20));
            const CTemporaryDataFolder folder;
            m_server.Set({Message("one"), Message("two"), Message("three")}, Answer(stage, fault.answer, fault.closes));
            Fetch(Options());
            m_server.SetTurn({});
            ASSERT_EQ(Fetch(Options()), CMailFetch::Step::End) << m_reason;
            Counts all = Subjects();
            if (stage.starts_with("RETR") && all.erase("") > 0) all[stage == "RETR 1" ? "one" : "three"] = 1;
            EXPECT_EQ(all, (Counts{{"one", 1}, {"three", 1}, {"two", 1}}));
            EXPECT_EQ(m_server.Count(), 0u);
        }
    }
}

// Those behind it come, those before it are deleted, and the failure is told.
TEST_F(MailFetch, AMessageThatBreaksEverySessionIsInNobodysWay) {
    m_server.Set({Message("one"), Message("two"), Message("three")}, Answer("RETR 2", "+OK\r\nFrom: a", true));
    EXPECT_EQ(Fetch(Options()), CMailFetch::Step::Failed);
    EXPECT_EQ(Subjects(), (Counts{{"one", 1}, {"three", 1}}));
    EXPECT_EQ(m_server.Count(), 1u);
    m_server.SetTurn({});
    EXPECT_EQ(Fetch(Options()), CMailFetch::Step::End) << m_reason;
    EXPECT_EQ(Subjects(), (Counts{{"one", 1}, {"three", 1}, {"two", 1}}));
    EXPECT_EQ(m_server.Count(), 0u);
}

TEST_F(MailFetch, KnownMessagesStayKnownWhateverTheIds) {
    auto doubled = Message("two");
    doubled.uid = "id-one";
    auto unspeakable = Message("two");
    unspeakable.uid = "\x01";
    const struct {
        const char* what;
        CScriptedMailbox::CMessage second;
        Turn turn;
    } rows[] = {{"good", Message("two"), {}},
                {"id given twice", doubled, {}},
                {"nonsense", unspeakable, {}},
                {"no ids", Message("two"), Answer("UIDL", "-ERR what?\r\n")}};
    CFetchOptions options = Options();
    options.leaveCopies = options.saveIncoming = true;
    constexpr std::int64_t Day = 86400;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const CTemporaryDataFolder folder;
        const std::vector<CScriptedMailbox::CMessage> mailbox = {Message("one"), row.second};
        for (const std::int64_t day : {0, 3, 6}) {  // once its mailbox is not there
            m_server.Set(day == 3 ? std::vector<CScriptedMailbox::CMessage>() : mailbox, row.turn);
            ASSERT_EQ(Fetch(options, Now + day * Day), CMailFetch::Step::End) << m_reason;
            EXPECT_EQ(m_totals.fetched, day == 0 ? 2u : 0u);
        }
        EXPECT_EQ(Subjects(), (Counts{{"one", 1}, {"two", 1}}));
        EXPECT_EQ(Subjects(GetReceivedFolder(List)), Subjects());
        {
            CCycleState state;
            ASSERT_TRUE(state.Open(List) && state.Recover());
            CCycleTransaction transaction(state);
            for (const std::string& path : QueuedFiles(GetInboxFolder(List))) {
                const std::string text = Get(path);
                const std::size_t at = text.find("-Id: ") + 5;
                EXPECT_TRUE(MarkForRemoval(transaction, text.substr(at, text.find('\r', at) - at)));
                transaction.RemoveMessage(path);
                if (m_server.Count() == 2) break;
            }
            ASSERT_TRUE(transaction.Commit());
        }
        ASSERT_EQ(Fetch(options, Now + 7 * Day), CMailFetch::Step::End) << m_reason;
        EXPECT_EQ(m_server.Count(), 1u);
        EXPECT_EQ(m_totals.known, 2u);
        m_server.Set({}, row.turn);
        for (const std::int64_t day : {15, 16})
            ASSERT_EQ(Fetch(options, Now + day * Day), CMailFetch::Step::End) << m_reason;
        CCycleState state;
        ASSERT_TRUE(state.Open(List));
        EXPECT_TRUE(state.ForEachMark(MarkKind::ServerMessage, [](std::string_view key, std::string_view) {
            ADD_FAILURE() << key;
            return true;
        }));
    }
}

// Ids that go over to other messages, and messages that get other ids.
TEST_F(MailFetch, AnIdIsNotAMessage) {
    const auto numbered = [](std::initializer_list<const char*> subjects) {
        std::vector<CScriptedMailbox::CMessage> messages;
        for (const std::string subject : subjects)
            messages.push_back({std::to_string(messages.size() + 1), Message(subject).text});
        return messages;
    };
    const struct {
        bool leavesCopies;
        std::vector<CScriptedMailbox::CMessage> first, second;
        Counts expected;
    } rows[] = {
        {false, numbered({"one"}), numbered({"two"}), {{"one", 1}, {"two", 1}}},  // as no answer to QUIT came
        {true,
         numbered({"a", "bb", "ccc"}),
         numbered({"bb", "ccc", "dddd"}),
         {{"a", 1}, {"bb", 1}, {"ccc", 1}, {"dddd", 1}}},
        {true, numbered({"a", "bb"}), numbered({"bb", "a"}), {{"a", 1}, {"bb", 1}}},
        {true, {Message("a"), Message("bb")}, numbered({"a", "bb", "c"}), {{"a", 1}, {"bb", 1}, {"c", 1}}},
    };
    for (const auto& row : rows) {
        const CTemporaryDataFolder folder;
        CFetchOptions options = Options();
        options.leaveCopies = row.leavesCopies;
        m_server.Set(row.first, row.leavesCopies ? Turn() : Answer("QUIT", "", true));
        Fetch(options);
        for (int session = 0; session < 2; ++session) {
            m_server.Set(row.second);
            EXPECT_EQ(Fetch(options), CMailFetch::Step::End) << m_reason;
            EXPECT_EQ(Subjects(), row.expected);
        }
        EXPECT_EQ(m_server.Count(), row.leavesCopies ? row.second.size() : 0u);
    }
}

TEST_F(MailFetch, OfATooLargeMessageOnlyTheHeaderComes) {
    const Turn noTop = Answer("TOP", "-ERR what?\r\n");
    const Turn vanished = [](const std::string& command) {
        const bool isDue = command == "RETR 2" || command.starts_with("TOP 2");
        return isDue ? std::optional(CTurn{"-ERR gone\r\n"}) : std::nullopt;
    };
    const struct {
        const char* size;
        std::size_t repeated;
        bool limits;
        bool removes;
        Turn turn;
        std::uint64_t tooLarge;
        std::size_t left;
    } rows[] = {{"", 3'000'000, true, false, {}, 1, 1},  {"", 3'000'000, true, true, noTop, 1, 0},
                {"10", 3'000'000, true, true, {}, 1, 0}, {"", 3'000'000, false, true, {}, 0, 0},
                {"", 3'000, true, true, vanished, 0, 1}, {"18446744073709551615", 0, false, false, {}, 1, 1},
                {"99999999", 0, false, false, {}, 0, 0}, {"10", 30'000, false, false, {}, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.size) + " " + std::to_string(row.repeated));
        const CTemporaryDataFolder folder;
        auto large = Message("large");
        large.size = row.size;
        large.repeated = row.repeated;  // 200 MB
        m_server.Set({Message("one"), large, Message("three")}, row.turn);
        CFetchOptions options = Options();
        options.limitSize = row.limits;
        options.maxSize = 100'000;
        options.removeTooLarge = row.removes;
        const std::uint64_t before = Platform::ResidentMemory();
        const bool isVanished = row.left == 1 && row.tooLarge == 0;
        for (const std::uint64_t session : {1u, 2u}) {
            ASSERT_EQ(Fetch(options), CMailFetch::Step::End) << m_reason;
            EXPECT_EQ(m_totals.tooLarge, session == 1 ? row.tooLarge : 0);
            EXPECT_EQ(m_totals.vanished, isVanished ? 1u : 0u);
            if (isVanished) break;  // the numbers are others now
        }
        EXPECT_LT(Platform::ResidentMemory(), before + 40'000'000);
        EXPECT_EQ(m_server.Count(), row.left);
        Counts expected{{"large", 1}, {"one", 1}, {"three", 1}};
        if (isVanished) expected.erase("large");
        EXPECT_EQ(Subjects(), expected);
        for (const std::string& path : QueuedFiles(GetInboxFolder(List))) {
            std::string text;
            ASSERT_TRUE(ReadFileStart(path, 1000, text));
            const bool isCut = text.find("X-Lhv-Too-Large: ") != std::string::npos;
            EXPECT_EQ(isCut, row.tooLarge == 1 && text.find("large\r\n") != std::string::npos) << text;
            EXPECT_EQ(text.find("body") == std::string::npos, isCut) << text;
        }
    }
}

TEST_F(MailFetch, ControlFieldsOfStrangersGo) {
    const std::string own = "X-Lhv-Received: 5\r\nX-Lhv-Server-Id: id\r\n";
    const struct {
        const char* header;
        const char* kept;
    } rows[] = {
        {"A: 1\r\nX-Lhv-Inbox: x\r\n fold\r\n\tfold\r\nB: 2\r\n\r\nX-Lhv-Body: stays\r\n",
         "A: 1\r\nB: 2\r\n\r\nX-Lhv-Body: stays\r\n"},
        {"x-LHV-received : 5\r\nX-zq-A\t: 1\r\nX-ZQ-Loop: a\r\nx-zq-loop : b\r\nX-ZQ-Loops: c\r\n\r\n",
         "X-ZQ-Loop: a\r\nx-zq-loop : b\r\n\r\n"},
        {" X-Lhv-A: 1\r\n fold of nothing\r\nA: 1\r\n X-Lhv-B: a fold\r\n\r\n", "A: 1\r\n X-Lhv-B: a fold\r\n\r\n"},
        {"A: 1\nX-Lhv-A: 1\n\nbody\n", "A: 1\r\n\r\nbody\n"},
        {"A: 1\rX-Lhv-A: 1\r\r\nB: 2\r\r\n\r\nbody\r", "A: 1\r\nB: 2\r\n\r\nbody\r"},
        {"A: 1\r\n\rX-Lhv-A: 1\r\n\r X-Lhv-B: 1\r\nB: 2\r\n\r\n", "A: 1\r\nB: 2\r\n\r\n"},
        {"X-Lhv-A\r\nX-Lhv-\r\nX-Lh\r\nX-Lhv-A: end", "X-Lh\r\n"},
        {"\r\nX-Lhv-A: body\r\n", "\r\nX-Lhv-A: body\r\n"},
        {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(CleanFetchedHeader(row.header, 5, "id"), own + row.kept) << row.header;
        CFetchedHeader bytewise;
        std::string text;
        for (const char c : std::string_view(row.header))
            bytewise.Add({&c, 1}, text);
        bytewise.Finish(text);
        EXPECT_EQ(text, row.kept);
    }
    const std::string blanks(2'000'000, ' ');
    EXPECT_EQ(CleanFetchedHeader("X-Lhv-A" + blanks + ": 1\r\n" + blanks + "\r\nA:\r\n\r\n", 5, "id"),
              own + "A:\r\n\r\n");
}

TEST_F(MailFetch, WhoOnlySaysThatCommandsMayFollowEachOtherIsAskedOneByOne) {
    m_server.TakeOneByOne();
    m_server.Set({Message("one"), Message("two"), Message("three")}, Answer("CAPA", "+OK\r\nPIPELINING\r\n.\r\n"));
    CFetchOptions options = Options();
    options.timeoutSeconds = 2;
    EXPECT_EQ(Fetch(options), CMailFetch::Step::End) << m_reason;
    EXPECT_EQ(m_totals.deleted, 3u);
    EXPECT_EQ(m_server.Count(), 0u);
}

// A mailbox that comes slowly is no thread that hangs.
TEST_F(MailFetch, WithEachMessageTheCallersHeartBeats) {
    using namespace std::chrono;
    CHeartbeat heart;
    heart.BeOfThisThread();
    const auto lastBeat = [&heart] { return steady_clock::now() - heart.GetSilence(); };
    const auto isWithin10s = [](const std::function<bool()>& happens) {
        for (const auto end = steady_clock::now() + 10s; !happens() && steady_clock::now() < end;)
            std::this_thread::yield();
        return happens();
    };
    steady_clock::time_point before;
    bool hasBeaten = false;
    m_server.Set({Message("one"), Message("two")}, [&](const std::string& command) -> std::optional<CTurn> {
        if (command == "RETR 1") {
            before = lastBeat();
            isWithin10s([&] { return heart.GetSilence() > 50ms; });
        } else if (command == "RETR 2") {
            hasBeaten = isWithin10s([&] { return lastBeat() > before + 20ms; });
        }
        return std::nullopt;
    });
    Fetch(Options());
    StopBeating();
    EXPECT_TRUE(hasBeaten);
}

TEST_F(MailFetch, ARealServerWithATlsPortAndAnInterruptedSession) {
    TestServers::CPopServer server;
    if (!server.IsInstalled()) GTEST_SKIP() << server.WhyNot();
    server.AddUser("news", "a word");
    ASSERT_TRUE(server.Start()) << server.WhyNot();
    constexpr std::size_t Count = CMailFetch::GroupSize * 3 / 2;
    Counts expected;
    for (std::size_t i = 0; i < Count; ++i) {
        const std::string subject = std::to_string(i);
        server.AddMessage("news", subject, Message(subject).text);
        expected[subject] = 1;
    }
    NewList list;
    CCatalogue& catalogue = GetCatalogue();
    const std::int32_t index = catalogue.Create(list);
    CFetchOptions options;
    for (const std::string host : {"127.0.0.1:0", "127.0.0.1:x", "", "127.0.0.1:"}) {
        catalogue.SetText(index, ListColumn::PopHost, host);
        EXPECT_EQ(ReadFetchOptions(catalogue.GetListNumber(index), options), host.empty()) << host;
    }
    catalogue.SetText(index, ListColumn::PopHost, "127.0.0.1:" + std::to_string(server.GetPort()));
    catalogue.SetText(index, ListColumn::PopLogin, "news");
    catalogue.SetText(index, ListColumn::PopPassword, "a word");
    ASSERT_TRUE(ReadFetchOptions(catalogue.GetListNumber(index), options)) << DescribeLastError();
    {
        CCycleState state;
        ASSERT_TRUE(state.Open(List) && state.Recover());
        CMailFetch fetch(List, state, options);
        std::vector<CInboxMessage> group;
        ASSERT_TRUE(fetch.Open()) << DescribeLastError();
        ASSERT_EQ(fetch.Next(Now, group), CMailFetch::Step::Group);
        EXPECT_EQ(group.size(), CMailFetch::GroupSize);
        Keep(state, group);
        ASSERT_EQ(fetch.Next(Now, group), CMailFetch::Step::Group);  // not kept: comes again
    }
    EXPECT_EQ(server.CountMessages("news"), Count);
    ASSERT_EQ(Fetch(options), CMailFetch::Step::End) << m_reason;
    EXPECT_EQ(m_totals.known, CMailFetch::GroupSize);
    EXPECT_EQ(m_totals.deleted, Count);
    EXPECT_EQ(Subjects(), expected);
    EXPECT_EQ(server.CountMessages("news"), 0u);
}

}  // namespace
