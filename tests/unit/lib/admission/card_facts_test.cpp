// What became of one card and how, in full.
#include "admission/card_facts.h"

#include <gmock/gmock.h>

#include <cstdlib>

namespace
{

using namespace cg;
using namespace std::chrono_literals;
using admission::Answer;
using admission::Decision;
using admission::Outcome;
using admission::State;
using admission::TrackedCard;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::Pair;

class FactsOfCardTest : public testing::Test
{
protected:
    FactsOfCardTest()
    {
        setenv("TZ", "UTC", 1);
        tzset();
        card.card = {{1, 3, 0}, "lc\n", "0a", 3, 17};
        card.state = State::undecided;
    }
    ~FactsOfCardTest() override
    {
        unsetenv("TZ");
        tzset();
    }
    [[nodiscard]] std::vector<std::pair<std::string, std::string>> facts() const
    {
        return facts_of_card(card, std::nullopt, now);
    }
    void decide(State state, Outcome outcome, const std::string &decider)
    {
        card.state = state;
        card.decider = decider;
        card.explained = true;
        card.last.emplace();
        card.last->outcome = outcome;
        card.last->decider = decider;
        card.last->decided_at = now - 10s;
    }

    TrackedCard card;
    admission::Time now = admission::Time{} + std::chrono::hours{24 * 20000} + 14h;
};

TEST_F(FactsOfCardTest, ACardThatWasNeverChecked)
{
    card.since = now - 5s;
    EXPECT_THAT(facts(),
                ElementsAre(Pair("name", "lc\\n"), Pair("type", "lc, configured as 17"), Pair("serial", "0a"),
                            Pair("state", "undecided"), Pair("since", "13:59:55 (5 s ago)")));
    card.state = State::absent;
    EXPECT_THAT(facts(), Not(Contains(Pair("name", testing::_))));
}

TEST_F(FactsOfCardTest, ACheckThatStandsNamesWhoAnsweredAndWhoDidNot)
{
    card.state = State::waiting;
    card.open = true;
    card.requested_at = now - 60s;
    card.answers = {Answer{"m1", 0, "", now - 58s, true, 2000ms}};
    card.waiting_for = {"m2", "m\n3"};
    card.last.emplace();
    card.last->outcome = Outcome::withdrawn;
    card.last->decided_at = now - 90s;
    EXPECT_THAT(facts_of_card(card, 240s, now),
                ElementsAre(Pair("name", "lc\\n"), Pair("type", "lc, configured as 17"), Pair("serial", "0a"),
                            Pair("state", "waiting for m2, m\\n3 (240 s left)"),
                            Pair("asked", "13:59:00 (60 s ago)"), Pair("answers", "m1 PASS after 2 s"),
                            Pair("", "m2 has not answered"), Pair("", "m\\n3 has not answered"),
                            Pair("before", "withdrawn, 13:58:30 (90 s ago)")));
    card.requested_at.reset();
    card.answers.clear();
    EXPECT_THAT(facts(), Contains(Pair("asked", "time unknown")));
    EXPECT_THAT(facts(), Contains(Pair("answers", "m2 has not answered")));
}

TEST_F(FactsOfCardTest, ADecisionThatExplainsTheStateIsToldInFull)
{
    decide(State::silence, Outcome::silence, "");
    card.last->requested_at = now - 310s;
    card.last->silent = {"m2"};
    card.last->role = 1;
    EXPECT_THAT(facts(), ElementsAre(Pair("name", testing::_), Pair("type", testing::_), Pair("serial", "0a"),
                                     Pair("state", "admitted by time-out of m2"),
                                     Pair("decided", "admitted by time-out of m2, 13:59:50 (10 s ago)"),
                                     Pair("asked", "13:54:50 (310 s ago)"),
                                     Pair("answers", "m2 has not answered"), Pair("role", "master")));
    card.last->complete = false;
    EXPECT_THAT(facts().back().second, testing::StartsWith("(not known in full"));
    card.last->requested_at.reset();
    EXPECT_THAT(facts().back().second, testing::StartsWith("(recording began later"));
}

TEST_F(FactsOfCardTest, AnotherResultThanTheLastDecisionsNamesItsDecider)
{
    decide(State::passed, Outcome::denied, "m1");
    card.explained = false;
    EXPECT_THAT(facts(), Contains(Pair("decided", "passed by m1")));
    EXPECT_THAT(facts(), Contains(Pair("before", "denied by m1, 13:59:50 (10 s ago)")));
    card.state = State::denied;
    card.denied = true;
    EXPECT_THAT(facts(), Contains(Pair("decided", "denied by m1")));
    card.decider.clear();
    card.state = State::passed;
    EXPECT_THAT(facts(), Contains(Pair("", testing::StartsWith("the result does not say"))));
    EXPECT_THAT(facts(), Not(Contains(Pair("decided", testing::_))));
    card.state = State::undecided; // no result stands
    EXPECT_THAT(facts(), Contains(Pair("decided", "denied by m1, 13:59:50 (10 s ago)")));
    EXPECT_THAT(facts(), Not(Contains(Pair("", testing::StartsWith("the result does not say")))));
}

TEST_F(FactsOfCardTest, WhatTheDaemonAskedOfTheDeviceComesLast)
{
    card.power_off = true;
    card.cannot_start = true;
    const auto all = facts();
    EXPECT_EQ(all.at(all.size() - 2).first, "power");
    EXPECT_EQ(all.back().second, "marked as unable to start");
}

} // namespace
