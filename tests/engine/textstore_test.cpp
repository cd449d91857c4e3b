#include "engine/textstore.h"

#include <algorithm>
#include <map>
#include <random>

#include "engine/crc32.h"
#include "engine/textstoreformat.h"
#include "platform/faultplan.h"
#include "platform/file.h"
#include "platform/filestatus.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

using Texts = std::map<std::int32_t, std::string>;

std::string RandomText(std::mt19937& random) {
    const std::size_t lengths[] = {0, 1, 20, 21, 36, 37, 200, 5000};
    return std::string(lengths[random() % 8] + random() % 3, static_cast<char>('a' + random() % 26));
}

std::vector<std::int32_t> KeysOf(const Texts& texts) {
    std::vector<std::int32_t> keys;
    for (const auto& [reference, text] : texts)
        keys.push_back(reference);
    return keys;
}

class CTextStoreTest : public CDataFolderTest {
protected:
    CTextStoreTest() {
        Platform::SetFlushEnabled(false);
        Open();
    }

    void Open() { m_store.Open(PathOf("T"), CTextStore::Access::ReadWrite); }

    void ExpectTexts(const Texts& texts) {
        for (const auto& [reference, text] : texts)
            EXPECT_EQ(m_store.Read(reference), text) << reference;
    }

    void Overwrite(const std::string& name, std::uint64_t offset, std::string_view bytes) {
        Platform::CFile file;
        ASSERT_TRUE(file.Open(PathOf(name), Platform::FileMode::ReadWrite));
        ASSERT_TRUE(file.WriteAt(offset, bytes.data(), bytes.size()));
    }

    CTextStore m_store;
};

TEST(Crc32Test, CheckValue) {
    EXPECT_EQ(Crc32("123456789"), 0xCBF43926U);
    EXPECT_EQ(Crc32("56789", Crc32("1234")), 0xCBF43926U);
}

// A second object over the same files stands for another process.
TEST_F(CTextStoreTest, RandomWorkAgreesWithAMap) {
    std::mt19937 random(1);
    Texts expected;
    CTextStore other;
    other.Open(PathOf("T"), CTextStore::Access::ReadWrite);
    for (int step = 0; step < 4000; ++step) {
        CTextStore& store = random() % 2 == 0 ? m_store : other;
        const std::vector<std::int32_t> keys = KeysOf(expected);
        const std::int32_t victim = keys.empty() ? -1 : keys[random() % keys.size()];
        const std::string text = RandomText(random);
        switch (random() % 6) {
            case 0:
            case 1:
                ASSERT_TRUE(expected.emplace(store.Add(text), text).second) << "a reference given twice";
                break;
            case 2:
                if (victim >= 0) store.Replace(victim, expected[victim] = text);
                break;
            case 3:
                store.Free(victim);
                expected.erase(victim);
                break;
            case 4: {
                const std::vector<std::string_view> many(random() % 4, text);
                for (const std::int32_t added : store.AddMany(many))
                    ASSERT_TRUE(expected.emplace(added, text).second);
                break;
            }
            default:
                store.Flush();
                store.Release();
        }
    }
    ExpectTexts(expected);
    m_store.Release();
    other.Release();
    const TextStoreReport report = m_store.Check(KeysOf(expected));
    EXPECT_TRUE(report.IsSound());
    EXPECT_FALSE(report.freeListsDamaged);
    EXPECT_EQ(report.unused, 0);
    EXPECT_EQ(report.lostBytes, 0U);
}

TEST_F(CTextStoreTest, SpaceIsUsedAgain) {
    std::vector<std::int32_t> references;
    const std::string text(1000, 'x');
    for (int i = 0; i < 100; ++i)
        references.push_back(m_store.Add(text));
    Platform::FileStatus before;
    ASSERT_TRUE(Platform::GetFileStatus(PathOf("T.dat2"), before));
    for (int round = 0; round < 10; ++round) {
        for (const std::int32_t reference : references)
            m_store.Free(reference);
        m_store.Release();
        for (std::int32_t& reference : references)
            reference = m_store.Add(text);
    }
    Platform::FileStatus after;
    ASSERT_TRUE(Platform::GetFileStatus(PathOf("T.dat2"), after));
    EXPECT_EQ(after.size, before.size);
    EXPECT_EQ(m_store.GetReferenceCount(), 100);
}

// What another has made of the space since is not freed.
TEST_F(CTextStoreTest, AFreeThatCameTooLateDoesNothing) {
    CTextStore other;
    other.Open(PathOf("T"), CTextStore::Access::ReadWrite);
    m_store.Free(m_store.Add("third"));
    m_store.Replace(m_store.Add("first"), "second");
    other.RemoveAll();
    Texts expected;
    for (const char* text : {"fourth", "fifth", "sixth"})
        expected[other.Add(text)] = text;
    m_store.Flush();
    m_store.Release();
    for (const char* text : {"seventh", "eighth", "ninth"})
        ASSERT_TRUE(expected.emplace(m_store.Add(text), text).second);
    ExpectTexts(expected);
}

