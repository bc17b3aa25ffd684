// Decisions over time, as text and as a picture.
#include "screen/decision_chart.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>

namespace cg
{

namespace
{

using namespace std::chrono_literals;
using history::Outcome;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

constexpr admission::Time noon = admission::Time{} + 1'700'049'600s; // 2023-11-15 12:00 UTC

class ChartTest : public testing::Test
{
protected:
    ChartTest()
    {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    void add(Outcome outcome, admission::Time at, int times = 1)
    {
        history::Decision decision;
        decision.outcome = outcome;
        decision.decided_at = at;
        decisions.insert(decisions.end(), static_cast<std::size_t>(times), decision);
    }

    std::vector<history::Decision> decisions;
    Terminal plain;
};

} // namespace

TEST_F(ChartTest, OneLetterForEachDecision)
{
    add(Outcome::passed, noon + 10s, 3);
    add(Outcome::silence, noon + 20s);
    add(Outcome::denied, noon + 59s);
    add(Outcome::unseen, noon + 3min);
    const std::vector<history::Gap> gaps{{noon + 125s, noon + 190s, "the store was away"}};
    const Chart chart = make_chart(decisions, gaps, noon, noon + 4min, 6);
    EXPECT_EQ(chart.step, 60s);
    EXPECT_THAT(chart_lines(chart, 8, plain),
                ElementsAre("2023-11-15 12:00 |PPPTD   | 5", //
                            "2023-11-15 12:01 |",            //
                            "2023-11-15 12:02 |        | 0  (the store was away)",
                            "2023-11-15 12:03 |?       | 1  (the store was away)",
                            "P passed, T admitted by time-out, D denied, E exempt, N no module registered, "
                            "W withdrawn, ? ended unseen; a letter is one decision"));
}

TEST_F(ChartTest, ManyDecisionsShareALetterAndNoneIsLost)
{
    add(Outcome::passed, noon, 99);
    add(Outcome::denied, noon);
    const Chart chart = make_chart(decisions, {}, noon, noon + 1s, 24);
    const std::vector<std::string> lines = chart_lines(chart, 10, plain);
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(lines[0], "2023-11-15 12:00 |PPPPPPPPPD| 100");
    EXPECT_THAT(lines[1], HasSubstr("a letter is up to 11 decisions"));
}

TEST_F(ChartTest, OnATerminalNoLineIsWiderThanThat)
{
    for (const Outcome outcome : {Outcome::passed, Outcome::silence, Outcome::denied, Outcome::exempt,
                                  Outcome::unasked, Outcome::withdrawn, Outcome::unseen}) {
        add(outcome, noon, 151);
    }
    const std::vector<history::Gap> gaps{{noon + 1s, std::nullopt, "the recorder was not running"},
                                         {noon + 1s, std::nullopt, "the store was away, and for long"}};
    for (const std::size_t width : {80U, 60U}) {
        const Terminal terminal{true, false, width};
        const auto lines =
            chart_lines(make_chart(decisions, gaps, noon, noon + 2s, 24), width - 30, terminal);
        ASSERT_GT(lines.size(), 3U);
        for (const std::string &line : lines) {
            EXPECT_LE(columns_of(line), width) << line;
        }
        EXPECT_THAT(lines[1], HasSubstr("…"));
    }
}

TEST_F(ChartTest, ColourIsAnAddition)
{
    add(Outcome::denied, noon);
    const Chart chart = make_chart(decisions, {}, noon, noon + 1s, 24);
    EXPECT_THAT(chart_lines(chart, 10, {true, true, 80}).front(), testing::MatchesRegex(".*\033.*D\033.*"));
    EXPECT_THAT(chart_lines(chart, 10, plain).front(), Not(HasSubstr("\033")));
}

TEST_F(ChartTest, StepsAreThoseThatPeopleCountIn)
{
    EXPECT_EQ(make_chart({}, {}, noon, noon + 24h, 24).step, 7200s);
    EXPECT_EQ(make_chart({}, {}, noon, noon + 24h * 7, 24).step, 43200s);
    EXPECT_EQ(make_chart({}, {}, noon, noon + 1s, 24).bars.size(), 1U);
    const Chart centuries = make_chart({}, {}, noon, noon + 24h * 365 * 200, 24);
    EXPECT_LE(centuries.bars.size(), 24U);
}

} // namespace cg
