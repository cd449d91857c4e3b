#include "engine/catalogue.h"

#include <atomic>
#include <set>
#include <thread>

#include "engine/looplevel.h"
#include "platform/faultplan.h"
#include "platform/filestatus.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

class CCatalogueTest : public CDataFolderTest {
protected:
    CCatalogueTest() : m_lists(PathOf("")) { Platform::SetFlushEnabled(false); }

    std::int32_t Create(const std::string& name) {
        NewList list;
        list.name = name;
        return m_lists.Create(list);
    }

    CCatalogue m_lists;
};

TEST_F(CCatalogueTest, LookingMakesNoFile) {
    EXPECT_TRUE(m_lists.GetLists().empty());
    EXPECT_EQ(m_lists.FindByNameOrNumber("1"), CCatalogue::None);
    EXPECT_THROW(m_lists.GetName(0), CLhvException);
    EXPECT_FALSE(Platform::FileIsThere(PathOf("LISTS.CST")));
}

TEST_F(CCatalogueTest, NumbersAreNeverGivenAgain) {
    const std::int32_t first = Create("one");
    Put(PathOf("3.MBR"), "of a list that is not in the catalogue");
    m_lists.Delete(first);
    EXPECT_TRUE(m_lists.GetLists().empty());
    EXPECT_THROW(m_lists.GetName(first), CLhvException);
    CCatalogue other(PathOf(""));
    NewList again;
    again.name = "one";
    EXPECT_EQ(other.GetListNumber(other.Create(again)), 2U);
    EXPECT_EQ(m_lists.GetListNumber(Create("two")), 4U);
}

TEST_F(CCatalogueTest, NamesAreUnique) {
    const std::int32_t news = Create(" News ");
    EXPECT_EQ(m_lists.GetName(news), "News");
    for (const char* name : {"news", "NEWS", "", "  ", "7", "two\nlines"})
        EXPECT_THROW(Create(name), CLhvException) << name;
    EXPECT_THROW(Create(std::string(257, 'x')), CLhvException);
    const std::int32_t other = Create(std::string(256, 'x'));
    EXPECT_THROW(m_lists.SetText(other, ListColumn::Name, "nEWS"), CLhvException);
    m_lists.SetText(news, ListColumn::Name, "NEWS");
    EXPECT_EQ(m_lists.FindByNameOrNumber("news"), news);
    EXPECT_EQ(m_lists.FindByNameOrNumber("2"), other);
    EXPECT_EQ(m_lists.FindByNameOrNumber("3"), CCatalogue::None);
    m_lists.Delete(news);
    EXPECT_NE(Create("News"), news);
}

TEST_F(CCatalogueTest, SettingsByKey) {
    const std::int32_t list = Create("list");
    const struct {
        const char* key;
        const char* value;
        const char* stored;
    } rows[] = {{"MaxConnections", "100", "100"},
                {"moderated", "yes", "1"},
                {"kind", "Announcement", "announcement"},
                {"kind", "2", "autoresponder"},
                {"limitFrom", "7:05", "07:05"},
                {"loopProtection", "High", "11"},
                {"loopProtection", "8", "8"},
                {"smtpHost", "mail.example.net", "mail.example.net"},
                {"usage", "one\r\ntwo", "one\ntwo"},
                {"smtpPassword", "secret", "*"},
                {"listAddress", "list@example.net", "list@example.net"},
                {"postAddress", "post@example.net", "post@example.net"},
                {"postAddress", "", "list@example.net"},
                {"listAddresses", "list: a@b.net\nPOST: c@b.net", "List: a@b.net\nPost: c@b.net\n"}};
    for (const auto& row : rows) {
        EXPECT_NO_THROW(m_lists.SetByKey(list, row.key, row.value)) << row.key;
        EXPECT_EQ(m_lists.GetByKey(list, row.key), row.stored) << row.key;
    }
    const std::pair<const char*, std::string> refused[] = {{"maxConnections", "0"},
                                                           {"maxConnections", "101"},
                                                           {"moderated", "2"},
                                                           {"kind", "3"},
                                                           {"limitFrom", "24:00"},
                                                           {"limitDays", "128"},
                                                           {"loopProtection", "4"},
                                                           {"loopProtection", "custom"},
                                                           {"smtpHost", std::string(129, 'x')},
                                                           {"smtpHost", "a\r\nb"},
                                                           {"smtpHost", std::string("a\0b", 3)},
                                                           {"guid", "x"},
                                                           {"number", "9"},
                                                           {"created", "9"},
                                                           {"nothing", "9"},
                                                           {"listAddress", "nobody"},
                                                           {"listAddresses", "Other: a@b.net"},
                                                           {"listAddresses", "List: a@b.net\nList: c@b.net"},
                                                           {"redirectAddress", "a@b@c"}};
    for (const auto& [key, value] : refused)
        EXPECT_THROW(m_lists.SetByKey(list, key, value), CLhvException) << key << "=" << value;
    EXPECT_EQ(m_lists.GetListAddress(list, "command"), "a@b.net");
    EXPECT_EQ(m_lists.GetListAddress(list, "authorized"), "");
    try {
        m_lists.SetNumber(list, ListColumn::MaxConnections, 0);
        ADD_FAILURE();
    } catch (const CLhvException& e) {
        EXPECT_EQ(e.GetText(), "Invalid number of simultaneous SMTP connections.");
    }
    const std::pair<int, LoopLevel> levels[] = {
        {11, LoopLevel::High}, {3, LoopLevel::Normal}, {8, LoopLevel::Custom}, {0, LoopLevel::None}};
    for (const auto& [bits, level] : levels) {
        EXPECT_EQ(LoopLevelOf(bits), level) << bits;
        EXPECT_EQ(LoopBitsOf(level, bits), bits);
    }
}

