// What is not well with this process, and when that is reported.
#include "loop/health.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using platform::note_health;

TEST(Health, OnlyANoteThatChangesSomethingIsReported)
{
    int reported = 0;
    platform::on_health_noted([&] { reported++; });
    note_health("health_test", 1);
    note_health("health_test", 1);
    EXPECT_EQ(reported, 1);
    note_health("health_test", 2);
    note_health("health_test_other", 0);
    EXPECT_EQ(reported, 3);
    platform::on_health_noted({});
    note_health("health_test", 3);
    EXPECT_EQ(reported, 3);
    EXPECT_EQ(platform::noted_health().at("health_test"), 3U);
    EXPECT_EQ(platform::noted_health().at("health_test_other"), 0U);
}

} // namespace
