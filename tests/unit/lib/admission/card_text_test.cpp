// A card's admission in words.
#include "admission/card_text.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace
{

using namespace cg;
using namespace std::chrono_literals;
using admission::Decision;
using admission::Outcome;
using admission::State;
using admission::TrackedCard;

class CardText : public testing::Test
{
protected:
    CardText()
    {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ~CardText() override
    {
        unsetenv("TZ");
        tzset();
    }

    static TrackedCard in(State state)
    {
        TrackedCard card;
        card.state = state;
        return card;
    }
    static TrackedCard ended(State state, Outcome outcome, const std::string &decider,
                             const std::vector<std::string> &silent = {})
    {
        TrackedCard card = in(state);
        card.last.emplace();
        card.last->outcome = outcome;
        card.last->decider = decider;
        card.last->silent = silent;
        card.explained = true;
        card.decider = decider;
        card.denied = state == State::denied;
        return card;
    }

    admission::Time now = admission::Time{} + std::chrono::hours{24 * 20000} + 14h + 2min + 11s + 5ms;
};

TEST_F(CardText, WaitingNamesWhomAndHowLong)
{
    TrackedCard card = in(State::waiting);
    EXPECT_EQ(state_text(card), "waiting");
    card.waiting_for = {"m1", "m3"};
    EXPECT_EQ(state_text(card), "waiting for m1, m3");
    EXPECT_EQ(state_text(card, 211001ms), "waiting for m1, m3 (212 s left)");
    EXPECT_EQ(state_text(card, 0ms), "waiting for m1, m3 (0 s left)");
    card.any_will_do = true;
    EXPECT_EQ(state_text(card), "waiting for any of m1, m3");
    EXPECT_EQ(admission_json(card, std::nullopt)["any_will_do"], true);
    card.waiting_for = {"m\033[2J"};
    EXPECT_EQ(state_text(card), "waiting for m\\x1B[2J");
}

TEST_F(CardText, AnAdmissionBySilenceNamesTheSilent)
{
    EXPECT_EQ(state_text(ended(State::silence, Outcome::silence, "", {"m2"})), "admitted by time-out of m2");
    EXPECT_EQ(state_text(ended(State::silence, Outcome::silence, "", {"m2", "m3"})),
              "admitted by time-out of m2, m3");
    EXPECT_EQ(state_text(in(State::silence)), "admitted by time-out");
}

TEST_F(CardText, ADenialNamesTheDeciderWhereItIsKnown)
{
    EXPECT_EQ(state_text(ended(State::denied, Outcome::denied, "m1")), "denied by m1");
    EXPECT_EQ(state_text(in(State::denied)), "denied");
    TrackedCard found = in(State::denied);
    found.decider = "m2";
    EXPECT_EQ(state_text(found), "denied by m2");
    EXPECT_EQ(denial_of(found), nullptr);
    EXPECT_EQ(denial_of(ended(State::denied, Outcome::denied, "m1"))->decider, "m1");
    EXPECT_EQ(denial_of(ended(State::passed, Outcome::passed, "m1")), nullptr);
}

TEST_F(CardText, ADeniedCardThatWentOffLineIsStillDenied)
{
    TrackedCard card = ended(State::offline, Outcome::denied, "m1");
    EXPECT_EQ(state_text(card), "offline");
    card.denied = true;
    EXPECT_EQ(state_text(card), "offline, denied by m1");
    EXPECT_EQ(tone_of(card), Tone::bad);
    card.decider.clear();
    EXPECT_EQ(state_text(card), "offline, denied");
}

TEST_F(CardText, TheOthersAreOneWordOrTwo)
{
    EXPECT_EQ(state_text(ended(State::passed, Outcome::passed, "m2")), "passed");
    EXPECT_EQ(tone_of(ended(State::passed, Outcome::passed, "m2")), Tone::good);
    EXPECT_EQ(state_text(in(State::offline)), "offline");
    EXPECT_EQ(state_text(in(State::absent)), "absent");
    EXPECT_EQ(state_text(in(State::exempt)), "exempt");
    EXPECT_EQ(state_text(in(State::unasked)), "no module registered");
    EXPECT_EQ(state_text(in(State::undecided)), "undecided");
}

TEST_F(CardText, APassWhoseResultSaysNotHowIsNoPlainPass)
{
    for (const TrackedCard &card : {in(State::passed), ended(State::passed, Outcome::unseen, "")}) {
        EXPECT_EQ(state_text(card), "passed (cause unknown)");
        EXPECT_EQ(tone_of(card), Tone::warning);
        EXPECT_EQ(admission_json(card, std::nullopt)["state"], "passed");
        EXPECT_EQ(admission_json(card, std::nullopt)["unseen"], true);
    }
    const TrackedCard known = ended(State::passed, Outcome::passed, "m1");
    EXPECT_EQ(admission_json(known, std::nullopt)["unseen"], false);
}

TEST_F(CardText, ACheckThatEndedUnseenSaysWhatTheStoreHoldsOfIt)
{
    Decision decision;
    EXPECT_EQ(decision_text(decision), "ended unseen");
    decision.admitted = true;
    EXPECT_EQ(decision_text(decision), "ended unseen, passed");
    decision.admitted = false;
    EXPECT_EQ(decision_text(decision), "ended unseen, denied");
}

TEST_F(CardText, SinceIsLocalTimeAndHowLongAgo)
{
    TrackedCard card = in(State::passed);
    EXPECT_EQ(since_text(card, now), "");
    card.since = now - 88s;
    EXPECT_EQ(since_text(card, now), "14:00:43 (88 s ago)");
    card.since = now - 26h;
    EXPECT_EQ(since_text(card, now), "2024-10-03 12:02:11 (26 h ago)");
    card.since = now + 5s; // another clock's time
    EXPECT_EQ(since_text(card, now), "14:02:16 (0 s ago)");
}

TEST_F(CardText, WhereThereIsLittleRoomTheSecondsComeFirst)
{
    TrackedCard card = in(State::waiting);
    card.waiting_for = {"m1", "m3"};
    using Parts = std::pair<std::string, std::string>;
    EXPECT_EQ(state_parts(card, 211001ms), (Parts{"waiting 212 s", "for m1, m3"}));
    EXPECT_EQ(state_parts(card, std::nullopt), (Parts{"waiting", "for m1, m3"}));
    EXPECT_EQ(state_parts(ended(State::denied, Outcome::denied, "m1"), {}), (Parts{"denied", "by m1"}));
    EXPECT_EQ(state_parts(ended(State::silence, Outcome::silence, "", {"m2"}), {}),
              (Parts{"admitted by time-out", "of m2"}));
    EXPECT_EQ(state_parts(in(State::offline), {}), (Parts{"offline", ""}));
}

TEST_F(CardText, TheSummaryNamesOnlyWhatThereIs)
{
    Summary summary;
    EXPECT_EQ(summary.text(), "0 cards");
    summary.add(in(State::offline));
    EXPECT_EQ(summary.text(), "1 card: 1 offline");
    for (const State state : {State::waiting, State::silence, State::denied}) {
        summary.add(in(state));
    }
    summary.add(ended(State::passed, Outcome::passed, "m1"));
    summary.add(ended(State::passed, Outcome::passed, "m2"));
    EXPECT_EQ(summary.text(), "6 cards: 2 passed, 1 admitted by time-out, 1 waiting, 1 denied, "
                              "1 offline");
    TrackedCard denied = in(State::offline);
    denied.denied = true;
    Summary of_denied;
    of_denied.add(denied);
    of_denied.add(in(State::denied));
    EXPECT_EQ(of_denied.text(), "2 cards: 2 denied");
}

TEST_F(CardText, TypesAndRolesWithoutANameAreNumbers)
{
    EXPECT_EQ(short_type(3), "lc");
    EXPECT_EQ(short_type(4), "sub_lc");
    EXPECT_EQ(short_type(99), "99");
    EXPECT_EQ(role_word(1), "master");
    EXPECT_EQ(role_word(-1), "-1");
}

TEST_F(CardText, AnEndHasTheToneOfWhatItMeans)
{
    Decision decision;
    const auto tone = [&decision](Outcome outcome) {
        decision.outcome = outcome;
        return tone_of(decision);
    };
    EXPECT_EQ(tone(Outcome::denied), Tone::bad);
    for (const Outcome outcome : {Outcome::silence, Outcome::unseen}) {
        EXPECT_EQ(tone(outcome), Tone::warning);
    }
    for (const Outcome outcome : {Outcome::passed, Outcome::exempt, Outcome::unasked}) {
        EXPECT_EQ(tone(outcome), Tone::good);
    }
    EXPECT_EQ(tone(Outcome::withdrawn), Tone::quiet);
    decision.reason = admission::daemon_restarted;
    EXPECT_EQ(tone(Outcome::withdrawn), Tone::warning);
}

TEST_F(CardText, WhatIsNotKnownIsNullInJson)
{
    const Json json = admission_json(in(State::undecided), std::nullopt);
    EXPECT_EQ(json, (Json{{"state", "undecided"},
                          {"unseen", false},
                          {"denied", false},
                          {"decider", nullptr},
                          {"since", nullptr},
                          {"waiting_for", Json::array()},
                          {"any_will_do", false},
                          {"requested_at", nullptr},
                          {"time_left_s", nullptr},
                          {"answers", Json::array()},
                          {"decision", nullptr}}));
}

TEST_F(CardText, ADecisionIsWholeInJson)
{
    Decision decision;
    decision.outcome = Outcome::denied;
    decision.admitted = false;
    decision.decider = "m1";
    decision.reason = "hot";
    decision.requested_at = now - 2s;
    decision.decided_at = now;
    decision.role = 1;
    decision.answers.push_back({"m1", 7, "hot", now, true, 1500ms});
    EXPECT_EQ(decision_json(decision), (Json{{"outcome", "denied"},
                                             {"admitted", false},
                                             {"decider", "m1"},
                                             {"silent", Json::array()},
                                             {"reason", "hot"},
                                             {"requested_at", "2024-10-04T14:02:09.005Z"},
                                             {"decided_at", "2024-10-04T14:02:11.005Z"},
                                             {"role", "master"},
                                             {"complete", true},
                                             {"answers", Json::array({Json{{"module", "m1"},
                                                                           {"verdict", "DENY"},
                                                                           {"ret", 7},
                                                                           {"reason", "hot"},
                                                                           {"at", "2024-10-04T14:02:11.005Z"},
                                                                           {"took_s", 1.5},
                                                                           {"registered", true}}})}}));
    EXPECT_EQ(decision_text(decision), "denied by m1: hot");
}

} // namespace
