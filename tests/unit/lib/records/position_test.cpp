// Positions are typed by hand: what is taken for one, and what is refused.
#include "records/position.h"
#include "records/position_key.h"

#include <gtest/gtest.h>

#include "base/failure.h"

namespace cg
{

TEST(Position, IsReadWithAndWithoutSubSlot)
{
    EXPECT_EQ(parse_position("1/3/2"), (Position{1, 3, 2}));
    EXPECT_EQ(parse_position("1/3"), (Position{1, 3, 0}));
    EXPECT_EQ(parse_position("2147483647/-1/0").text(), "2147483647/-1/0");
}

TEST(Position, RefusesAnythingElse)
{
    for (const char *text : {"", "1", "1/", "1/3/", "1/3/0/0", "a/3", "1/3 ", "2147483648/1", "/1/3"}) {
        EXPECT_THROW(parse_position(text), Failure) << text;
    }
}

TEST(Position, IsFoundInEveryKindOfKey)
{
    EXPECT_EQ(position_in({{"t_mod", 0}, {"devid", 1}, {"slotid", 3}, {"sslotid", 2}}), (Position{1, 3, 2}));
    EXPECT_EQ(position_in({{"devid", 1}, {"slotid", 3}, {"t_sslotid", 2}, {"mod_name", "m"}}),
              (Position{1, 3, 2}));
    EXPECT_EQ(position_in({{"t_devid", 1}, {"t_slotid", 3}, {"t_sslotid", 2}}), (Position{1, 3, 2}));
}

TEST(Position, SortsByDeviceSlotAndSubSlot)
{
    EXPECT_LT((Position{1, 3, 9}), (Position{1, 10, 0}));
    EXPECT_LT((Position{1, 10, 0}), (Position{2, 1, 0}));
}

} // namespace cg
