// Points in time as a user writes them.
#include "base/times.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "base/failure.h"

namespace cg
{

namespace
{

using namespace std::chrono_literals;

constexpr Time noon = Time{} + 1'700'049'600s; // 2023-11-15 12:00 UTC

} // namespace

TEST(Moment, ReadsAgesAndDates)
{
    setenv("TZ", "CET-1", 1);
    tzset();
    EXPECT_EQ(parse_moment("90s", "--since", noon), noon - 90s);
    EXPECT_EQ(parse_moment("7d", "--since", noon), noon - 24h * 7);
    EXPECT_EQ(parse_moment("2023-11-15T12:00:00Z", "--since", {}), noon);
    EXPECT_EQ(parse_moment("2023-11-15T13:00", "--since", {}), noon);
    EXPECT_EQ(parse_moment("2023-11-15Z", "--since", {}), noon - 12h);
    EXPECT_EQ(parse_moment("36500d", "--since", noon), noon - 24h * 36500);
    EXPECT_EQ(parse_moment("3600000s", "--since", noon), noon - 1000h);
    EXPECT_NO_THROW(parse_moment("1970-01-02Z", "--since", noon));
    EXPECT_NO_THROW(parse_moment("2200-12-31Z", "--since", noon));
    for (const char *beyond : {"36501d", "876001h", "99999999999999999999s", "1969-12-31Z", "2201-01-01Z",
                               "9999-01-01", "0001-01-01"}) {
        EXPECT_THROW(parse_moment(beyond, "--since", noon), Failure) << beyond;
    }
    setenv("TZ", "UTC", 1);
    tzset();
}

namespace
{

constexpr Time now = Time{} + std::chrono::hours{24 * 20000} + 14h + 2min + 11s + 5ms;

class TimeTexts : public testing::Test
{
protected:
    TimeTexts()
    {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ~TimeTexts() override
    {
        unsetenv("TZ");
        tzset();
    }
};

} // namespace

TEST_F(TimeTexts, AShortTimeHasTwelveColumns)
{
    EXPECT_EQ(short_clock_text(now - 88s, now), "14:00:43");
    EXPECT_EQ(short_clock_text(now - 26h, now), "03 Oct 12:02");
    EXPECT_EQ(short_clock_text(now - 24h * 299, now), "10 Dec 14:02");
    EXPECT_EQ(short_clock_text(now - 24h * 300, now), "09 Dec 2023");
    EXPECT_EQ(short_clock_text(now + 24h * 300, now), "31 Jul 2025");
    EXPECT_EQ(clock_text(now - 26h, now), "2024-10-03 12:02:11");
    EXPECT_EQ(clock_text(now - 88s, now), "14:00:43");
    EXPECT_EQ(date_text(now), "2024-10-04 14:02:11");
}

TEST_F(TimeTexts, PeopleGetLocalTime)
{
    setenv("TZ", "XST-3", 1); // three hours ahead of UTC
    tzset();
    EXPECT_EQ(date_text(now), "2024-10-04 17:02:11");
    EXPECT_EQ(clock_text(now, now), "17:02:11");
    EXPECT_EQ(short_clock_text(now - 26h, now), "03 Oct 15:02");
    EXPECT_EQ(utc_text(now), "2024-10-04T14:02:11.005Z");
}

TEST_F(TimeTexts, SpansAreAsFineAsAnEyeWants)
{
    EXPECT_EQ(span_text(599s), "599 s");
    EXPECT_EQ(span_text(600s), "10 min");
    EXPECT_EQ(span_text(2h), "2 h");
    EXPECT_EQ(span_text(48h - 1s), "47 h");
    EXPECT_EQ(span_text(48h), "2 d");
    EXPECT_EQ(span_text(-5s), "0 s");
    EXPECT_EQ(seconds_text(250ms), "0.25 s");
    EXPECT_EQ(seconds_text(2s), "2 s");
    EXPECT_EQ(seconds_text(1005ms), "1.005 s");
    EXPECT_EQ(seconds_text(std::chrono::duration<double>(1.5)), "1.5 s");
    EXPECT_EQ(seconds_text(99999ms), "99.999 s");
    EXPECT_EQ(seconds_text(100001ms), "100 s");
}

TEST_F(TimeTexts, MachinesGetUtcWithMilliseconds)
{
    EXPECT_EQ(utc_text(now), "2024-10-04T14:02:11.005Z");
}

} // namespace cg
