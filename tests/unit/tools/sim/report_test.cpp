// How a play is shown.
#include "report.h"

#include <gmock/gmock.h>

#include <sstream>

namespace cg
{

namespace
{

using namespace std::chrono_literals;

class Report : public testing::Test
{
protected:
    static Stage stage()
    {
        return {[] { return admission::Time{}; },
                [](scenario::Milliseconds, const std::function<void()> &) {},
                [](const NewCard &) {},
                [](const Position &, scenario::Move) {},
                [](PDev__DmRoleE) {},
                [](const DueAnswer &) {},
                [](admission::Time, const Event &) {},
                [] {}};
    }

    // Reports two files whose expectations are decided at once.
    void report()
    {
        const std::vector<scenario::Scenario> scenarios{
            scenario::parse_scenario("a", "expect 1/3 absent\nexpect 1/4 unmarked"),
            scenario::parse_scenario("b", "expect 1/3 passed throughout 1s\nexpect 1/3 waiting")};
        Player player(scenarios, {}, stage());
        player.synchronized();
        report_results(output_, player);
    }

    std::ostringstream out_;
    std::ostringstream err_;
    Output output_{out_, err_, false, "cg_sim"};
};

} // namespace

TEST_F(Report, EventsAreLines)
{
    const admission::Time at = admission::Time{} + 250ms;
    report_event(output_, at, {"role", std::nullopt, "this device is master"});
    EXPECT_THAT(err_.str(), testing::MatchesRegex("[0-9:]+\\.2  chassis  this device is master\n"));
    err_.str("");
    report_event(output_, at, {"pulled", Position{1, 3, 0}, "pulled"});
    EXPECT_THAT(err_.str(), testing::MatchesRegex("[0-9:]+\\.2  1/3/0    pulled\n"));
    err_.str("");
    report_event(output_, at, {"say", std::nullopt, "a\tb"});
    EXPECT_EQ(err_.str(), "-- a\\tb\n");
    err_.str("");
    report_event(output_, at, {"expectation", Position{1, 3, 0}, ""});
    EXPECT_EQ(err_.str() + out_.str(), "");
}

TEST_F(Report, EventsAreObjectsForPrograms)
{
    output_.json = true;
    const admission::Time at = admission::Time{} + 250ms;
    report_event(output_, at, {"say", std::nullopt, "a"});
    report_event(output_, at, {"role", Position{1, 3, 0}, "not shown", Tone::plain, {{"role", "master"}}});
    EXPECT_EQ(out_.str(), "{\"time\":\"1970-01-01T00:00:00.250Z\",\"event\":\"say\",\"text\":\"a\"}\n"
                          "{\"time\":\"1970-01-01T00:00:00.250Z\",\"event\":\"role\",\"card\":\"1/3/"
                          "0\",\"role\":\"master\"}\n");
    EXPECT_EQ(err_.str(), "");
}

TEST_F(Report, ResultsAreATable)
{
    report();
    EXPECT_THAT(out_.str(), testing::MatchesRegex("line +card +name +expected +seen +after *\n"
                                                  "a:1 +1/3/0 +absent +absent +0 s +ok\n"
                                                  "a:2 +1/4/0 +unmarked +absent +0 s +ok\n"
                                                  "b:1 +1/3/0 +passed +absent +0 s +MISSED\n"
                                                  "2 of 4 expectations held; the play was aborted.\n"));
}

TEST_F(Report, ResultsAreASummaryForPrograms)
{
    output_.json = true;
    report();
    EXPECT_EQ(Json::parse(out_.str()), (Json{{"version", 1},
                                             {"event", "summary"},
                                             {"expectations", 4},
                                             {"held", 2},
                                             {"missed", 1},
                                             {"complete", false}}));
}

} // namespace cg
