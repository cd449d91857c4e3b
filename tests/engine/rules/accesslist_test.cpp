#include "engine/rules/accesslist.h"

#include <gtest/gtest.h>

#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

class AccessListTest : public CDataFolderTest {};

TEST_F(AccessListTest, DeniedWins) {
    CAccessList reader(7);
    EXPECT_EQ(reader.Check("a@b.example"), Access::Unlisted);
    CAccessList writer(7);
    const CAccessEntry entries[] = {{Access::Allowed, "Anna@b.Example"},  {Access::Denied, "*@b.example"},
                                    {Access::Allowed, "*@good.example"},  {Access::Denied, "bad@good.example"},
                                    {Access::Denied, "*@*.spam.example"}, {Access::Allowed, "twice@x.example"}};
    for (const CAccessEntry& entry : entries)
        EXPECT_TRUE(writer.Add(entry)) << entry.pattern;
    EXPECT_FALSE(writer.Add({Access::Allowed, "anna@b.example"}));
    EXPECT_TRUE(writer.Add({Access::Denied, "twice@x.example"}));
    EXPECT_TRUE(writer.Add({Access::Allowed, "*@b.example"}));
    EXPECT_EQ(writer.GetEntries().size(), std::size(entries) + 2);
    const struct {
        const char* address;
        Access access;
    } rows[] = {{"ANNA@b.example", Access::Denied},   {"x@B.EXAMPLE", Access::Denied},
                {"x@good.example", Access::Allowed},  {"bad@good.example", Access::Denied},
                {"x@a.spam.example", Access::Denied}, {"x@spam.example", Access::Unlisted},
                {"twice@x.example", Access::Denied},  {"x@bb.example", Access::Unlisted},
                {"x@good.example.", Access::Allowed}};
    for (const auto& row : rows)
        EXPECT_EQ(reader.Check(row.address), row.access) << row.address;
    EXPECT_TRUE(writer.Remove("*@B.example"));
    EXPECT_FALSE(writer.Remove("*@b.example"));
    EXPECT_EQ(reader.Check("anna@b.example"), Access::Allowed);
    for (const char* const pattern : {"", "*", "a@*", "*@", "a b@c.example"})
        EXPECT_THROW(writer.Add({Access::Denied, pattern}), CLhvException) << pattern;
}

}  // namespace
