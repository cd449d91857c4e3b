// Lists that run themselves, between people with mailboxes on servers that no
// one here wrote.

#include "tests/integration/mailworld.h"
#include "tests/platform/filespeed.h"

#include <random>
#include <set>

namespace {

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

const CMail* Find(const std::vector<CMail>& mails, const std::string& subject) {
    for (const CMail& mail : mails) {
        if (mail.subject == subject) return &mail;
    }
    return nullptr;
}

// Asks, and replies to the request for a confirmation.
void Subscribe(CMailWorld& world, const std::string& person, const std::string& commands, const std::string& list) {
    const std::string address = person + "@home.example";
    world.Send({.from = address, .to = commands, .subject = "Subscribe"});
    world.Serve();
    const std::vector<CMail> mails = world.Read(person);
    ASSERT_EQ(world.Subjects(person), "Please confirm your subscription to " + list);
    EXPECT_FALSE(world.IsMember(list, address));
    world.Reply(address, mails[0]);
    world.Serve();
    EXPECT_EQ(world.Subjects(person), "Please confirm your subscription to " + list + "; Welcome to " + list);
    EXPECT_TRUE(world.IsMember(list, address));
}

}  // namespace

TEST(MailingLists, ADiscussionListRunsItself) {
    CMailWorld world({"crew", "anna", "ben", "cleo", "dora"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    world.MakeList("Crew", "crew");
    const CProgramRunner& run = world.Run();
    run.MustRun({"member", "add", "Crew", "ben@home.example", "--name", "Ben Berg"});
    run.MustRun({"member", "add", "Crew", "cleo@home.example", "--name", "Cleo Dahl", "--mode", "digest"});
    run.MustRun({"member", "add", "Crew", "dora@home.example", "--name", "Dora Holm", "--mode", "both"});
    run.MustRun({"member", "add", "Crew", "ghost@bounce.example"});
    Subscribe(world, "anna", "crew+cmd@lists.example", "Crew");

    world.Send({.from = "anna@home.example",
                .to = "crew@lists.example",
                .subject = "Tide",
                .body = "Dear $(To-First-Name), $(Unknown): high water at nine.\r\n"});
    world.Serve();
    for (const auto& [person, name] : {std::pair("ben", "Ben"), std::pair("dora", "Dora")}) {
        ASSERT_EQ(world.Subjects(person), "[Crew] Tide");
        const CMail mail = world.Read(person)[0];
        EXPECT_TRUE(Has(mail.body, std::string("Dear ") + name + ", $(Unknown): high water at nine.")) << mail.text;
        EXPECT_TRUE(Has(mail.Field("To"), "<crew@lists.example>")) << mail.text;
        EXPECT_TRUE(Has(mail.Field("From"), "anna@home.example")) << mail.text;
    }
    EXPECT_TRUE(Find(world.Read("anna"), "[Crew] Tide"));
    EXPECT_EQ(world.Subjects("cleo"), "");
    EXPECT_TRUE(world.IsMember("Crew", "ghost@bounce.example"));
    world.Serve();  // Postfix has sent the bounce
    EXPECT_FALSE(world.IsMember("Crew", "ghost@bounce.example"));
    EXPECT_TRUE(Has(run.MustRun({"bounce", "ls", "Crew"}), "ghost@bounce.example"));

    run.MustRun({"digest", "send", "Crew"});
    world.Serve();
    const std::vector<CMail> digests = world.Read("cleo");
    ASSERT_EQ(digests.size(), 1u);
    EXPECT_TRUE(Has(digests[0].text, "high water at nine") && Has(digests[0].text, "multipart/digest"))
        << digests[0].text;
    EXPECT_EQ(world.Subjects("dora"), digests[0].subject + "; [Crew] Tide");

    world.Send({.from = "anna@home.example", .to = "crew+cmd@lists.example", .subject = "unsubscribe"});
    world.Serve();
    EXPECT_FALSE(world.IsMember("Crew", "anna@home.example"));
    world.Send({.from = "anna@home.example", .to = "crew@lists.example", .subject = "Late"});
    world.Serve();
    EXPECT_EQ(world.Subjects("anna"),
              "Please confirm your subscription to Crew; Welcome to Crew; You have left Crew; "
              "Your message to Crew was not passed on; [Crew] Tide");
    EXPECT_EQ(world.Subjects("ben"), "[Crew] Tide");
    EXPECT_EQ(world.Read("crew").size(), 0u) << "nothing stays in the list's mailbox";
}

TEST(MailingLists, AnAnnouncementListIsForItsOwner) {
    CMailWorld world({"news", "boss", "anna", "ben"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    world.MakeList("News", "news", {"--kind", "announcement", "--authorized-email", "boss@home.example"});
    world.Run().MustRun({"member", "add", "News", "ben@home.example", "--name", "Ben Berg"});
    world.Run().MustRun({"member", "add", "News", "ghost@bounce.example"});
    world.Run().MustRun({"member", "add", "News", "gone@there.example"});
    world.Refuse("gone@there.example");  // at once, where the other one bounces
    Subscribe(world, "anna", "news+cmd@lists.example", "News");
    world.Send({.from = "anna@home.example", .to = "news@lists.example", .subject = "Me too"});
    world.Send({.from = "boss@home.example",
                .to = "news@lists.example",
                .subject = "Harbour fair",
                .body = "Dear $(To-Name), come!\r\n"});
    world.Serve();
    world.Serve();
    for (const char* address : {"ghost@bounce.example", "gone@there.example"})
        EXPECT_FALSE(world.IsMember("News", address)) << address;
    ASSERT_EQ(world.Subjects("ben"), "Harbour fair");
    const CMail mail = world.Read("ben")[0];
    EXPECT_TRUE(Has(mail.body, "Dear Ben Berg, come!")) << mail.text;
    EXPECT_TRUE(Has(mail.Field("From"), "<news@lists.example>")) << mail.text;
    world.Send({.from = "anna@home.example", .to = "news+cmd@lists.example", .subject = "UNSUBSCRIBE"});
    world.Serve();
    EXPECT_FALSE(world.IsMember("News", "anna@home.example"));
    EXPECT_EQ(world.Subjects("anna"),
              "Harbour fair; Please confirm your subscription to News; Welcome to News; You have left News");
    EXPECT_EQ(world.Subjects("boss"), "");
}

TEST(MailingLists, AnAutoresponderAnswersPeopleOnce) {
    CMailWorld world({"info", "anna", "ben", "list"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    world.MakeList("Info", "info", {"--kind", "autoresponder"});
    world.Set("Service", "ReplyInterval", "24");
    world.Send({.from = "anna@home.example", .to = "info@lists.example", .subject = "Opening hours?"});
    world.Send({.from = "ben@home.example",
                .to = "info@lists.example",
                .subject = "Out of office",
                .more = "Auto-Submitted: auto-replied\r\n"});
    world.Send({.from = "list@home.example",
                .to = "info@lists.example",
                .subject = "Weekly news",
                .more = "Precedence: list\r\n"});
    world.Send({.from = "ghost@bounce.example", .to = "info@lists.example", .subject = "Hello"});
    world.Serve();
    world.Send({.from = "Anna@home.example", .to = "info@lists.example", .subject = "And on Sundays?"});
    world.Serve();
    ASSERT_EQ(world.Subjects("anna"), "Thank you for your message");
    const CMail answer = world.Read("anna")[0];
    EXPECT_TRUE(Has(answer.body, "Opening hours?")) << answer.text;
    EXPECT_TRUE(answer.Field("Auto-Submitted").starts_with("auto-replied")) << answer.text;
    EXPECT_TRUE(Has(answer.text, "Return-Path: <>")) << answer.text;
    EXPECT_EQ(world.Subjects("ben") + world.Subjects("list"), "");
    EXPECT_EQ(world.Read("info").size(), 0u);
}

// What strangers and members write is text, and nothing else.
TEST(MailingLists, StrangersGainNothing) {
    CMailWorld world({"crew", "ben", "dora", "eve", "mallory"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    world.MakeList("Crew", "crew");
    for (const char* member : {"ben@home.example", "dora@home.example"})
        world.Run().MustRun({"member", "add", "Crew", member});
    const std::string commands = "crew+cmd@lists.example";
    const std::string list = "crew@lists.example";
    world.Send({.from = "eve@home.example", .to = commands, .subject = "SUBSCRIBE"});
    world.Send({.from = "eve@home.example", .to = list, .subject = "$(List-Usage) $(Password)"});
    world.Send({.from = "ben@home.example", .to = list, .subject = "Again", .more = "X-Loop: " + list + "\r\n"});
    world.Send({.from = "ben@home.example",
                .to = list,
                .subject = "Tide",
                .more = "X-Lhv-Recipient-Override: mallory@home.example\r\nX-Lhv-Return-Path-Override: "
                        "mallory@home.example\r\nX-Lhv-Inbox: {0}\r\nBcc: mallory@home.example\r\n"});
    world.Serve();
    EXPECT_EQ(world.Subjects("dora"), "[Crew] Tide");
    EXPECT_EQ(world.Subjects("ben"), "[Crew] Tide");
    EXPECT_EQ(world.Subjects("mallory"), "");
    const std::vector<CMail> mails = world.Read("eve");
    const CMail* refusal = Find(mails, "Your message to Crew was not passed on");
    ASSERT_TRUE(refusal) << world.Subjects("eve");
    EXPECT_TRUE(Has(refusal->body, "$(List-Usage) $(Password)")) << refusal->body;
    const CMail* request = Find(mails, "Please confirm your subscription to Crew");
    ASSERT_TRUE(request) << world.Subjects("eve");
    std::string forged = request->Field("Subject");
    char& letter = forged[forged.find("[LHV-") + 10];
    letter = letter == 'A' ? 'B' : 'A';
    world.Reply("mallory@home.example", *request);  // with the token of another
    world.Send({.from = "eve@home.example", .to = commands, .subject = "Re: " + forged});
    world.Serve();
    for (const char* stranger : {"eve@home.example", "mallory@home.example"})
        EXPECT_FALSE(world.IsMember("Crew", stranger)) << stranger;
    EXPECT_EQ(world.Subjects("mallory"), "");
    EXPECT_EQ(world.Read("eve").size(), 2u) << world.Subjects("eve");
}

// The server dies at random moments, while people subscribe and confirm and
// while a member posts.  A copy that is sent again is the same message: the
// cycle answers nobody twice, and posts nothing twice.
TEST(MailingLists, NobodyMissesAnythingWhenTheServerIsKilled) {
    const int Kills = ByFileSpeed(40, 20);
    constexpr int Posts = 4;
    const std::vector<std::string> guests = {"g1", "g2", "g3", "g4"};
    CMailWorld world({"crew", "ben", "dora", "cleo", "g1", "g2", "g3", "g4"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    world.MakeList("Crew", "crew");
    for (const char* member : {"ben@home.example", "dora@home.example", "ghost@bounce.example"})
        world.Run().MustRun({"member", "add", "Crew", member});
    world.Run().MustRun({"member", "add", "Crew", "cleo@home.example", "--mode", "digest"});
    for (const std::string& guest : guests)
        world.Send({.from = guest + "@home.example", .to = "crew+cmd@lists.example", .subject = "subscribe"});

    std::mt19937 random(20261121);
    std::set<std::string> confirmed;
    int kills = 0;
    unsigned range = ByFileSpeed(
        400U, 4000U);  // milliseconds; less when it ends before, so that about half of the times it does not
    const auto isDone = [&] { return kills >= Kills && confirmed.size() == guests.size(); };
    for (int round = 0; !isDone() && round < 2 * Kills; ++round) {
        const bool isKilled = world.ServeAndKill(std::chrono::milliseconds(5 + random() % range));
        kills += isKilled ? 1 : 0;
        range = isKilled ? range * 11 / 10 : std::max(20U, range * 9 / 10);
        if (round < Posts)
            world.Send({.from = "ben@home.example",
                        .to = "crew@lists.example",
                        .subject = "Post " + std::to_string(round),
                        .body = "Number " + std::to_string(round) + "\r\n"});
        for (const std::string& guest : guests) {
            const std::vector<CMail> mails = world.Read(guest);
            const CMail* request = Find(mails, "Please confirm your subscription to Crew");
            if (request && confirmed.insert(guest).second) world.Reply(guest + "@home.example", *request);
        }
    }
    EXPECT_EQ(confirmed.size(), guests.size());
    world.Serve();
    world.Serve();
    world.Run().MustRun({"digest", "send", "Crew"});
    world.Serve();
    EXPECT_GT(kills, Kills / 4);

    std::size_t doubled = 0;
    // How many different messages of each subject there are.
    const auto distinct = [&](const std::string& person) {
        std::map<std::string, std::set<std::string>> ids;
        for (const CMail& mail : world.Read(person)) {
            if (!ids[mail.subject].insert(mail.Field("Message-ID")).second) ++doubled;
        }
        std::map<std::string, std::size_t> counts;
        for (const auto& [subject, all] : ids)
            counts[subject] = all.size();
        return counts;
    };
    for (const char* member : {"ben", "dora"}) {
        const auto counts = distinct(member);
        EXPECT_EQ(counts.size(), static_cast<std::size_t>(Posts)) << member;
        for (const auto& [subject, count] : counts)
            EXPECT_EQ(count, 1u) << member << ": " << subject;
    }
    for (const std::string& guest : guests) {
        auto counts = distinct(guest);
        EXPECT_EQ(counts["Please confirm your subscription to Crew"], 1u) << guest;
        EXPECT_EQ(counts["Welcome to Crew"], 1u) << guest;
        for (const auto& [subject, count] : counts)
            EXPECT_EQ(count, 1u) << guest << ": " << subject;
        EXPECT_TRUE(world.IsMember("Crew", guest + "@home.example"));
    }
    std::string digests;
    distinct("cleo");
    for (const CMail& mail : world.Read("cleo"))
        digests += mail.text;
    for (int post = 0; post < Posts; ++post)
        EXPECT_TRUE(Has(digests, "Subject: Post " + std::to_string(post))) << digests;
    EXPECT_LE(doubled, static_cast<std::size_t>(kills));
    EXPECT_FALSE(world.IsMember("Crew", "ghost@bounce.example"));
    EXPECT_EQ(world.Read("crew").size(), 0u);
    RecordProperty("kills", kills);
    RecordProperty("doubled", static_cast<int>(doubled));
}

namespace {

// As long as mail comes, and then twice more; how many there are in the end.
std::size_t ServeUntilQuiet(CMailWorld& world, const std::function<void()>& answer = {}) {
    std::size_t count = world.CountMail();
    for (int round = 0, quiet = 0; round < 12 && quiet < 2; ++round) {
        world.Serve();
        if (answer) answer();
        const std::size_t now = world.CountMail();
        quiet = now == count ? quiet + 1 : 0;
        count = now;
    }
    return count;
}

}  // namespace

TEST(MailLoops, ListsThatAreMembersOfLists) {
    CMailWorld world({"one", "two", "anna", "ben"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    world.MakeList("One", "one");
    world.MakeList("Two", "two");
    for (const char* member : {"anna@home.example", "two@lists.example", "one@lists.example"})
        world.Run().MustRun({"member", "add", "One", member});
    for (const char* member : {"ben@home.example", "anna@home.example", "one@lists.example"})
        world.Run().MustRun({"member", "add", "Two", member});
    world.Send({.from = "anna@home.example", .to = "one@lists.example", .subject = "Round and round"});
    EXPECT_LE(ServeUntilQuiet(world), 3u);
    EXPECT_EQ(world.Subjects("anna").substr(0, 22), "[One] Round and round") << world.Subjects("anna");
    EXPECT_EQ(world.Read("one").size() + world.Read("two").size(), 0u);
}

// It answers every message once: one that says so to wherever answers go, one
// that does not to the envelope sender, as such programs do, or there as well.
TEST(MailLoops, AVacationResponderAsAMember) {
    CMailWorld world({"one", "vac1", "ben1", "two", "vac2", "ben2", "three", "vac3", "ben3"});
    if (!world.IsInstalled()) GTEST_SKIP() << world.WhyNot();
    ASSERT_TRUE(world.Start()) << world.WhyNot();
    const struct {
        const char* list;
        std::string number;
        const char* mark;
        const char* answersTo;
    } rows[] = {{"one", "1", "Auto-Submitted: auto-replied\r\n", "Reply-To"},
                {"two", "2", "", "Return-Path"},
                {"three", "3", "", "Reply-To"}};
    for (const auto& row : rows) {
        const std::string vacation = "vac" + row.number;
        const std::string ben = "ben" + row.number + "@home.example";
        world.MakeList(row.list, row.list);
        world.Run().MustRun({"member", "add", row.list, vacation + "@home.example"});
        world.Run().MustRun({"member", "add", row.list, ben});
        const std::size_t before = world.CountMail();
        world.Send({.from = ben, .to = row.list + std::string("@lists.example"), .subject = "Tide"});
        std::set<std::string> answered;
        const std::size_t after = ServeUntilQuiet(world, [&] {
            for (const CMail& mail : world.Read(vacation)) {
                if (answered.insert(mail.Field("Message-ID")).second)
                    world.Reply(vacation + "@home.example", mail, row.mark, row.answersTo);
            }
        });
        EXPECT_GE(answered.size(), 1u) << row.list;
        EXPECT_LE(after - before, 4u) << row.list << ": " << world.Subjects("ben" + row.number);
    }
}
