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

} // namespace cg