// The program ends at every write in turn; what it was about is old or new, and
// everything else is untouched.
TEST_F(CTextStoreTest, AnEndAtAnyWriteHarmsNoText) {
    Texts expected;
    for (int i = 0; i < 12; ++i) {
        const std::string text(static_cast<std::size_t>(i) * 30, static_cast<char>('a' + i));
        expected[m_store.Add(text)] = text;
    }
    std::mt19937 random(2);
    for (int round = 0; round < 400; ++round) {
        const std::int32_t target = KeysOf(expected)[random() % expected.size()];
        const std::string text = RandomText(random);
        const bool isReplaced = random() % 2 == 0;
        std::int32_t added = -1;
        try {
            const Platform::CFaultPlan plan(Platform::Operation::Write, 1 + static_cast<unsigned>(random() % 6),
                                            Platform::CFaultPlan::After::Stays);
            if (isReplaced) {
                m_store.Replace(target, text);
            } else {
                added = m_store.Add(text);
                m_store.Free(target);
            }
            m_store.Release();
        } catch (const CLhvException&) {
        }
        Open();
        if (isReplaced) {
            const std::string now = m_store.Read(target);
            ASSERT_TRUE(now == text || now == expected[target]) << round;
            expected[target] = now;
        } else if (added >= 0) {
            ASSERT_TRUE(expected.emplace(added, text).second);
            expected.erase(target);
        }
        ExpectTexts(expected);
        EXPECT_TRUE(m_store.Check(KeysOf(expected)).IsSound());
        EXPECT_FALSE(m_store.Check(KeysOf(expected)).freeListsDamaged);
    }
    EXPECT_GT(m_store.Check(KeysOf(expected)).lostBytes, 0U);
    m_store.Repair(KeysOf(expected));
    ExpectTexts(expected);
    const TextStoreReport repaired = m_store.Check(KeysOf(expected));
    EXPECT_EQ(repaired.texts, static_cast<std::int32_t>(expected.size()));
    EXPECT_LT(repaired.lostBytes, 32 * expected.size());
}

TEST_F(CTextStoreTest, ARepairMayBeInterrupted) {
    bool wasHit = true;
    for (unsigned n = 1; wasHit; ++n) {
        m_store.RemoveAll();
        Texts expected;
        std::vector<std::int32_t> freed;
        for (int i = 0; i < 8; ++i) {
            const std::string text(static_cast<std::size_t>(20 * i), static_cast<char>('a' + i));
            freed.push_back(m_store.Add(text));
            expected[m_store.Add(text)] = text;
        }
        for (const std::int32_t reference : freed)
            m_store.Free(reference);
        m_store.Release();
        try {
            const Platform::CFaultPlan plan(Platform::Operation::Write, n, Platform::CFaultPlan::After::Stays);
            m_store.Repair(KeysOf(expected));
            wasHit = plan.WasHit();
        } catch (const CLhvException&) {
        }
        Open();
        ExpectTexts(expected);
        EXPECT_FALSE(m_store.Check(KeysOf(expected)).freeListsDamaged) << n;
    }
}

TEST_F(CTextStoreTest, DamageIsNoticedAndContained) {
    using namespace TextStoreFormat;
    const std::int32_t one = m_store.Add("first text");
    const std::int32_t two = m_store.Add("second text");
    const std::int32_t three = m_store.Add("third text");
    Overwrite("T.dat2", TextHeaderSize + ExtentHeaderSize, "F");
    Overwrite("T.dat1", IndexHeaderSize + EntrySize, "\x20");
    std::string text;
    EXPECT_EQ(m_store.TryRead(one, text), CTextStore::Outcome::Damaged);
    EXPECT_EQ(m_store.TryRead(two, text), CTextStore::Outcome::Damaged);
    EXPECT_EQ(m_store.TryRead(99, text), CTextStore::Outcome::Missing);
    EXPECT_THROW(m_store.Read(one), CLhvException);
    const std::int32_t inUse[] = {one, two, three, three, 99, -1};
    const TextStoreReport report = m_store.Check(inUse);
    EXPECT_EQ(report.damaged, (std::vector<std::int32_t>{one, two}));
    EXPECT_EQ(report.usedTwice, (std::vector<std::int32_t>{three}));
    EXPECT_EQ(report.missing, (std::vector<std::int32_t>{99}));
    m_store.Replace(one, "again");
    EXPECT_EQ(m_store.Read(one), "again");
    EXPECT_EQ(m_store.Read(three), "third text");
}

// A free list that leads into the text of another is left, not followed.
TEST_F(CTextStoreTest, ADamagedFreeListIsLeft) {
    using namespace TextStoreFormat;
    const std::int32_t kept = m_store.Add("kept");
    Overwrite("T.dat1", FreeReferenceAt, std::string_view("\0\0\0\0", 4));
    Overwrite("T.dat1", FreeExtentAt(0), std::string_view("\x10\0\0\0\0\0\0\0", 8));
    EXPECT_TRUE(m_store.Check(std::vector{kept}).freeListsDamaged);
    const std::int32_t added = m_store.Add("added");
    EXPECT_NE(added, kept);
    EXPECT_EQ(m_store.Read(kept) + m_store.Read(added), "keptadded");
}

TEST_F(CTextStoreTest, Limits) {
    const std::string longest(CTextStore::MaxText, 'x');
    const std::int32_t reference = m_store.Add(longest);
    EXPECT_EQ(m_store.Read(reference), longest);
    EXPECT_THROW(m_store.Add(longest + "x"), CLhvException);
    EXPECT_THROW(m_store.Replace(reference, longest + "x"), CLhvException);
    EXPECT_THROW(m_store.Replace(reference + 1, "x"), CLhvException);
    m_store.Close();
    ASSERT_TRUE(Platform::RemoveFile(PathOf("T.dat2")));
    Open();
    EXPECT_THROW(m_store.Add("x"), CLhvException);  // does not start anew over references that are in use
    Overwrite("T.dat1", 0, "nothing");
    EXPECT_THROW(Open(), CLhvException);
}

}  // namespace
