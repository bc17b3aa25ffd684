// What the recorder publishes for Prometheus.
#include "metrics.h"

#include <gmock/gmock.h>

namespace recorder
{

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

constexpr history::Time noon = history::Time{} + 1'700'049'600s;

history::Decision silence_of(const std::string &module)
{
    history::Decision decision;
    decision.card.position = {1, 3, 0};
    decision.outcome = history::Outcome::silence;
    decision.decided_at = noon;
    decision.silent = {module};
    return decision;
}

} // namespace

TEST(MetricsTest, AStrangersNameMakesNoSeries)
{
    Metrics metrics;
    metrics.set_modules({"m1", "a\"b\n"});
    history::Decision denied = silence_of("evil");
    denied.answers = {{"stranger", -1, "", noon, false, 500ms}, {"m1", 0, "", noon, true, 250s}};
    metrics.count(denied);
    metrics.count(silence_of("m1"));
    const std::string text = metrics.page();
    EXPECT_THAT(text, Not(HasSubstr("evil")));
    EXPECT_THAT(text, Not(HasSubstr("stranger")));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"other\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"m1\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"a\\\"b\\\\n\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards_admitted_by_silence_total 2\n"));
    EXPECT_THAT(text, HasSubstr("cg_decisions_total{decider=\"\",outcome=\"silence\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_bucket{module=\"m1\",le=\"240\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_bucket{module=\"m1\",le=\"300\"} 1\n"));
}

TEST(MetricsTest, ACheckThatWasCutOffIsNobodysDecisionAndNobodysSilence)
{
    Metrics metrics;
    metrics.set_modules({"m1", "m2"});
    history::Decision decision = silence_of("m2");
    decision.outcome = history::Outcome::withdrawn;
    decision.reason = admission::daemon_restarted;
    decision.answers = {{"m1", 0, "", noon, true, 1s}};
    metrics.count(decision);
    const std::string text = metrics.page();
    EXPECT_THAT(text, HasSubstr("cg_decisions_total{decider=\"\",outcome=\"withdrawn\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_admissions_by_silence_total{module=\"m2\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards_admitted_by_silence_total 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 1\n"));
}

TEST(MetricsTest, AnAnswerThatWasToldBeforeIsNotCountedAgain)
{
    Metrics metrics;
    metrics.set_modules({"m1"});
    history::Decision decision = silence_of("m2");
    decision.answers = {{"m1", 1, "no", noon, true, 1s}};
    metrics.count(decision);
    const history::Answer late{"m1", 0, "", noon + 2s, true, 3s};
    decision.answers.push_back(late);
    metrics.count(late);
    decision.told_before = 2;
    metrics.count(decision);
    EXPECT_THAT(metrics.page(), HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 2\n"));
}

TEST(MetricsTest, WhichDatabaseIsThereAndWhere)
{
    const std::string cards = R"({database="1",server="unix:a"} )";
    const std::string devices = R"({database="33",server="sentinel:gate@\"x"} )";
    Metrics metrics;
    metrics.set_servers({{1, "unix:a"}, {33, "sentinel:gate@\"x"}});
    for (const std::string &labels : {cards, devices}) {
        EXPECT_THAT(metrics.page(), HasSubstr("cg_store_connected" + labels + "0\n"));
        EXPECT_THAT(metrics.page(), HasSubstr("cg_store_outages_total" + labels + "0\n"));
    }
    metrics.show_store(1, true);
    metrics.count_outage(33);
    EXPECT_THAT(metrics.page(), HasSubstr("cg_store_connected" + cards + "1\n"));
    EXPECT_THAT(metrics.page(), HasSubstr("cg_store_connected" + devices + "0\n"));
    EXPECT_THAT(metrics.page(), HasSubstr("cg_store_outages_total" + cards + "0\n"));
    EXPECT_THAT(metrics.page(), HasSubstr("cg_store_outages_total" + devices + "1\n"));
    metrics.show_store(1, false);
    EXPECT_THAT(metrics.page(), HasSubstr("cg_store_connected" + cards + "0\n"));
}