TEST_F(CCatalogueTest, PasswordsLeaveNoTrace) {
    const std::int32_t list = Create("list");
    m_lists.SetText(list, ListColumn::PopPassword, "a long old password");
    m_lists.SetText(list, ListColumn::PopPassword, "new");
    EXPECT_EQ(Get(PathOf("LISTS.CST")).find("password"), std::string::npos);
    EXPECT_EQ(m_lists.GetText(list, ListColumn::PopPassword), "new");
    m_lists.SetText(list, ListColumn::SmtpPassword, "another");
    m_lists.Delete(list);
    EXPECT_EQ(Get(PathOf("LISTS.CST")).find("another"), std::string::npos);
}

TEST_F(CCatalogueTest, AKeepSeesItsOwnChanges) {
    const std::int32_t one = Create("one");
    const std::int32_t two = Create("two");
    {
        const CCatalogue::CKeep keep(m_lists);
        EXPECT_EQ(m_lists.GetName(one), "one");
        m_lists.SetText(one, ListColumn::Name, "first");
        EXPECT_EQ(m_lists.GetName(one), "first");
        EXPECT_EQ(m_lists.GetName(two), "two");
        m_lists.Delete(two);
        EXPECT_THROW(m_lists.GetName(two), CLhvException);
    }
    CCatalogue(PathOf("")).SetText(one, ListColumn::Name, "of another");
    EXPECT_EQ(m_lists.GetName(one), "of another");
}

TEST_F(CCatalogueTest, DeletingRemovesTheFilesOfThatListOnly) {
    for (int i = 0; i < 11; ++i)
        m_lists.Create();
    const std::set<std::string> gone = {"1.MBR",     "1.MBR.ver", "1.MBR.dat1", "1.MBX", "1.MBX-lock", "1.CFD",
                                        "1.CFD.ver", "1.ACL",     "1.MCF",      "1.RUL", "1.RUL.5.eml"};
    const std::set<std::string> kept = {"11.MBR", "2.MBR", "1.txt", "1MBR", "x1.MBR", "1.MBRX"};
    for (const auto& names : {gone, kept}) {
        for (const std::string& name : names)
            Put(PathOf(name), "x");
    }
    EXPECT_TRUE(m_lists.Delete(0).empty());
    for (const std::string& name : gone)
        EXPECT_FALSE(Platform::FileIsThere(PathOf(name))) << name;
    for (const std::string& name : kept)
        EXPECT_TRUE(Platform::FileIsThere(PathOf(name))) << name;
    Put(PathOf("2.CFD"), "x");
    {
        const Platform::CFaultPlan plan(Platform::Operation::Remove, 1);
        EXPECT_EQ(m_lists.Delete(1).size(), 1U);  // says which
    }
    EXPECT_EQ(m_lists.FindByNumber(2), CCatalogue::None);
    for (unsigned n = 1; n < 4; ++n) {  // what is left speaks of no members that were lost
        const std::string number = std::to_string(n + 2);
        for (const char* ending : {".MBX", ".MBR.lost", ".MBR"})
            Put(PathOf(number + ending), "x");
        const Platform::CFaultPlan plan(Platform::Operation::Remove, n, Platform::CFaultPlan::After::Stays);
        EXPECT_EQ(m_lists.Delete(static_cast<std::int32_t>(n) + 1).size(), 4 - n);
        EXPECT_TRUE(Platform::FileIsThere(PathOf(number + ".MBR"))) << n;
    }
}

TEST_F(CCatalogueTest, CreatingFromManyThreads) {
    std::atomic<int> failed = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            CCatalogue own(PathOf(""));
            for (int i = 0; i < 10; ++i) {
                NewList list;
                list.name = "list " + std::to_string(i);  // the same names in each
                try {
                    (t % 2 == 0 ? own : m_lists).Create(list);
                } catch (const CLhvException&) {
                    ++failed;
                }
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failed, 30);
    std::set<std::uint32_t> numbers;
    for (const std::int32_t list : m_lists.GetLists())
        numbers.insert(m_lists.GetListNumber(list));
    EXPECT_EQ(numbers.size(), 10U);
    EXPECT_EQ(*numbers.rbegin(), 10U);
}

}  // namespace
