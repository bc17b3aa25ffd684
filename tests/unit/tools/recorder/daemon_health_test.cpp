// The daemon's health, as its platform publishes it.
#include "daemon_health.h"

#include <gmock/gmock.h>

#include <csignal>
#include <map>

#include "unit/support/store_test.h"

namespace recorder
{

namespace
{

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DaemonHealthTest : public cg::StoreTest
{
protected:
    // As the program does.
    DaemonHealthTest() { EXPECT_NE(signal(SIGPIPE, SIG_IGN), SIG_ERR); }

    void say(const std::string &command) const
    {
        const std::string answer = tell_server("SELECT 1\r\n" + command + "\r\n");
        ASSERT_EQ(answer.find("-ERR"), std::string::npos) << answer;
    }
    void expect_metric(const std::string &name, int value)
    {
        health_.look();
        EXPECT_THAT(metrics_.page(), HasSubstr('\n' + name + ' ' + std::to_string(value) + '\n'));
    }

    Metrics metrics_;
    std::vector<std::string> log_;
    DaemonHealth health_{metrics_, [this](const std::string &text) { log_.push_back(text); }};
};

} // namespace

TEST_F(DaemonHealthTest, WhatWasDroppedIsCountedOverTheDaemonsLives)
{
    const std::map<std::string, std::string> names{{"system_log_dropped", "cg_system_log_dropped_total"},
                                                   {"log_dropped", "cg_daemon_log_dropped_total"}};
    for (const auto &[field, metric] : names) {
        expect_metric(metric, 0);
        say("HSET @health instance a " + field + " 5");
        expect_metric(metric, 5);
        expect_metric(metric, 5);
        say("HSET @health " + field + " 7");
        expect_metric(metric, 7);
        say("HSET @health instance b " + field + " 2");
        expect_metric(metric, 9);
        say("DEL @health");
        expect_metric(metric, 9);
        say("HSET @health instance b " + field + " 3");
        expect_metric(metric, 10);
        say("DEL @health");
    }
    expect_metric(names.begin()->second, 10);
    EXPECT_THAT(log_, IsEmpty());
}

TEST_F(DaemonHealthTest, DescriptorsAreShownWhileTheyAreScarce)
{
    expect_metric("cg_daemon_descriptors", 0);
    say("HSET @health instance a descriptors 800 descriptors_limit 1024");
    expect_metric("cg_daemon_descriptors", 800);
    expect_metric("cg_daemon_descriptors_limit", 1024);
    say("HSET @health descriptors 0 descriptors_limit 0");
    expect_metric("cg_daemon_descriptors", 0);
    expect_metric("cg_daemon_descriptors_limit", 0);
    say("HSET @health descriptors 800 descriptors_limit 1024");
    expect_metric("cg_daemon_descriptors", 800);
    say("DEL @health");
    expect_metric("cg_daemon_descriptors", 0);
    expect_metric("cg_daemon_descriptors_limit", 0);
}

TEST_F(DaemonHealthTest, WhichDatabaseTheDaemonMisses)
{
    expect_metric("cg_daemon_database_away{database=\"28\"}", 0);
    say("HSET @health instance a away_28 1");
    expect_metric("cg_daemon_database_away{database=\"28\"}", 1);
    expect_metric("cg_daemon_database_away{database=\"33\"}", 0);
    say("HSET @health away_28 0 away_33 1");
    expect_metric("cg_daemon_database_away{database=\"28\"}", 0);
    expect_metric("cg_daemon_database_away{database=\"33\"}", 1);
    say("DEL @health");
    expect_metric("cg_daemon_database_away{database=\"33\"}", 0);
}

TEST_F(DaemonHealthTest, WhatIsNoNumberIsNone)
{
    say("HSET @health instance a system_log_dropped many descriptors -3 descriptors_limit "
        "99999999999999999999");
    expect_metric("cg_system_log_dropped_total", 0);
    expect_metric("cg_daemon_descriptors", 0);
    expect_metric("cg_daemon_descriptors_limit", 0);
}

TEST_F(DaemonHealthTest, ARefusalIsReportedOnceAndALossNot)
{
    say("SET @health text");
    health_.look();
    health_.look();
    EXPECT_THAT(log_, ElementsAre(HasSubstr(
                          "the daemon's health cannot be read, key @health of database 1: WRONGTYPE")));
    say("DEL @health");
    say("HSET @health instance a system_log_dropped 1");
    expect_metric("cg_system_log_dropped_total", 1);
    stop_server();
    expect_metric("cg_system_log_dropped_total", 1);
    start_server();
    say("HSET @health instance a system_log_dropped 4");
    health_.look();
    expect_metric("cg_system_log_dropped_total", 4);
    EXPECT_THAT(log_, testing::SizeIs(1));
}

} // namespace recorder
