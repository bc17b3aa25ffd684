// Decisions over time, as a picture.
#include "screen/decision_svg.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>

namespace cg
{

namespace
{

using namespace std::chrono_literals;
using history::Outcome;
using testing::HasSubstr;
using testing::Not;

constexpr admission::Time noon = admission::Time{} + 1'700'049'600s; // 2023-11-15 12:00 UTC

class PictureTest : public testing::Test
{
protected:
    PictureTest()
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

TEST_F(PictureTest, IsWholeAndSaysWhatIsWhat)
{
    add(Outcome::passed, noon, 3);
    add(Outcome::silence, noon);
    const std::vector<history::Gap> gaps{{noon + 1s, std::nullopt, "<script>&\""}};
    const std::string svg = chart_svg(make_chart(decisions, gaps, noon, noon + 2s, 24));
    EXPECT_THAT(svg, testing::StartsWith("<svg xmlns=\"http://www.w3.org/2000/svg\""));
    EXPECT_THAT(svg, testing::EndsWith("</svg>\n"));
    EXPECT_THAT(svg, HasSubstr("<rect class=\"passed\" x=\"100.4\" y=\"122\" width=\"355.2\" height=\"198\">"
                               "<title>2023-11-15 12:00: 3 passed</title></rect>"));
    EXPECT_THAT(svg, HasSubstr("<rect class=\"silence\" x=\"100.4\" y=\"56\" width=\"355.2\" height=\"66\">"
                               "<title>2023-11-15 12:00: 1 admitted by time-out</title></rect>"));
    EXPECT_THAT(svg, HasSubstr("<title>2023-11-15 12:00:01: &lt;script&gt;&amp;&quot;</title>"));
    EXPECT_THAT(svg, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_THAT(svg, HasSubstr(">T admitted by time-out</text>"));
    EXPECT_THAT(svg, Not(HasSubstr("<script>")));
    EXPECT_THAT(svg, Not(HasSubstr("href")));
}

} // namespace cg
