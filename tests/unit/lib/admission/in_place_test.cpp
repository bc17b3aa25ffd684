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
    const Time now = Time{} + 1000s;
    const auto &all = tracked_types();
    for (const TrackedType &type : all) {
        if (type.descriptor != all[2].descriptor) {
            in_place.told(type.descriptor);
        }
    }
    EXPECT_THAT(in_place.overdue(1, now), IsEmpty()); // it may come at once
    EXPECT_THAT(in_place.overdue(1, now + 9s), IsEmpty());
    EXPECT_THAT(in_place.overdue(1, now + 10s), ElementsAre(all[2].descriptor));
    EXPECT_THAT(in_place.overdue(1, now + 20s), IsEmpty());
    EXPECT_THAT(in_place.overdue(33, now + 20s), IsEmpty());
    in_place.told(all[2].descriptor);
    EXPECT_THAT(in_place.overdue(1, now + 30s), IsEmpty());
    in_place.lost(1);
    EXPECT_THAT(in_place.overdue(1, now + 40s), IsEmpty());
    EXPECT_THAT(in_place.overdue(1, now + 50s), SizeIs(5)); // another time
}

TEST(InPlaceTest, EachDatabaseIsWaitedForByItself)
{
    InPlace in_place;
    const Time now = Time{} + 1000s;
    EXPECT_THAT(in_place.overdue(1, now), IsEmpty());
    EXPECT_THAT(in_place.overdue(1, now + 10s), SizeIs(5));
    EXPECT_THAT(in_place.overdue(33, now + 10s), IsEmpty()); // it has just come
    EXPECT_THAT(in_place.overdue(33, now + 15s), IsEmpty());
    in_place.lost(33);
    EXPECT_THAT(in_place.overdue(33, now + 25s), IsEmpty()) << "back, and waited for again";
    EXPECT_THAT(in_place.overdue(33, now + 35s), SizeIs(2));
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
