// Positions are typed by hand: what is taken for one, and what is refused.
#include "records/position.h"
#include "records/position_key.h"

#include <gtest/gtest.h>

#include "base/failure.h"
#include "records/record_text.h"

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
    const auto position_in = [](const char *type, const Json &key) {
        return position_of(*from_json(*record_type(type).descriptor, {{"index", key}}));
    };
    EXPECT_EQ(position_in("card_info", {{"devid", 1}, {"slotid", 3}, {"sslotid", 2}}), (Position{1, 3, 2}));
    EXPECT_EQ(position_in("app_cg_card_check_ack", {{"devid", 1}, {"slotid", 3}, {"t_sslotid", 2}}),
              (Position{1, 3, 2}));
    EXPECT_EQ(position_in("dm_set_card_custom_st", {{"t_devid", 1}, {"t_slotid", 3}, {"t_sslotid", 2}}),
              (Position{1, 3, 2}));
    EXPECT_EQ(position_of(CardInfoAt({1, 3, 2}).record.base), (Position{1, 3, 2}));
}

TEST(Position, IsNotInEveryRecord)
{
    const auto has_position = [](const char *type, const Json &fields) {
        return position_of(*from_json(*record_type(type).descriptor, fields)).has_value();
    };
    EXPECT_FALSE(has_position("dp_lib_grole", Json::object())) << "a type without a key";
    EXPECT_FALSE(has_position("card_info", Json::object())) << "a record whose key is missing";
    EXPECT_FALSE(has_position("app_cg_mom_deny_check_result", {{"index", {{"card_tipc_nodeid", 7}}}}));
}

TEST(Position, SortsByDeviceSlotAndSubSlot)
{
    EXPECT_LT((Position{1, 3, 9}), (Position{1, 10, 0}));
    EXPECT_LT((Position{1, 10, 0}), (Position{2, 1, 0}));
}

} // namespace cg
