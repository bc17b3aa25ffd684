// What is told of a change.
#include "story.h"

#include <gtest/gtest.h>

#include "admission/feed.h"
#include "records/record_text.h"

namespace cg
{

namespace
{

// The fields of a position's key.
Json key_of(const Position &position)
{
    return {{"devid", position.devid}, {"slotid", position.slotid}, {"sslotid", position.sslotid}};
}

class Story : public testing::Test
{
protected:
    // "KIND CARD TEXT" of a change, which then is made known; empty when nothing is to be told.
    std::string told(const char *type, const Json &fields, bool deleted = false)
    {
        const MessagePtr record = from_json(*record_type(type).descriptor, fields);
        const auto event = event_of(deleted, *record, tracker_);
        admission::feed(tracker_, *record, deleted, {});
        more_ = event ? event->more : Json();
        return event ? event->kind + ' ' + (event->card ? event->card->text() : "-") + ' ' + event->text : "";
    }

    static Json card(bool online, const std::string &type = "DM_TYPE_LC")
    {
        return {{"index", key_of({1, 3, 0})},
                {"name", "a\tb"},
                {"is_online", online},
                {"static_info", {{"node_type", type}}}};
    }

    admission::CardTracker tracker_;
    Json more_;
};

} // namespace

TEST_F(Story, OfACard)
{
    EXPECT_EQ(told("p_dev.card_info", card(false)), "plugged 1/3/0 plugged: line card 'a\\tb', offline");
    EXPECT_EQ(more_, (Json{{"name", "a\tb"}, {"online", false}}));
    EXPECT_EQ(told("p_dev.card_info", card(false)), "") << "nothing has changed";
    EXPECT_EQ(told("p_dev.card_info", card(true)), "online 1/3/0 is online");
    EXPECT_EQ(told("p_dev.card_info", card(false)), "offline 1/3/0 went offline");
    EXPECT_EQ(told("p_dev.card_info", card(false), true), "pulled 1/3/0 pulled");
    for (const auto &[type, text] : std::map<std::string, std::string>{
             {"DM_TYPE_MB", "main board"}, {"DM_TYPE_HPSC", "service card"}, {"DM_TYPE_UNKNOWN", "card"}}) {
        EXPECT_EQ(told("p_dev.card_info", card(true, type)),
                  "plugged 1/3/0 plugged: " + text + " 'a\\tb', online");
        told("p_dev.card_info", card(true, type), true);
    }
    EXPECT_EQ(told("p_dev.card_info", {{"name", "no key"}}), "");
}

TEST_F(Story, OfACheck)
{
    const Json request{{"index", key_of({1, 3, 0})}};
    EXPECT_EQ(told("p_libpub.app_cg_card_check_info", request),
              "request 1/3/0 held; the check modules are asked");
    EXPECT_EQ(told("p_libpub.app_cg_card_check_info", request, true), "");
    Json ack{{"index", {{"devid", 1}, {"slotid", 3}, {"t_sslotid", 2}, {"mod_name", "m1"}}}};
    EXPECT_EQ(told("p_libpub.app_cg_card_check_ack", ack), "answer 1/3/2 m1 answers PASS");
    ack["ret"] = 4;
    EXPECT_EQ(told("p_libpub.app_cg_card_check_ack", ack),
              "answer 1/3/2 m1 answers DENY and gives no reason");
    ack["reason"] = "too\nwarm";
    EXPECT_EQ(told("p_libpub.app_cg_card_check_ack", ack), "answer 1/3/2 m1 answers DENY: too\\nwarm");
    EXPECT_EQ(more_, (Json{{"module", "m1"}, {"ret", 4}, {"reason", "too\nwarm"}}));
    EXPECT_EQ(told("p_libpub.app_cg_card_check_ack", ack, true), "");
}

TEST_F(Story, OfWhatTheDaemonDoesToADeniedCard)
{
    EXPECT_EQ(told("p_dev.dm_set_card_custom_st", {{"index", {{"t_devid", 1}, {"t_slotid", 3}}}}),
              "marked 1/3/0 marked as unable to start");
    Json power{{"index", {{"devid", 1}, {"slotid", 3}, {"cause", "m1"}}}};
    EXPECT_EQ(told("s_dev.im_card_power_onoff", power), "power_off 1/3/0 power-off requested: m1");
    power["updown"] = 1;
    EXPECT_EQ(told("s_dev.im_card_power_onoff", power), "");
}

TEST_F(Story, OfTheRoleAndOfNothing)
{
    EXPECT_EQ(told("p_dev.dp_lib_grole", {{"my_grole", 1}}), "role - this device is master");
    EXPECT_EQ(told("p_dev.dp_lib_grole", {{"my_grole", 1}}, true), "");
    EXPECT_EQ(told("p_libpub.app_cg_mom_deny_check_result", {{"stat", 1}}), "");
}

TEST_F(Story, OfTheEndOfACheck)
{
    admission::Decision decision;
    decision.card.position = {1, 3, 0};
    decision.outcome = admission::Outcome::denied;
    decision.admitted = false;
    decision.decider = "m1";
    EXPECT_EQ(event_of(decision).text, "DENIED by m1");
    decision.outcome = admission::Outcome::passed;
    decision.admitted = true;
    EXPECT_EQ(event_of(decision).text, "ADMITTED: passed by m1");
    decision = {};
    decision.outcome = admission::Outcome::withdrawn;
    EXPECT_EQ(event_of(decision).text, "");
    EXPECT_EQ(event_of(decision).more["decision"]["outcome"], "withdrawn");
}

TEST_F(Story, OfAnExpectation)
{
    ExpectationResult result{
        "f", 7, {1, 3, 0}, "lc", "passed", "denied by m1", false, scenario::Milliseconds(1500)};
    EXPECT_EQ(event_of(result).text, "MISSED: expected passed, seen denied by m1");
    EXPECT_EQ(event_of(result).more, (Json{{"file", "f"},
                                           {"line", 7},
                                           {"expected", "passed"},
                                           {"seen", "denied by m1"},
                                           {"held", false},
                                           {"after_s", 1.5}}));
    result.held = true;
    EXPECT_EQ(event_of(result).text, "");
}

} // namespace cg
