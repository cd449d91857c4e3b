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
    for (const char* address : {"anna@harbour.example", "ANNA@HARBOUR.EXAMPLE", " anna@harbour.example. ",
                                "any@spam.example", "\"a@b\"@Spam.Example", "any@a.farm.example",
                                "any@c.b.a.FARM.example", "O'Neill@x.example", "*@spam.example"})
        EXPECT_TRUE(blocked.IsBlocked(address)) << address;
    for (const char* address :
         {"hanna@harbour.example", "anna@harbour.example.org", "bert@harbour.example", "any@mx.spam.example",
          "any@notspam.example", "any@farm.example", "any@afarm.example", "spam.example", "", "@"})
        EXPECT_FALSE(blocked.IsBlocked(address)) << address;
}

TEST_F(CBlockedAddressesTest, RefusesWhatIsNoPattern) {
    std::vector<std::string> bad = {std::string("a@x\0.de", 7), "*@" + std::string(300, 'x')};
    for (const char* pattern :
         {"", "*", "*@*.", "*@*", "*a@x.de", "*@x.*", "*@a.*.de", "a@x.de\nb", "*@-x-.de", "*@x.de@y"})
        bad.emplace_back(pattern);
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
