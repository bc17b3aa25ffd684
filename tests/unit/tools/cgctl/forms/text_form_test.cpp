// What people read of findings and events.
#include "forms/text_form.h"

#include <gtest/gtest.h>

#include "command_line/session.h"

namespace cg
{

TEST(TextForm, AFindingIsALineInColumns)
{
    EXPECT_EQ(finding_line({Severity::ok, "it answers", "", "store"}),
              "ok    store               it answers");
    EXPECT_EQ(finding_line({Severity::warn, "open\n", "`cgctl acl`", "users"}),
              "WARN  users               open\\n; fix: `cgctl acl`");
    EXPECT_EQ(finding_line({Severity::fail, "b", "", "a"}).substr(0, 5), "FAIL ");
    EXPECT_EQ(finding_line({Severity::skipped, "b", "", "a"}).substr(0, 5), "skip ");
    EXPECT_EQ(
        finding_line({.found = "it answers", .check = "store", .server = "unix:/s", .databases = {28, 33}}),
        "ok    store (databases 28 and 33, unix:/s): it answers");
}

TEST(TextForm, ACheckThatARestartCutOffIsAWarning)
{
    admission::Decision decision;
    decision.outcome = admission::Outcome::withdrawn;
    EXPECT_EQ(tone_of(Event{.what = decision}), Tone::quiet);
    decision.reason = admission::daemon_restarted;
    EXPECT_EQ(tone_of(Event{.what = decision}), Tone::warning);
    decision.outcome = admission::Outcome::denied;
    EXPECT_EQ(tone_of(Event{.what = decision}), Tone::bad);
    decision.outcome = admission::Outcome::passed;
    EXPECT_EQ(tone_of(Event{.what = decision}), Tone::good);
    decision.outcome = admission::Outcome::silence;
    EXPECT_EQ(tone_of(Event{.what = decision}), Tone::warning);
}

TEST(TextForm, WhatKeepsTheRestFromBeingBelievedIsInAColour)
{
    EXPECT_EQ(tone_of(Event{.what = StoreChange{1, false, false}}), Tone::warning);
    EXPECT_EQ(tone_of(Event{.what = StoreChange{1, true, false}}), Tone::warning);
    EXPECT_EQ(tone_of(Event{.what = StoreChange{1, true, true}}), Tone::plain);
    EXPECT_EQ(tone_of(Event{.what = DaemonChange{false, "no"}}), Tone::bad);
    EXPECT_EQ(tone_of(Event{.what = DaemonChange{true, ""}}), Tone::plain);
    EXPECT_EQ(tone_of(Event{.what = RecorderChange{false, {}}}), Tone::warning);
    EXPECT_EQ(tone_of(Event{.what = HistoryChange{"gone"}}), Tone::warning);
    EXPECT_EQ(tone_of(Event{.what = HistoryChange{}}), Tone::plain);
    EXPECT_EQ(tone_of(Event{.what = Asked{}}), Tone::waiting);
    EXPECT_EQ(tone_of(Event{.what = PowerChange{true}}), Tone::bad);
    EXPECT_EQ(tone_of(Event{.what = PowerChange{false}}), Tone::plain);
    EXPECT_EQ(tone_of(Event{.what = admission::Answer{"m", 1}}), Tone::bad);
    EXPECT_EQ(tone_of(Event{.what = admission::Answer{"m", 0}}), Tone::plain);
}

} // namespace cg