TEST(MetricsTest, WhatTheDaemonMisses)
{
    Metrics metrics;
    EXPECT_THAT(metrics.page(), Not(HasSubstr("cg_daemon_database_away{"))) << "nothing is known";
    metrics.show_away(28, true);
    metrics.show_away(33, false);
    EXPECT_THAT(metrics.page(), HasSubstr("cg_daemon_database_away{database=\"28\"} 1\n"));
    EXPECT_THAT(metrics.page(), HasSubstr("cg_daemon_database_away{database=\"33\"} 0\n"));
}

TEST(MetricsTest, TheDaemonsEndsByStatus)
{
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "77"}), "77");
    EXPECT_EQ(exit_label({{}, false, 0, "killed", "KILL"}), "KILL");
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "0"}), "0");
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "255"}), "255");
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "256"}), "other");
    EXPECT_EQ(exit_label({{}, false, 0, "exited", "-1"}), "other");
    EXPECT_EQ(exit_label({{}, false, 0, "killed", "HUP"}), "HUP") << "the first signal";
    EXPECT_EQ(exit_label({{}, false, 0, "dumped", "ABRT"}), "ABRT");
    EXPECT_EQ(exit_label({{}, false, 0, "killed", "WHATEVER"}), "other");
    Metrics metrics;
    EXPECT_THAT(metrics.page(), HasSubstr("cg_daemon_exits_total{status=\"77\"} 0\n"));
    metrics.count(history::LifeEvent{noon, true, 42, "", ""});
    metrics.count(history::LifeEvent{noon, false, 0, "exited", "77"});
    metrics.count(history::LifeEvent{noon, false, 0, "killed", "KILL"});
    metrics.count(history::LifeEvent{noon, false, 0, "killed", "KILL"});
    EXPECT_THAT(metrics.page(), HasSubstr("cg_daemon_starts_total 1\n"));
    EXPECT_THAT(metrics.page(), HasSubstr("cg_daemon_exits_total{status=\"77\"} 1\n"));
    EXPECT_THAT(metrics.page(), HasSubstr("cg_daemon_exits_total{status=\"KILL\"} 2\n"));
}

TEST(MetricsTest, TroublesAreCounted)
{
    Metrics metrics;
    metrics.count_gap();
    metrics.count_gap();
    metrics.count_write_failure();
    metrics.show_gap_end(noon + 500ms);
    const std::string text = metrics.page();
    EXPECT_THAT(text, HasSubstr("cg_recorder_gaps_total 2\n"));
    EXPECT_THAT(text, HasSubstr("cg_history_write_failures_total 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_recorder_last_gap_end_seconds 1700049600.5\n"));
    EXPECT_THAT(text, HasSubstr("cg_build_info{version=\""));
}

TEST(MetricsTest, CardsByState)
{
    Metrics metrics;
    admission::TrackedCard waiting;
    waiting.state = admission::State::waiting;
    admission::TrackedCard off = waiting;
    off.state = admission::State::offline;
    admission::TrackedCard denied = off;
    denied.denied = true;
    const admission::TrackedCard gone;
    metrics.show({&waiting, &waiting, &off, &denied, &gone});
    const std::string text = metrics.page();
    EXPECT_THAT(text, HasSubstr("cg_cards{state=\"waiting\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards{state=\"offline\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards{state=\"denied\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards{state=\"passed\"} 0\n"));
    EXPECT_THAT(text, HasSubstr("cg_cards_waiting 2\n"));
    EXPECT_THAT(text, Not(HasSubstr("absent"))) << "that is no card";
}

TEST(MetricsTest, ADeciderIsALabelAndAnAnswerOfUnknownAgeIsNoTime)
{
    Metrics metrics;
    metrics.set_modules({"m1"});
    history::Decision passed;
    passed.outcome = history::Outcome::passed;
    passed.decider = "m1";
    passed.answers = {{"m1", 0, "", noon, true, {}}};
    metrics.count(passed);
    passed.decider = "stranger";
    metrics.count(passed);
    const std::string text = metrics.page();
    EXPECT_THAT(text, HasSubstr("cg_decisions_total{decider=\"m1\",outcome=\"passed\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_decisions_total{decider=\"other\",outcome=\"passed\"} 1\n"));
    EXPECT_THAT(text, HasSubstr("cg_module_answer_seconds_count{module=\"m1\"} 0\n"));
}

} // namespace recorder
