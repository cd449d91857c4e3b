#include "engine/customfields.h"

#include "platform/filestatus.h"
#include "tests/engine/memberfixture.h"
#include "utility/lhvexception.h"

namespace {

using CCustomFieldsTest = CDataFolderTest;

TEST_F(CCustomFieldsTest, Names) {
    for (const std::string& name : {std::string("City"), std::string("Home Town"), std::string("Stra\xC3\x9F"),
                                    std::string(64, 'x'), std::string("Email2")})
        EXPECT_TRUE(CCustomFields::IsName(name)) << name;
    std::vector<std::string> bad = {std::string(65, 'x'), std::string("a\0b", 3)};
    for (const char* name : {"", " City", "a(b", "a$b", "a\tb", "Email", "FIRST-NAME", "Subject"})
        bad.emplace_back(name);
    for (const std::string& name : bad) {
        std::string reason;
        EXPECT_FALSE(CCustomFields::IsName(name, &reason)) << name;
        EXPECT_FALSE(reason.empty()) << name;
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
