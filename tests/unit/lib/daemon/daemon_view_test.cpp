// What the daemon's dumps say, honest and forged.
#include "daemon/daemon_view.h"

#include <gmock/gmock.h>

namespace
{

using namespace cg;
using testing::ElementsAre;
using testing::IsEmpty;

std::string line(int slot, const std::string &reason, int count, int bits)
{
    return "node[0x00000067] config_dev_type[200] devid[1] slotid[" + std::to_string(slot) +
           "] sslotid[0] is_online[1] tipc_node[1003] node_type[3], dm_install[1] reported[0] reason[" +
           reason + "] stat[0] app_cg_wait_obj_num[" + std::to_string(count) + "] app_cg_wait_obj_bmp[" +
           std::to_string(bits) + "] timer[0x5581]\n";
}

const std::string heading = "===================CURRENT_NODE_INFO===================\n";
const std::vector<std::string> three{"m1", "m2", "m3"};

TEST(DaemonView, NamesTheModulesInTheOrderOfTheirBits)
{
    EXPECT_THAT(modules_in("app_cg_wait_obj_num 2\napp_cg_wait_obj_bmp 0x3\n"
                           "wait mod[0], name[m2]\nwait mod[1], name[m]1]\n"),
                ElementsAre("m2", "m]1"));
    EXPECT_THAT(modules_in("app_cg_wait_obj_num 0\napp_cg_wait_obj_bmp 0x0\n"), IsEmpty());
}

TEST(DaemonView, ABitSetIsAModuleWaitedFor)
{
    const auto cards = daemon_cards_in(heading + line(3, "", 3, 5) + line(4, "too hot", 3, 0), three);
    ASSERT_EQ(cards.size(), 2U);
    EXPECT_THAT(cards.at({1, 3, 0}).waiting_for, ElementsAre("m1", "m3"));
    EXPECT_THAT(cards.at({1, 4, 0}).waiting_for, IsEmpty());
    EXPECT_EQ(cards.at({1, 4, 0}).reason, "too hot");
}

TEST(DaemonView, BitsOfOtherModulesThanTodaysHaveNoNames)
{
    const auto cards = daemon_cards_in(heading + line(3, "", 2, 3), three);
    EXPECT_FALSE(cards.at({1, 3, 0}).names_known);
    EXPECT_THAT(cards.at({1, 3, 0}).waiting_for, IsEmpty());
}

TEST(DaemonView, AReasonMayHoldAnything)
{
    const std::string reason = "a\nb] stat[1] app_cg_wait_obj_num[3] app_cg_wait_obj_bmp[0] timer[0x1]\nc";
    const auto cards = daemon_cards_in(heading + line(3, reason, 3, 2) + line(4, "", 3, 1), three);
    ASSERT_EQ(cards.size(), 2U);
    EXPECT_EQ(cards.at({1, 3, 0}).reason, reason);
    EXPECT_THAT(cards.at({1, 3, 0}).waiting_for, ElementsAre("m2"));
}

TEST(DaemonView, OfAPositionThatIsNamedTwiceNothingIsBelieved)
{
    const auto cards =
        daemon_cards_in(heading + line(3, "x\n" + line(4, "", 3, 7), 3, 1) + line(4, "", 3, 1), three);
    EXPECT_FALSE(cards.contains({1, 4, 0}));
}

TEST(DaemonView, WhatIsNoDumpSaysNothing)
{
    for (const char *text :
         {"", "\n", "node[0x1] devid[1]", "node[0x00000067] devid[x] reason[] stat[0]",
          "node[0x1] devid[1] slotid[1] sslotid[0] reason[a] stat[0] app_cg_wait_obj_num[1]"}) {
        EXPECT_THAT(daemon_cards_in(text, three), IsEmpty()) << text;
    }
}

} // namespace
