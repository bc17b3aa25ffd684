// Records as the tracker's events.
#include "admission/feed.h"

#include <gmock/gmock.h>

#include "records/record_text.h"
#include "records/record_types.h"
#include "vx_mom.h"

namespace
{

using namespace admission;
using namespace std::chrono_literals;
using cg::Json;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Position slot3{1, 3, 0};

class FeedTest : public testing::Test
{
protected:
    FeedTest() { tracker.set_modules({"m1"}); }

    void tell(const char *type, const Json &fields, int32_t cmd = VX_MOM_CMD_SET, bool existing = false)
    {
        const cg::MessagePtr record = cg::from_json(*cg::record_type(type).descriptor, fields);
        feed(tracker, cmd, *record, existing, now);
    }
    void plug(int32_t cmd = VX_MOM_CMD_SET, bool existing = false)
    {
        tell("card_info",
             {{"index", {{"devid", 1}, {"slotid", 3}}},
              {"static_info", {{"node_type", 3}}},
              {"name", "fan"},
              {"serial", "0aff"},
              {"card_nodeid", 103},
              {"card_tipc_nodeid", 1003},
              {"config_dev_type", 17},
              {"is_online", true}},
             cmd, existing);
    }
    void ask(int32_t cmd = VX_MOM_CMD_SET, bool existing = false)
    {
        tell("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", 3}}}}, cmd, existing);
    }
    void answer(int32_t ret, int32_t cmd = VX_MOM_CMD_SET)
    {
        tell("app_cg_card_check_ack",
             {{"index", {{"devid", 1}, {"slotid", 3}, {"mod_name", "m1"}}}, {"ret", ret}, {"reason", "hot"}},
             cmd);
    }
    void result(const char *stat, int32_t cmd = VX_MOM_CMD_SET)
    {
        tell("app_cg_mom_deny_check_result", {{"index", {{"card_tipc_nodeid", 1003}}}, {"stat", stat}}, cmd);
    }
    const TrackedCard &shown() { return *tracker.find(slot3); }

    std::vector<Decision> decisions;
    CardTracker tracker{[this](const Decision &decision) { decisions.push_back(decision); }};
    Time now = Time{} + 1000000s;
};

TEST(InPlaceTest, TypesThatAreOverdueAreNamedOnce)
{
    InPlace in_place;
    Time now = Time{} + 1000s;
    EXPECT_THAT(in_place.overdue(now), IsEmpty()); // the store is not there at all
    const auto &all = tracked_types();
    for (const TrackedType &type : all) {
        if (type.descriptor != all[2].descriptor) {
            in_place.told(type.descriptor);
        }
    }
    now += 100s;
    EXPECT_THAT(in_place.overdue(now), IsEmpty()); // it may come at once
    EXPECT_THAT(in_place.overdue(now + 9s), IsEmpty());
    EXPECT_THAT(in_place.overdue(now + 10s), ElementsAre(all[2].descriptor));
    EXPECT_THAT(in_place.overdue(now + 20s), IsEmpty());
    in_place.told(all[2].descriptor);
    EXPECT_THAT(in_place.overdue(now + 30s), IsEmpty());
    in_place.lost(33);
    EXPECT_THAT(in_place.overdue(now + 40s), IsEmpty());
    EXPECT_THAT(in_place.overdue(now + 50s), SizeIs(2)); // another time
}

} // namespace

TEST_F(FeedTest, ACardsFactsAreTaken)
{
    plug();
    const CardFacts &card = shown().card;
    EXPECT_EQ(card.position, slot3);
    EXPECT_EQ(card.name, "fan");
    EXPECT_EQ(card.serial, "0aff");
    EXPECT_EQ(card.node_type, 3);
    EXPECT_EQ(card.nodeid, 103);
    EXPECT_EQ(card.tipc_nodeid, 1003);
    EXPECT_EQ(card.config_dev_type, 17);
    EXPECT_TRUE(card.online);
}

TEST_F(FeedTest, ACheckFromItsRequestToItsResult)
{
    tell("dp_lib_grole", {{"my_grole", 1}});
    plug();
    ask();
    EXPECT_EQ(shown().state, State::waiting);
    answer(-1);
    answer(-1, VX_MOM_CMD_DELETED); // the daemon has taken it
    result("APP_CG_CHECK_DENY");
    ask(VX_MOM_CMD_DELETED);
    ASSERT_THAT(decisions, SizeIs(1));
    EXPECT_EQ(decisions[0].outcome, Outcome::denied);
    EXPECT_EQ(decisions[0].decider, "m1");
    EXPECT_EQ(decisions[0].reason, "hot");
    EXPECT_EQ(decisions[0].role, 1);
    EXPECT_THAT(decisions[0].answers, SizeIs(1));
    EXPECT_TRUE(decisions[0].complete);
}

