// The chassis as its front looks; where it stands on the screen is in screen_layout_test.cpp.
#include "screen/front_panel.h"

#include <gtest/gtest.h>

namespace cg
{

namespace
{

ScreenCard card(int device, int slot, int sub = 0)
{
    ScreenCard card;
    card.position = {device, slot, sub};
    card.name = "lc";
    return card;
}

} // namespace

TEST(FrontPanel, ABarIsAsLongAsItsShare)
{
    EXPECT_EQ(bar(0.5, 4), "██░░");
    EXPECT_EQ(bar(2, 2), "██");
    EXPECT_EQ(bar(-1, 2), "░░");
    EXPECT_EQ(bar(1, 0), "");
}

TEST(FrontPanel, PlacesEveryCardOnceInItsBox)
{
    const Chassis chassis{{card(1, 3), card(1, 3, 1), card(1, 4), card(2, 1)}};
    const FrontPanel panel = front_panel(chassis, 80, 40);
    ASSERT_EQ(panel.places.size(), 4U);
    EXPECT_EQ(panel.places[0].x, panel.places[1].x) << "a sub-slot stands inside its slot";
    EXPECT_LT(panel.places[0].y, panel.places[1].y);
    EXPECT_LT(panel.places[0].x, panel.places[2].x);
    EXPECT_GT(panel.places[3].y, panel.places[1].y) << "devices stand one below the other";
    for (const CardPlace &place : panel.places) {
        EXPECT_LE(place.y + place.height, panel.canvas.size().height);
    }
}

TEST(FrontPanel, WhereBoxesHaveNoRoomEachCardIsALine)
{
    Chassis chassis{{card(1, 3), card(1, 4)}};
    EXPECT_EQ(front_panel(chassis, 80, 3).places[0].height, 1U);
    chassis.panel = Panel::boxes;
    EXPECT_GT(front_panel(chassis, 80, 3).places[0].height, 1U) << "as the user wants it";
    chassis.panel = Panel::lines;
    EXPECT_EQ(front_panel(chassis, 80, 40).places[0].height, 1U);
}

} // namespace cg
