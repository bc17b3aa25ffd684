// What a live view is out of date for.
#include "cards/health.h"

#include <gtest/gtest.h>

namespace cg
{

namespace
{

using std::chrono::seconds;

class HealthTest : public testing::Test
{
protected:
    const Time start{seconds{1'700'049'600}};
    Health health;
};

} // namespace

TEST_F(HealthTest, NothingIsWrongAtFirst)
{
    EXPECT_EQ(health.text(start), "");
    EXPECT_EQ(health.store_lost(), std::nullopt);
}

TEST_F(HealthTest, EachChangeIsNewsOnce)
{
    EXPECT_FALSE(health.hear_daemon(true, start));
    EXPECT_TRUE(health.hear_daemon(false, start));
    EXPECT_FALSE(health.hear_daemon(false, start + seconds{1}));
    EXPECT_EQ(health.daemon_silent(), start) << "since the first time";
    EXPECT_TRUE(health.hear_daemon(true, start + seconds{2}));
    EXPECT_TRUE(health.hear_recorder(false, start));
    EXPECT_TRUE(health.hear_recorder(true, start));
    EXPECT_TRUE(health.hear_history(false, start));
    EXPECT_TRUE(health.hear_history(true, start));
    EXPECT_EQ(health.text(start), "");
}

TEST_F(HealthTest, TheStoreIsLostWithTheDatabaseOfTheCards)
{
    EXPECT_TRUE(health.hear_store(33, false, start));
    EXPECT_EQ(health.store_lost(), std::nullopt);
    EXPECT_TRUE(health.text(start).starts_with("DATABASE 33 LOST since ")) << health.text(start);
    EXPECT_TRUE(health.hear_store(1, false, start + seconds{1}));
    EXPECT_FALSE(health.hear_store(1, false, start + seconds{5}));
    EXPECT_EQ(health.store_lost(), start + seconds{1});
    EXPECT_TRUE(health.text(start).starts_with("STORE LOST since ")) << health.text(start);
    EXPECT_EQ(health.text(start).find("DATABASE"), std::string::npos) << "more is lost than that";
    EXPECT_TRUE(health.hear_store(1, true, start + seconds{6}));
    EXPECT_FALSE(health.hear_store(1, true, start + seconds{6}));
    EXPECT_EQ(health.store_lost(), std::nullopt);
    EXPECT_TRUE(health.hear_store(33, true, start + seconds{6}));
    EXPECT_EQ(health.text(start), "");
}

TEST_F(HealthTest, TheWorstStandsFirst)
{
    health.hear_history(false, start);
    health.hear_recorder(false, start);
    health.hear_daemon(false, start);
    health.hear_store(1, false, start);
    const std::string text = health.text(start);
    EXPECT_TRUE(text.starts_with("STORE LOST since ")) << text;
    const std::size_t daemon = text.find(", DAEMON SILENT since ");
    const std::size_t recorder = text.find(", RECORDER AWAY since ");
    const std::size_t history = text.find(", HISTORY UNREADABLE since ");
    EXPECT_LT(daemon, recorder) << text;
    EXPECT_LT(recorder, history) << text;
    EXPECT_NE(history, std::string::npos) << text;
}

} // namespace cg
