#include "engine/customfields.h"

#include "platform/filestatus.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

using CCustomFieldsTest = CDataFolderTest;

TEST_F(CCustomFieldsTest, Names) {
    const struct {
        std::string name;
        bool isGood;
    } rows[] = {{"City", true},
                {"Home Town", true},
                {"Stra\xC3\x9F"
                 "e",
                 true},
                {std::string(64, 'x'), true},
                {std::string(65, 'x'), false},
                {"", false},
                {" City", false},
                {"a(b", false},
                {"a$b", false},
                {"a\tb", false},
                {"Email", false},
                {"FIRST-NAME", false},
                {"Subject", false},
                {std::string("a\0b", 3), false},
                {"Email2", true}};
    for (const auto& row : rows) {
        std::string reason;
        EXPECT_EQ(CCustomFields::IsName(row.name, &reason), row.isGood) << row.name;
        EXPECT_EQ(reason.empty(), row.isGood) << row.name;
    }
}

TEST_F(CCustomFieldsTest, SlotsKeepTheirPlaces) {
    CCustomFields fields;
    fields.Load(7);
    EXPECT_FALSE(Platform::FileIsThere(PathOf("7.CFD")));  // looking makes nothing
    const CustomField city{"City", "where", CustomFieldKind::Choice};
    fields.Set(63, city);
    CCustomFields other;
    other.Load(7);
    EXPECT_EQ(other.GetSlot(63), city);
    EXPECT_EQ(other.FindSlot("CITY"), 63);
    EXPECT_EQ(other.FindSlot(""), -1);
    EXPECT_EQ(other.FindFreeSlot(), 0);
    other.Set(0, {"Country", "", CustomFieldKind::Text});
    EXPECT_THROW(fields.Set(1, {"country", "", CustomFieldKind::Text}), CLhvException);  // set by the other meanwhile
    EXPECT_THROW(fields.Set(64, {"x", "", CustomFieldKind::Text}), CLhvException);
    fields.Set(63, {"city", "", CustomFieldKind::Date});  // its own name
    fields.Clear(0);
    fields.Clear(63);
    EXPECT_EQ(fields.FindSlot("Country"), -1);
    EXPECT_FALSE(Platform::FileIsThere(PathOf("7.CFD")));  // nor leaves anything
}

}  // namespace
