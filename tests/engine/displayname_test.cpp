#include "engine/displayname.h"

#include <gtest/gtest.h>

#include <string_view>
#include <vector>

#include "utility/text.h"

namespace {

struct Example {
    std::string name;
    CDisplayName parts;
};

TEST(SplitDisplayName, Table) {
    const std::vector<Example> examples = {
        {"", {}},
        {"  ", {}},
        {",", {}},
        {"Quentin", {"Quentin", "", ""}},
        {"Anna Berg", {"Anna", "", "Berg"}},
        {"Jens Peter Holm", {"Jens", "Peter", "Holm"}},
        {"  Anna \t Maria  L. Berg ", {"Anna", "Maria L.", "Berg"}},
        {"\"Anna Berg\"", {"Anna", "", "Berg"}},
        {"Berg, Anna", {"Anna", "", "Berg"}},
        {"van der Berg, Jan Piet", {"Jan", "Piet", "van der Berg"}},
        {"Smith, John, Jr.", {"John", "", "Smith Jr."}},
        {"John Smith, Jr.", {"John", "", "Smith, Jr."}},
        {"Martin Luther King Jr.", {"Martin", "Luther", "King Jr."}},
        {"Henry Ford III", {"Henry", "", "Ford III"}},
        {"Gerrit van der Berg", {"Gerrit", "", "van der Berg"}},
        {"Ludwig von Mises", {"Ludwig", "", "von Mises"}},
        {"van Gogh", {"", "", "van Gogh"}},
        {"Van Morrison", {"Van", "", "Morrison"}},
        {"Dr. Anna Berg", {"Dr. Anna", "", "Berg"}},
        {"Prof. Dr. Anna Maria Berg", {"Prof. Dr. Anna", "Maria", "Berg"}},
        {"Mr. Smith", {"Mr.", "", "Smith"}},
        {"Frau van der Berg", {"Frau", "", "van der Berg"}},
        {"Berg, Dr. Anna Maria", {"Dr. Anna", "Maria", "Berg"}},
        {"Nguyen Vi", {"Nguyen", "", "Vi"}},
        {"Dr.", {"Dr.", "", ""}},
        {"Bj\xC3\xB8rn \xC3\x85smussen", {"Bj\xC3\xB8rn", "", "\xC3\x85smussen"}},
    };
    for (const Example& example : examples) {
        const CDisplayName parts = SplitDisplayName(example.name);
        EXPECT_EQ(parts, example.parts) << example.name << " -> " << parts.first << "|" << parts.middle << "|"
                                        << parts.last;
    }
}

TEST(JoinDisplayName, GivesTheNameAgain) {
    for (const std::string_view name :
         {"Quentin", "Anna Berg", "Dr. Jens Peter van der Holm Jr.", "John Smith, Jr.", ""}) {
        EXPECT_EQ(JoinDisplayName(SplitDisplayName(name)), name);
    }
}

TEST(CapitalizeNamePart, Table) {
    const std::string_view examples =
        "smith>Smith|SMITH>Smith|mcdonald>McDonald|MCDONALD>McDonald|McDonald>McDonald|o'neill>O'Neill|"
        "O'NEILL>O'Neill|d'arc>d'Arc|d'Arc>d'Arc|D'SOUZA>D'Souza|van der berg>van der Berg|"
        "VAN DER BERG>van der Berg|Van Dyke>Van Dyke|le>Le|jean-luc>Jean-Luc|j.r.>J.R.|"
        "DR. ANNA>Dr. Anna|king JR.>King Jr.|ford iii>Ford III|deVries>deVries|"
        "m\xC3\xBCller>M\xC3\xBCller|M\xC3\x9CLLER>M\xC3\x9CLLER|\xC3\xA9va>\xC3\xA9va|  x >  X |'>'|"
        "mc>Mc";
    for (const std::string_view example : Split(examples, '|')) {
        const std::size_t arrow = example.find('>');
        EXPECT_EQ(CapitalizeNamePart(example.substr(0, arrow)), example.substr(arrow + 1));
    }
    EXPECT_EQ(CapitalizeNamePart(""), "");
}

}  // namespace
