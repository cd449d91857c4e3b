#include "engine/blockedaddresses.h"

#include <filesystem>

#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

class CBlockedAddressesTest : public CDataFolderTest {};

TEST_F(CBlockedAddressesTest, MatchesWhatAPatternMeans) {
    CBlockedAddresses blocked;
    EXPECT_FALSE(blocked.IsBlocked("anna@harbour.example"));
    for (const char* pattern : {"Anna@Harbour.example", "*@spam.example", "*@*.Farm.Example.", "o'neill@x.example"}) {
        EXPECT_TRUE(blocked.Add(pattern)) << pattern;
    }
    EXPECT_FALSE(blocked.Add("ANNA@harbour.EXAMPLE"));
    const struct {
        const char* address;
        bool isBlocked;
    } cases[] = {
        {"anna@harbour.example", true},
        {"ANNA@HARBOUR.EXAMPLE", true},
        {" anna@harbour.example. ", true},
        {"hanna@harbour.example", false},
        {"anna@harbour.example.org", false},
        {"bert@harbour.example", false},
        {"any@spam.example", true},
        {"\"a@b\"@Spam.Example", true},
        {"any@mx.spam.example", false},
        {"any@notspam.example", false},
        {"any@farm.example", false},
        {"any@a.farm.example", true},
        {"any@c.b.a.FARM.example", true},
        {"any@afarm.example", false},
        {"O'Neill@x.example", true},
        {"*@spam.example", true},
        {"spam.example", false},
        {"", false},
        {"@", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(blocked.IsBlocked(c.address), c.isBlocked) << c.address;
}

TEST_F(CBlockedAddressesTest, RefusesWhatIsNoPattern) {
    const std::string bad[] = {"",
                               "*",
                               "*@*.",
                               "*@*",
                               "*a@x.de",
                               "*@x.*",
                               "*@a.*.de",
                               "a@x.de\nb",
                               "*@-x-.de",
                               "*@x.de@y",
                               std::string("a@x\0.de", 7),
                               "*@" + std::string(300, 'x')};
    CBlockedAddresses blocked;
    for (const std::string& pattern : bad) {
        std::string reason;
        EXPECT_FALSE(CBlockedAddresses::IsPattern(pattern, &reason)) << pattern;
        EXPECT_NE(reason, "") << pattern;
        EXPECT_THROW(blocked.Add(pattern), CLhvException) << pattern;
    }
    EXPECT_FALSE(std::filesystem::exists(PathOf("BLOCKED.DAT")));
}

// Each change follows the one before within a tick of the file clock, and one
// that was loaded; the second object stands for another process.
TEST_F(CBlockedAddressesTest, SeesTheChangesOfOthers) {
    CBlockedAddresses here;
    CBlockedAddresses there;
    for (int round = 0; round < 8; ++round) {
        EXPECT_TRUE(there.Add("a@x.example"));
        EXPECT_TRUE(here.IsBlocked("a@x.example"));
        EXPECT_TRUE(there.Add("b@x.example"));
        EXPECT_TRUE(here.IsBlocked("b@x.example"));
        EXPECT_TRUE(there.Remove("A@x.example"));
        EXPECT_FALSE(there.Remove("a@x.example"));
        EXPECT_FALSE(here.IsBlocked("a@x.example"));
        EXPECT_TRUE(here.IsBlocked("b@x.example"));
        EXPECT_TRUE(there.Remove("b@x.example"));
        EXPECT_FALSE(here.IsBlocked("b@x.example"));
    }
    EXPECT_FALSE(std::filesystem::exists(PathOf("BLOCKED.DAT")));
}

// Mail must not go to blocked people because the table could not be read.
TEST_F(CBlockedAddressesTest, DoesNotTakeAnUnreadableTableForAnEmptyOne) {
    std::filesystem::create_directory(PathOf("BLOCKED.DAT"));
    CBlockedAddresses blocked;
    EXPECT_THROW(blocked.IsBlocked("a@x.example"), CLhvException);
    EXPECT_THROW(blocked.IsBlocked("a@x.example"), CLhvException);
}

}  // namespace
