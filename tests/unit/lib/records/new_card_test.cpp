// A card to be plugged, as a record.
#include "records/new_card.h"

#include <gtest/gtest.h>

#include "base/failure.h"
#include "records/position_key.h"

namespace cg
{

TEST(NewCard, HasIdsOfItsPositionUnlessTheyAreGiven)
{
    NewCard card{{1, 3, 2}};
    EXPECT_EQ(position_of(*card_info_of(card)), (Position{1, 3, 2}));
    Json info = to_json(*card_info_of(card));
    EXPECT_EQ(info["user_slot"], 3);
    EXPECT_EQ(info["user_sslot"], 2);
    EXPECT_EQ(info["card_nodeid"], 0x10302);
    EXPECT_EQ(info["card_tipc_nodeid"], 0x1010302);
    EXPECT_EQ(info["name"], "card 1/3/2");
    EXPECT_EQ(info["is_online"], true);
    EXPECT_EQ(info["is_mboard"], false);
    EXPECT_EQ(info["config_dev_type"], 1);
    EXPECT_EQ(info["static_info"]["node_type"], "DM_TYPE_LC");
    card = {{1, 3, 2}, true, "17", "MB", "5", "6", "a name", "00e0"};
    info = to_json(*card_info_of(card));
    EXPECT_EQ(info["card_nodeid"], 5);
    EXPECT_EQ(info["card_tipc_nodeid"], 6);
    EXPECT_EQ(info["name"], "a name");
    EXPECT_EQ(info["is_online"], false);
    EXPECT_EQ(info["is_mboard"], true);
    EXPECT_EQ(info["serial"], "00e0");
    EXPECT_EQ(info["static_info"]["index"]["type"], 17);
}

TEST(NewCard, IdsCanBeMadeUpToABound)
{
    for (const Position &position : {Position{0, 0, 0}, Position{127, 255, 255}}) {
        EXPECT_TRUE(has_derived_ids(position)) << position.text();
    }
    for (const Position &position : {Position{-1, 0, 0}, Position{128, 0, 0}, Position{0, -1, 0},
                                     Position{0, 256, 0}, Position{0, 0, -1}, Position{0, 0, 256}}) {
        EXPECT_FALSE(has_derived_ids(position)) << position.text();
        NewCard card{position};
        EXPECT_THROW(card_info_of(card), Failure) << position.text();
        card.nodeid = "1";
        EXPECT_THROW(card_info_of(card), Failure) << "one of the two is missing";
        card.tipc = "2";
        EXPECT_EQ(to_json(*card_info_of(card))["card_tipc_nodeid"], 2);
    }
}

TEST(NewCard, KindsHaveNamesOrNumbers)
{
    EXPECT_EQ(node_type_value("lc"), "DM_TYPE_LC");
    EXPECT_EQ(node_type_value("Lc"), "DM_TYPE_LC");
    EXPECT_EQ(node_type_value("DM_TYPE_MB"), "DM_TYPE_MB");
    EXPECT_EQ(node_type_value("42"), "42");
    EXPECT_THROW(node_type_value("4.2"), Failure);
}

} // namespace cg
