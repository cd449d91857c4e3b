// The n-th file operation fails, for every n, and all later ones as well, as if
// the program had ended there; or it alone, and the program goes on.

#include <filesystem>
#include <map>

#include "engine/memberstore.h"
#include "platform/faultplan.h"
#include "tests/engine/memberfixture.h"
#include "tests/platform/filespeed.h"
#include "utility/lhvexception.h"

namespace {

using After = Platform::CFaultPlan::After;
using Platform::Operation;
using Members = std::map<std::string, std::string>;  // address: text of slot 0

class CMemberCrashTest : public CDataFolderTest {
protected:
    static CMember With(const std::string& address, const std::string& text) {
        CMember member = MakeMember(address);
        member.SetField(0, text);
        return member;
    }

    // Does one thing after the other; members is what was promised, doubtful
    // what the last, failed step may have done or not.
    struct CWork {
        CMemberStore& store;
        Members members;
        Members doubtful;

        bool Try(const Members& after, const std::function<void()>& step) {
            try {
                step();
                members = after;
                return true;
            } catch (const CLhvException&) {
                doubtful = after;
                return false;
            }
        }

        bool Add(const std::string& address, const std::string& text) {
            Members after = members;
            after[address] = text;
            return Try(after, [&] { store.Add(With(address, text)); });
        }
        bool AddTwo(const std::string& one, const std::string& two, const std::string& text) {
            Members after = members;
            after[one] = after[two] = text;
            return Try(after, [&] {
                store.AddMany(std::vector{With(one, text), With(two, text)}, ExistingMember::Update);
            });
        }
        bool Update(const std::string& from, const std::string& to, const std::string& text) {
            Members after = members;
            after.erase(from);
            after[to] = text;
            return Try(after, [&] { store.Update(store.Find(from), With(to, text)); });
        }
        bool Remove(const std::string& address) {
            Members after = members;
            after.erase(address);
            return Try(after, [&] { store.Remove(store.Find(address)); });
        }
        bool Pack() {
            return Try(members, [&] { store.Pack(); });
        }

        bool Run() {
            return Try({}, [&] { store.Open(7); }) && Add("a@x", "1") && Add("b@x", "2") && AddTwo("c@x", "d@x", "3") &&
                   Update("a@x", "a@x", "one, longer than before") && Update("b@x", "e@x", "5") && Remove("c@x") &&
                   AddTwo("a@x", "f@x", "") && Pack() && Add("g@x", "text in freed space") && Remove("a@x") &&
                   Update("g@x", "a@x", "") && Pack();
        }
    };

    // Each address is as promised, or as the failed step would have left it.
    static void Check(CMemberStore& store, const CWork& work, const std::string& where) {
        Members found;
        store.ForEach(AllSlots, [&](std::int32_t at, const CMember& member) {
            EXPECT_TRUE(found.emplace(member.address, member.GetField(0)).second)
                << where << member.address << " twice";
            EXPECT_EQ(store.Find(member.address), at) << where << member.address;
            return true;
        });
        EXPECT_EQ(store.Count(), static_cast<std::int32_t>(found.size())) << where;
        const auto valueIn = [](const Members& members, const std::string& address) {
            const auto at = members.find(address);
            return at == members.end() ? "(none)" : at->second;
        };
        for (const char* address : {"a@x", "b@x", "c@x", "d@x", "e@x", "f@x", "g@x"}) {
            const std::string value = valueIn(found, address);
            const std::string promised = valueIn(work.members, address);
            const bool isDoubtful = !work.doubtful.empty() && value == valueIn(work.doubtful, address);
            EXPECT_TRUE(value == promised || isDoubtful) << where << address << ": " << value << ", not " << promised;
            EXPECT_EQ(store.Find(address) == CMemberStore::None, value == "(none)") << where << address;
        }
    }

    // True when there was a fault to hit.
    bool FailOnce(Operation kind, unsigned n, After after) {
        EmptyFolder();
        auto store = std::make_unique<CMemberStore>();
        CWork work{*store, {}, {}};
        bool wasHit = false;
        {
            const Platform::CFaultPlan plan(kind, n, after);
            const bool completed = work.Run();
            wasHit = plan.WasHit();
            EXPECT_TRUE(completed || wasHit);
            if (after == After::Stays) store.reset();
        }
        if (!store || !store->IsOpen()) {
            store = std::make_unique<CMemberStore>();
            store->Open(7);
        }
        Check(*store, work, after == After::Stays ? "ended: " : "went on: ");
        return wasHit;
    }
};

TEST_F(CMemberCrashTest, KeepsItsPromisesWhereverItEnds) {
    const struct {
        Operation kind;
        After after;
    } cases[] = {
        {Operation::Write, After::Stays},  {Operation::Write, After::Recovers}, {Operation::Any, After::Stays},
        {Operation::Any, After::Recovers}, {Operation::Flush, After::Stays},
    };
    for (const auto& [kind, after] : cases) {
        Platform::SetFlushEnabled(kind == Operation::Flush);
        const unsigned stride = ByFileSpeed(1U, 7U);
        unsigned n = 1;
        while (FailOnce(kind, n, after) && !HasFailure() && n < 2000)
            n += stride;
        ASSERT_FALSE(HasFailure()) << "kind " << static_cast<int>(kind) << ", operation " << n;
        EXPECT_GT(n, 20u);
    }
}

}  // namespace
