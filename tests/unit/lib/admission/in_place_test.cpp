// When a change is news.
#include "admission/in_place.h"

#include <gmock/gmock.h>

using namespace admission;
using namespace std::chrono_literals;
using cg::Time;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

TEST(InPlaceTest, TypesThatAreOverdueAreNamedOnce)
{
    InPlace in_place;
    Time now = Time{} + 1000s;
    EXPECT_THAT(in_place.overdue(now, {}), IsEmpty()); // the store is not there at all
    const auto &all = tracked_types();
    for (const TrackedType &type : all) {
        if (type.descriptor != all[2].descriptor) {
            in_place.told(type.descriptor);
        }
    }
    now += 100s;
    EXPECT_THAT(in_place.overdue(now, {}), IsEmpty()); // it may come at once
    EXPECT_THAT(in_place.overdue(now + 9s, {}), IsEmpty());
    EXPECT_THAT(in_place.overdue(now + 10s, {}), ElementsAre(all[2].descriptor));
    EXPECT_THAT(in_place.overdue(now + 20s, {}), IsEmpty());
    in_place.told(all[2].descriptor);
    EXPECT_THAT(in_place.overdue(now + 30s, {}), IsEmpty());
    in_place.lost(33);
    EXPECT_THAT(in_place.overdue(now + 40s, {}), IsEmpty());
    EXPECT_THAT(in_place.overdue(now + 50s, {}), SizeIs(2)); // another time
}

TEST(InPlaceTest, NothingIsOverdueOfADatabaseThatIsAway)
{
    InPlace in_place;
    const Time now = Time{} + 1000s;
    for (const TrackedType &type : tracked_types()) {
        if (type.db == 1) {
            in_place.told(type.descriptor);
        }
    }
    EXPECT_THAT(in_place.overdue(now, {33}), IsEmpty());
    EXPECT_THAT(in_place.overdue(now + 20s, {33}), IsEmpty());
    EXPECT_THAT(in_place.overdue(now + 30s, {}), IsEmpty()); // it has just come
    EXPECT_THAT(in_place.overdue(now + 40s, {}), SizeIs(2));
    in_place.lost(1);
    EXPECT_THAT(in_place.overdue(now + 60s, {1, 33}), IsEmpty());
}

TEST(InPlaceTest, AChangeIsNewsWhenAllTypesOfItsDatabaseWereTold)
{
    InPlace in_place;
    for (const TrackedType &type : tracked_types()) {
        EXPECT_FALSE(in_place.is_complete(type.db));
        EXPECT_FALSE(in_place.is_complete());
        in_place.told(type.descriptor);
        EXPECT_EQ(in_place.is_complete(), type.descriptor == tracked_types().back().descriptor);
    }
    EXPECT_TRUE(in_place.is_complete(1));
    EXPECT_TRUE(in_place.is_complete(33));
    in_place.lost(33);
    EXPECT_TRUE(in_place.is_complete(1));
    EXPECT_FALSE(in_place.is_complete(33));
    in_place.told(tracked_types()[5].descriptor);
    EXPECT_FALSE(in_place.is_complete());
    in_place.told(tracked_types()[6].descriptor);
    EXPECT_TRUE(in_place.is_complete());
}