TEST_F(FeedTest, APassAndItsRemoval)
{
    plug();
    ask();
    answer(0);
    result("APP_CG_CHECK_PASS");
    ask(VX_MOM_CMD_DELETED);
    EXPECT_EQ(shown().state, State::passed);
    result("APP_CG_CHECK_PASS", VX_MOM_CMD_DELETED);
    EXPECT_EQ(shown().state, State::undecided);
    plug(VX_MOM_CMD_DELETED);
    EXPECT_EQ(shown().state, State::absent);
}

TEST_F(FeedTest, FieldsAreTakenAsAWholeRecordIs)
{
    plug(VX_MOM_CMD_HMSET);
    ask(VX_MOM_CMD_SCANNED, true);
    EXPECT_EQ(shown().state, State::waiting);
    EXPECT_EQ(shown().requested_at, std::nullopt);
}

TEST_F(FeedTest, PowerAndCustomStatus)
{
    const Json index{{"t_devid", 1}, {"t_slotid", 3}, {"t_mod_name", "APP_CG"}};
    tell("dm_set_card_custom_st", {{"index", index}, {"status", "CANNOT_STARTUP"}});
    tell("im_card_power_onoff", {{"index", {{"devid", 1}, {"slotid", 3}}}, {"updown", false}});
    EXPECT_TRUE(shown().cannot_start);
    EXPECT_TRUE(shown().power_off);
    tell("im_card_power_onoff", {{"index", {{"devid", 1}, {"slotid", 3}}}, {"updown", true}});
    EXPECT_FALSE(shown().power_off);
    tell("dm_set_card_custom_st", {{"index", index}, {"status", "CANNOT_STARTUP"}}, VX_MOM_CMD_DELETED);
    EXPECT_EQ(tracker.find(slot3), nullptr);
}

TEST_F(FeedTest, AnothersCustomStatusIsNotOurs)
{
    tell("dm_set_card_custom_st",
         {{"index", {{"t_devid", 1}, {"t_slotid", 3}, {"t_mod_name", "FAN"}}}, {"status", "CANNOT_STARTUP"}});
    EXPECT_THAT(tracker.cards(), IsEmpty());
}

TEST_F(FeedTest, ADeletedRoleIsUnknown)
{
    tell("dp_lib_grole", {{"my_grole", 1}});
    tell("dp_lib_grole", {{"my_grole", 1}}, VX_MOM_CMD_DELETED);
    plug();
    ask();
    ask(VX_MOM_CMD_DELETED);
    EXPECT_EQ(decisions.at(0).role, std::nullopt);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::withdrawn);
}

TEST_F(FeedTest, RecordsWithoutAKeyAndOtherCommandsArePassedOver)
{
    for (const TrackedType &type : tracked_types()) {
        const cg::MessagePtr record = cg::from_json(*type.descriptor, Json::object());
        feed(tracker, VX_MOM_CMD_SET, *record, false, now);
    }
    plug(VX_MOM_CMD_SUBSCRIBED);
    tell("app_cg_card_bak_info", {{"index", {{"devid", 1}, {"slotid", 3}}}});
    EXPECT_THAT(tracker.cards(), IsEmpty());
}

TEST_F(FeedTest, ACardWithoutAStaticPartHasNoType)
{
    tell("card_info", {{"index", {{"devid", 1}, {"slotid", 3}}}, {"is_online", true}});
    EXPECT_EQ(shown().card.node_type, 0);
    EXPECT_EQ(shown().card.serial, "");
}

TEST(InPlaceTest, AChangeIsNewsWhenAllTypesOfItsDatabaseWereTold)
{
    InPlace in_place;
    EXPECT_TRUE(in_place.is_empty());
    for (const TrackedType &type : tracked_types()) {
        EXPECT_FALSE(in_place.is_complete(type.db));
        EXPECT_EQ(in_place.told(type.descriptor), type.descriptor == tracked_types().back().descriptor);
    }
    EXPECT_TRUE(in_place.is_complete(1));
    EXPECT_TRUE(in_place.is_complete(33));
    in_place.lost(33);
    EXPECT_TRUE(in_place.is_complete(1));
    EXPECT_FALSE(in_place.is_complete(33));
    EXPECT_FALSE(in_place.told(tracked_types()[5].descriptor));
    EXPECT_TRUE(in_place.told(tracked_types()[6].descriptor));
}
