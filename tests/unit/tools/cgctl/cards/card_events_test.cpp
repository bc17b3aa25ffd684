// What each change of a record means, as an event.
#include "cards/card_events.h"

#include <gmock/gmock.h>

#include "admission/card_text.h"
#include "forms/json_form.h"
#include "forms/text_form.h"

namespace
{

using namespace cg;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

class CardEventsTest : public testing::Test
{
protected:
    CardEventsTest() { events.tracker().set_modules({"m1", "m2"}); }

    static constexpr bool gone = true;

    void take(const char *type, const Json &fields, bool existing = false, bool deleted = false,
              const store::Cause &by = {})
    {
        now += 1s;
        ++revision;
        events.handle(*from_json(*record_type(type).descriptor, fields), deleted,
                      {now, existing, {revision, {"daemon" + std::to_string(life), revision, by}}});
    }
    void card(bool online, const std::string &name = "lc", bool existing = false, bool deleted = false)
    {
        take("card_info",
             {{"index", {{"devid", 1}, {"slotid", 3}}},
              {"name", name},
              {"is_online", online},
              {"static_info", {{"node_type", 3}}},
              {"card_tipc_nodeid", 1003}},
             existing, deleted);
    }
    void request(bool existing = false, bool deleted = false)
    {
        take("app_cg_card_check_info", {{"index", {{"devid", 1}, {"slotid", 3}}}}, existing, deleted,
             {store::Cause::Kind::record, 1, "p_dev.card_info:0:1:3:0"});
        asked = {revision, {"daemon" + std::to_string(life), revision, {}}};
    }
    // The last one is notified of again.
    void find_request()
    {
        const Json fields{{"index", {{"devid", 1}, {"slotid", 3}}}};
        events.handle(*from_json(*record_type("app_cg_card_check_info").descriptor, fields), false,
                      {now, true, asked});
    }
    void answer(const std::string &module, int ret, bool existing = false)
    {
        take("app_cg_card_check_ack",
             {{"index", {{"devid", 1}, {"slotid", 3}, {"mod_name", module}}}, {"ret", ret}}, existing);
        cause = {store::Cause::Kind::record, revision, "p_libpub.app_cg_card_check_ack:1:3:0:" + module};
    }
    // By the last answer.
    void result(bool pass, bool existing = false)
    {
        take("app_cg_mom_deny_check_result",
             {{"index", {{"card_tipc_nodeid", 1003}}}, {"stat", pass ? 1 : 0}}, existing, false, cause);
    }
    void power(bool updown, bool deleted = false)
    {
        take("im_card_power_onoff", {{"index", {{"devid", 1}, {"slotid", 3}}}, {"updown", updown}}, false,
             deleted);
    }
    void receive_all()
    {
        events.received(1, now);
        events.received(33, now);
    }
    std::vector<std::string> texts()
    {
        std::vector<std::string> result;
        for (const Event &event : std::exchange(told, {})) {
            result.push_back(event_json(event)["event"].get<std::string>() + ' ' + event_text(event));
        }
        return result;
    }

