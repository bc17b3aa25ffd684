// Records as the tracker's events.
#include "admission/feed.h"

#include <gmock/gmock.h>

#include "records/record_text.h"
#include "records/record_types.h"

namespace
{

using namespace admission;
using namespace std::chrono_literals;
using cg::Json;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Position slot3{1, 3, 0};
constexpr bool gone = true;

class FeedTest : public testing::Test
{
protected:
    FeedTest() { tracker.set_modules({"m1"}); }

    void tell(const char *type, const Json &fields, bool deleted = false, bool existing = false,
              const store::Cause &cause = {})
    {
        const cg::MessagePtr record = cg::from_json(*cg::record_type(type).descriptor, fields);
        feed(tracker, *record, deleted, {now, existing, {++revision, {"daemon", ++number, cause}}});
    }
    void plug(bool deleted = false, bool existing = false)
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
             deleted, existing);
    }
    void ask(bool deleted = false, bool existing = false)
    {
        tell("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", 3}}}}, deleted, existing,
             {store::Cause::Kind::record, 1, "p_dev.card_info:0:1:3:0"});
    }
    void answer(int32_t ret, bool deleted = false)
    {
        tell("app_cg_card_check_ack",
             {{"index", {{"devid", 1}, {"slotid", 3}, {"mod_name", "m1"}}}, {"ret", ret}, {"reason", "hot"}},
             deleted, false, deleted ? by_answer : store::Cause{});
        if (!deleted) {
            by_answer = {store::Cause::Kind::record, revision, "p_libpub.app_cg_card_check_ack:1:3:0:m1"};
        }
    }
    void result(const char *stat, bool deleted = false)
    {
        tell("app_cg_mom_deny_check_result", {{"index", {{"card_tipc_nodeid", 1003}}}, {"stat", stat}},
             deleted, false, by_answer);
    }
    const TrackedCard &shown() { return *tracker.find(slot3); }

    std::vector<Decision> decisions;
    CardTracker tracker{[this](const Decision &decision) { decisions.push_back(decision); }};
    Time now = Time{} + 1000000s;
    uint64_t revision = 0;
    uint64_t number = 0;
    store::Cause by_answer{};
};

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
    answer(-1, gone); // the daemon has taken it
    result("APP_CG_CHECK_DENY");
    ask(gone);
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
    ask(gone);
    EXPECT_EQ(shown().state, State::passed);
    result("APP_CG_CHECK_PASS", gone);
    EXPECT_EQ(shown().state, State::undecided);
    plug(gone);
    EXPECT_EQ(shown().state, State::absent);
}

TEST_F(FeedTest, WhatIsFoundIsNoNews)
{
    plug(false, true);
    ask(false, true);
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
    tell("dm_set_card_custom_st", {{"index", index}, {"status", "CANNOT_STARTUP"}}, gone);
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
    tell("dp_lib_grole", {{"my_grole", 1}}, gone);
    plug();
    ask();
    ask(gone);
    EXPECT_EQ(decisions.at(0).role, std::nullopt);
    EXPECT_EQ(decisions.at(0).outcome, Outcome::withdrawn);
}

TEST_F(FeedTest, RecordsWithoutAKeyAndOtherTypesArePassedOver)
{
    for (const TrackedType &type : tracked_types()) {
        const cg::MessagePtr record = cg::from_json(*type.descriptor, Json::object());
        feed(tracker, *record, false, {now});
    }
    tell("app_cg_card_bak_info", {{"index", {{"devid", 1}, {"slotid", 3}}}});
    EXPECT_THAT(tracker.cards(), IsEmpty());
}

TEST_F(FeedTest, ACardWithoutAStaticPartHasNoType)
{
    tell("card_info", {{"index", {{"devid", 1}, {"slotid", 3}}}, {"is_online", true}});
    EXPECT_EQ(shown().card.node_type, 0);
    EXPECT_EQ(shown().card.serial, "");
}
