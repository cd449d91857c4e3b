#include "engine/incoming/mailboxlisting.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

Net::CPop3Listing MakeListing(std::initializer_list<const char*> uids) {
    Net::CPop3Listing listing;
    for (const char* uid : uids) {
        const std::size_t index = listing.GetCount();
        listing.Add(static_cast<std::uint32_t>(index + 1), 10);
        if (*uid != '\0') listing.SetUid(index, uid);
    }
    return listing;
}

// Of each message its key or id, "!" where the key was noted, C where it was compared.
std::string Describe(const CMailboxListing& listing) {
    std::string text;
    for (std::size_t i = 0; i < listing.GetCount(); ++i)
        text += std::string(listing.GetKeyOrUid(i)) + (listing.GetKey(i).empty() ? "" : "!") +
                (listing.IsCompared(i) ? "C" : "") + ' ';
    return text;
}

}  // namespace

// What must not be taken for known is read again; what must not be lost stays.
TEST(MailboxListing, AnotherSessionsListing) {
    const struct {
        std::initializer_list<const char*> uids;
        std::size_t first;
        bool isSame;
        const char* expected;
    } rows[] = {
        {{"a", "b", "", "d"}, 3, true, "a!C b! #3!C d "},
        {{"a", "b", "", "d", "e"}, 3, true, "a!C b! #3!C d e "},
        {{"a", "b", "", "x"}, 3, true, "a!C b! #3!C x "},
        {{"a", "b"}, 3, false, "aC b "},
        {{"x", "a", "", "d"}, 3, false, "x aC  d "},
        {{"a", "b", "c", "d"}, 3, false, "aC b c d "},
        {{"a", "b", "", "a"}, 3, false, " b   "},  // an id given twice is none
        {{}, 0, true, ""},
    };
    for (const auto& row : rows) {
        CMailboxListing listing;
        EXPECT_TRUE(listing.Replace(MakeListing({"a", "b", "", "d"}), 0));
        listing.NoteKey(0, "a");
        listing.NoteCompared(0);
        listing.NoteKey(1, "b");
        listing.NoteKey(2, "#3");
        listing.NoteCompared(2);
        listing.NoteDeleted(2);
        EXPECT_TRUE(listing.Contains(listing.SortAll(), "d") && !listing.Contains(listing.SortNoted(4), "d"));
        EXPECT_EQ(listing.SortDeleted(), CMailboxListing::Order{2});
        EXPECT_EQ(listing.Replace(MakeListing(row.uids), row.first), row.isSame) << row.expected;
        EXPECT_EQ(Describe(listing), row.expected);
    }
}