    int life = 1;
    uint64_t revision = 0;
    admission::Write asked{};
    store::Cause cause{};
    std::vector<Event> told;
    CardEvents events{[this](const Event &event) { told.push_back(event); }};
    Time now = Time{} + 1000000s;
};

TEST_F(CardEventsTest, WhatWasThereBeforeIsNoEvent)
{
    card(true, "lc", true);
    request(true);
    receive_all();
    EXPECT_THAT(texts(), IsEmpty());
    card(true, "lc", true); // told again after an outage
    find_request();
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(CardEventsTest, ACheckIsTold)
{
    receive_all();
    card(true);
    request();
    answer("m1", 0);
    answer("m2", 7);
    result(false);
    power(false);
    EXPECT_THAT(texts(),
                ElementsAre("plugged 1/3/0 lc: plugged, lc, online",
                            "asked 1/3/0 lc: check requested of m1, m2", "answer 1/3/0 lc: m1 PASS after 1 s",
                            "answer 1/3/0 lc: m2 DENY after 2 s",
                            "decision 1/3/0 lc: denied by m2: m2 not compatible",
                            "power 1/3/0 lc: power-off requested"));
    request(false, gone);
    power(false, gone);
    EXPECT_THAT(texts(), ElementsAre("power 1/3/0 lc: power-off request withdrawn"));
}

TEST_F(CardEventsTest, AnswersOfStrangersAreToldAsSuch)
{
    receive_all();
    card(true);
    request();
    (void)texts();
    answer("m\n9", 0);
    EXPECT_THAT(
        texts(),
        ElementsAre("answer 1/3/0 lc: m\\n9 PASS after 1 s (not registered: its answers are ignored)"));
}

TEST_F(CardEventsTest, ComingAndGoingIsTold)
{
    receive_all();
    card(false);
    card(true);
    card(true, "another");
    card(false, "another");
    card(false, "another", false, gone);
    EXPECT_THAT(texts(), ElementsAre("plugged 1/3/0 lc: plugged, lc, offline", "online 1/3/0 lc: online",
                                     "changed 1/3/0 another: replaced, or its data changed: lc",
                                     "offline 1/3/0 another: offline", "pulled 1/3/0 another: pulled"));
}

TEST_F(CardEventsTest, WhatHappenedWhileTheStoreWasAwayIsToldAsSuch)
{
    receive_all();
    card(true);
    (void)texts();
    events.store_heard({1, false, false, "reset\n"}, now);
    events.store_heard({1, true, true}, now);
    card(false, "lc", true);
    EXPECT_THAT(texts(), ElementsAre("store lost the store, database 1: reset\\n; reconnecting",
                                     "store the store is back, database 1",
                                     "offline 1/3/0 lc: offline (while the store was away)"));
}

TEST_F(CardEventsTest, WhatIsFoundInADatabaseThatComesLaterIsNoEvent)
{
    card(true, "lc", true);
    events.received(1, now);
    power(false);
    EXPECT_THAT(texts(), IsEmpty());
    card(false);
    EXPECT_THAT(texts(), ElementsAre("offline 1/3/0 lc: offline"));
    events.received(33, now);
    power(false, true);
    EXPECT_THAT(texts(), testing::SizeIs(1));
}

TEST_F(CardEventsTest, AnAnswerThatComesBeforeAllIsToldAnewIsToldOnce)
{
    answer("m1", 0, true);
    receive_all();
    card(true);
    request();
    answer("m1", 0);
    (void)texts();
    events.store_heard({1, false, false, "reset\n"}, now);
    events.store_heard({1, true, true}, now);
    (void)texts();
    card(true, "lc", true);
    find_request();
    answer("m1", 0, true); // another one, which the daemon has not read yet
    answer("m2", 7, true);
    EXPECT_THAT(texts(), ElementsAre("answer 1/3/0 lc: m1 PASS (while the store was away)",
                                     "answer 1/3/0 lc: m2 DENY (while the store was away)"));
    --revision;
    answer("m2", 7, true);
    EXPECT_THAT(texts(), IsEmpty()) << "written before the answers were told, and told with them";
    take("app_cg_card_check_ack", {{"index", {{"devid", 1}, {"slotid", 9}, {"mod_name", "m1"}}}}, true);
    EXPECT_THAT(texts(), IsEmpty()) << "of no card";
    receive_all();
    EXPECT_THAT(texts(), IsEmpty());
}

TEST_F(CardEventsTest, AnswersThatStoodBeforeListeningBeganAreNoEvents)
{
    card(true, "lc", true);
    request(true);
    answer("m1", 0, true);
    EXPECT_THAT(texts(), IsEmpty());
    receive_all();
    answer("m1", 0);
    EXPECT_THAT(texts(), ElementsAre("answer 1/3/0 lc: m1 PASS")) << "a live one is told, heard of or not";
}

TEST_F(CardEventsTest, ACheckThatARestartOfTheDaemonCutsOffIsToldBeforeTheNext)
{
    receive_all();
    card(true);
    request();
    answer("m1", 0);
    take("app_cg_card_check_ack", {{"index", {{"devid", 1}, {"slotid", 3}, {"mod_name", "m1"}}}}, false, gone,
         cause); // the daemon reads it
    (void)texts();
    ++life;
    request();
    EXPECT_EQ(tone_of(told.at(0)), Tone::warning);
    EXPECT_THAT(texts(),
                ElementsAre("decision 1/3/0 lc: withdrawn while waiting for m2: the daemon was restarted",
                            "asked 1/3/0 lc: check requested of m1, m2"));
}

TEST_F(CardEventsTest, ACheckThatEndedWhileTheStoreWasAwayIsToldWithItsResult)
{
    receive_all();
    card(true);
    request();
    answer("m1", 0);
    (void)texts();
    request(true, gone);
    EXPECT_THAT(texts(), IsEmpty()); // its result is still to come
    result(true, true);
    receive_all();
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(std::get<admission::Decision>(told[0].what).admitted, true);
    EXPECT_THAT(texts(), ElementsAre("decision 1/3/0 lc: passed by m1 (while the store was away)"));
}

TEST_F(CardEventsTest, AClockThatIsSetBackMakesNoTimeToAnswer)
{
    receive_all();
    card(true);
    request();
    (void)texts();
    now -= 3600s;
    answer("m1", 0);
    EXPECT_THAT(texts(), ElementsAre("answer 1/3/0 lc: m1 PASS"));
}

TEST_F(CardEventsTest, ADaemonThatFallsSilentIsToldOnce)
{
    events.daemon_heard(true, "", now); // before it counts as news
    receive_all();
    events.daemon_heard(false, "/run/x: no\nprocess", now);
    events.daemon_heard(false, "/run/x: no\nprocess", now);
    EXPECT_EQ(event_json(told.at(0))["answers"], false);
    EXPECT_EQ(event_json(told.at(0))["problem"], "/run/x: no\nprocess");
    events.daemon_heard(true, "", now);
    EXPECT_EQ(event_json(told.at(1))["problem"], nullptr);
    EXPECT_THAT(texts(), ElementsAre("daemon the daemon no longer answers, so cards that come now may start "
                                     "unchecked: /run/x: no\\nprocess",
                                     "daemon the daemon answers again"));
}

TEST_F(CardEventsTest, ARecorderThatIsAwayIsToldOnce)
{
    receive_all();
    events.heartbeat_read({now}, now);
    events.heartbeat_read({now - 1min}, now);
    events.heartbeat_read({now - 1min}, now);
    EXPECT_EQ(events.health().text(now).substr(0, 20), "RECORDER AWAY since ");
    EXPECT_EQ(event_json(told.at(0))["at_work"], false);
    EXPECT_EQ(event_json(told.at(0))["alive_at"], utc_text(now - 1min));
    events.heartbeat_read({now}, now);
    EXPECT_EQ(texts().at(1), "recorder cg_recorderd is running again");
    EXPECT_EQ(events.health().text(now), "");
}

TEST_F(CardEventsTest, AHeartbeatMayBeSomewhatLate)
{
    receive_all();
    events.heartbeat_read({now - 44s}, now);
    events.heartbeat_read({}, now); // somebody holds the file
    EXPECT_THAT(texts(), IsEmpty());
    events.heartbeat_read({now - 46s}, now);
    EXPECT_THAT(texts(), testing::SizeIs(1));
}

TEST_F(CardEventsTest, AHistoryThatGoesIsMissedOnce)
{
    const Heartbeat unreadable{std::nullopt, "no history at /x\n"};
    receive_all();
    events.heartbeat_read(unreadable, now);
    EXPECT_THAT(texts(), IsEmpty()) << "there may be no recorder at all";
    events.heartbeat_read({now}, now);
    events.heartbeat_read(unreadable, now);
    events.heartbeat_read(unreadable, now);
    EXPECT_EQ(events.health().text(now).substr(0, 25), "HISTORY UNREADABLE since ");
    EXPECT_EQ(event_json(told.at(0))["at_work"], nullptr);
    EXPECT_EQ(event_json(told.at(0))["problem"], "no history at /x\n");
    events.heartbeat_read({now}, now);
    EXPECT_EQ(event_json(told.at(1))["problem"], nullptr);
    EXPECT_THAT(texts(),
                ElementsAre("recorder whether cg_recorderd is running is not known: no history at /x\\n",
                            "recorder the history can be read again"));
    EXPECT_EQ(events.health().text(now), "");
}

TEST_F(CardEventsTest, TheRoleIsToldWhenItChanges)
{
    take("dp_lib_grole", {{"my_grole", 1}}, true);
    receive_all();
    take("dp_lib_grole", {{"my_grole", 1}});
    take("dp_lib_grole", {{"my_grole", 2}});
    take("dp_lib_grole", {{"my_grole", 2}}, false, gone);
    EXPECT_THAT(texts(),
                ElementsAre("role this device's role is slave", "role this device's role is not known"));
}

TEST_F(CardEventsTest, TheJsonFormHasTheRecordedParts)
{
    receive_all();
    card(true);
    request();
    const Json json = event_json(told.at(1));
    EXPECT_EQ(json, (Json{{"version", 1},
                          {"time", utc_text(now)},
                          {"event", "asked"},
                          {"card", "1/3/0"},
                          {"name", "lc"},
                          {"meanwhile", false},
                          {"waiting_for", {"m1", "m2"}}}));
    events.store_heard({28, false}, now);
    EXPECT_EQ(event_json(told.back())["card"], nullptr);
}

TEST_F(CardEventsTest, ARecordWithoutAKeyIsPassedOver)
{
    receive_all();
    for (const char *type :
         {"card_info", "app_cg_card_check_info", "app_cg_card_check_ack", "im_card_power_onoff"}) {
        take(type, Json::object());
    }
    EXPECT_THAT(texts(), IsEmpty());
}

} // namespace
