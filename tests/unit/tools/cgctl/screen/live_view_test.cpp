// The live view's keys, and what it shows of the cards.
#include "screen/live_view.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cstdlib>
#include <ctime>

namespace
{

using namespace cg;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

class LiveViewTest : public testing::Test
{
protected:
    LiveViewTest()
    {
        events.tracker().set_modules({"m1", "m2"});
        plug(1);
        plug(2);
        plug(3);
        events.tracker().request_written({1, 2, 0}, by("p_dev.card_info:0:1:2:0"));
        events.tracker().result_written(1003, true, 3, by("p_dev.card_info:0:1:3:0"));
        events.received(1, now);
        events.received(33, now);
    }

    // A write of the daemon while it handles this record.
    admission::Change by(const std::string &key, bool existing = false)
    {
        return {now, existing, {0, {"daemon", ++writes, {store::Cause::Kind::record, 1, key}}}};
    }
    void plug(int slot)
    {
        events.tracker().card_written(
            {{1, slot, 0}, "lc-" + std::to_string(slot), "0a", 3, 17, 0, 1000 + slot, slot != 1}, {now});
    }
    std::string shown()
    {
        const Canvas canvas = view.draw({80, 24}, now);
        std::string text;
        for (std::size_t y = 0; y < canvas.size().height; ++y) {
            text += canvas.line(y) + '\n';
        }
        return text;
    }
    void press(std::initializer_list<int32_t> keys)
    {
        for (const int32_t key : keys) {
            EXPECT_TRUE(view.press(key));
            (void)shown();
        }
    }
    void happen(const std::string &text)
    {
        Event event;
        event.at = now;
        event.position = Position{1, 3, 0};
        event.what = admission::Answer{text};
        view.add(event);
    }

    uint64_t writes = 0;
    CardEvents events{[](const Event &) {}};
    LiveView view{events};
    Time now = Time{} + 1000000s;
};

TEST_F(LiveViewTest, TheTitleCountsAndTheBoxesTell)
{
    now += 100s;
    EXPECT_THAT(shown(), HasSubstr(" 3 cards: 1 waiting, 1 no module registered, 1 offline\n"));
    EXPECT_THAT(shown(), HasSubstr("waiting for m1, m2"));
    EXPECT_THAT(shown(), HasSubstr("░ 200 s"));
}

TEST_F(LiveViewTest, OnlyQEnds)
{
    for (const int key : {int{'x'}, int{'f'}, int{'v'}, int{key_escape}, 0x1FFFFF}) {
        EXPECT_TRUE(view.press(key)) << key;
    }
    EXPECT_FALSE(view.press('q'));
}

TEST_F(LiveViewTest, FilterShowsOneStateAndSaysSo)
{
    press({'f'});
    EXPECT_THAT(shown(), HasSubstr("only waiting |"));
    EXPECT_THAT(shown(), HasSubstr("slot 2"));
    EXPECT_THAT(shown(), Not(HasSubstr("slot 1")));
    press({'f'});
    EXPECT_THAT(shown(), HasSubstr("only denied |"));
    EXPECT_THAT(shown(), HasSubstr("no cards"));
    for (const char *state :
         {"admitted by time-out", "offline", "passed", "exempt", "no module registered", "undecided"}) {
        press({'f'});
        EXPECT_THAT(shown(), HasSubstr(std::string("only ") + state + " |"));
    }
    press({'f'});
    EXPECT_THAT(shown(), AllOf(HasSubstr("slot 1"), Not(HasSubstr(" only "))));
}

TEST_F(LiveViewTest, ADenialStaysOnTheScreenWhenItsCardGoesOffLine)
{
    events.tracker().answer_written({1, 2, 0}, {"m1", 7, "too hot"}, {now, false, {1, {}}});
    events.tracker().result_written(1002, false, 3, by("p_libpub.app_cg_card_check_ack:1:2:0:m1"));
    events.tracker().card_written({{1, 2, 0}, "lc-2", "0a", 3, 17, 0, 1002, false}, {now});
    EXPECT_THAT(shown(), HasSubstr(" 3 cards: 1 denied, 1 no module registered, 1 offline\n"));
    press({'f', 'f', 'v', 'v'});
    EXPECT_THAT(shown(), HasSubstr("only denied |"));
    EXPECT_THAT(shown(), HasSubstr("offline, denied by m1: too hot"));
    EXPECT_THAT(shown(), Not(HasSubstr("lc-1")));
    const Canvas canvas = view.draw({80, 24}, now);
    EXPECT_EQ(canvas.at(40, 2).tone, Tone::bad);
}

TEST_F(LiveViewTest, ADenialThatNobodySawHasTheDaemonsReason)
{
    events.tracker().card_written({{1, 4, 0}, "lc-4", "0a", 3, 17, 0, 1004, true}, {now, true});
    events.tracker().result_written(1004, false, 3, {now, true});
    events.set_daemons_reasons({{{1, 4, 0}, "too\nhot"}, {{1, 3, 0}, "of before"}});
    press({'v', 'v'});
    EXPECT_THAT(shown(), HasSubstr("denied: too\\nhot"));
    EXPECT_THAT(shown(), Not(HasSubstr("of before"))) << "that card is passed by now";
    press({key_end, key_enter});
    EXPECT_THAT(shown(), HasSubstr("reason    too\\nhot"));
}

TEST_F(LiveViewTest, EnterTellsAllAboutTheCardSelected)
{
    (void)shown();
    press({key_enter});
    EXPECT_THAT(shown(), Not(HasSubstr("configured as"))) << "nothing is selected";
    press({key_down, key_right, key_enter});
    EXPECT_THAT(shown(), HasSubstr("card 1/2/0"));
    EXPECT_THAT(shown(), HasSubstr("answers   m1 has not answered"));
    press({key_enter});
    EXPECT_THAT(shown(), Not(HasSubstr("card 1/2/0")));
}

TEST_F(LiveViewTest, ADetailGoesWithItsCard)
{
    (void)shown();
    press({key_down, key_enter});
    EXPECT_THAT(shown(), HasSubstr("card 1/1/0"));
    events.tracker().card_deleted({1, 1, 0}, {now});
    EXPECT_THAT(shown(), Not(HasSubstr("card 1/1/0")));
}

TEST_F(LiveViewTest, SearchGoesByPositionAndByName)
{
    (void)shown();
    press({'/', '1', '/', '3'});
    EXPECT_THAT(shown(), HasSubstr("search: 1/3_"));
    press({key_backspace, '2', key_enter, key_enter});
    EXPECT_THAT(shown(), HasSubstr("card 1/2/0"));
    press({key_escape, '/', 'c', '-', '3', key_enter, key_enter});
    EXPECT_THAT(shown(), HasSubstr("card 1/3/0"));
    press({'/', 'q', key_backspace, key_backspace, key_escape});
    EXPECT_THAT(shown(), Not(HasSubstr("search:")));
}

TEST_F(LiveViewTest, PauseHoldsTheStreamAndLosesNothing)
{
    happen("first");
    press({'p'});
    happen("second");
    EXPECT_THAT(shown(), HasSubstr("paused |"));
    EXPECT_THAT(shown(), Not(HasSubstr("second")));
    press({'p'});
    EXPECT_THAT(shown(), HasSubstr("second"));
}

TEST_F(LiveViewTest, MessagesAreNeverHeldBack)
{
    press({'p'});
    view.add_message("a record could not be read", now);
    Event lost;
    lost.at = now;
    lost.what = StoreChange{28, false};
    view.add(lost);
    EXPECT_THAT(shown(), HasSubstr("a record could not be read"));
    EXPECT_THAT(shown(), HasSubstr("lost the store"));
}

TEST_F(LiveViewTest, WhatCannotBeBelievedStandsInFront)
{
    setenv("TZ", "UTC", 1);
    tzset();
    now += 100s;
    events.daemon_heard(false, "no process listens there", now);
    EXPECT_THAT(shown(), testing::StartsWith(" DAEMON SILENT since 13:48:20 | 3 cards: "));
    EXPECT_EQ(view.draw({80, 24}, now).at(1, 0).tone, Tone::bad);
    events.store_heard({1, false}, now);
    now += 50s;
    EXPECT_THAT(shown(), testing::StartsWith(" STORE LOST since 13:48:20, DAEMON SILENT since 13:48:20 | "));
    EXPECT_THAT(shown(), HasSubstr("░ 200 s")) << "the bar stands still";
    events.store_heard({33, false}, now);
    events.store_heard({1, true, true}, now);
    EXPECT_THAT(shown(), testing::StartsWith(" DATABASE 33 LOST since 13:49:10, DAEMON SILENT since "));
    EXPECT_THAT(shown(), HasSubstr("░ 150 s")) << "the cards are in another one";
    events.store_heard({33, true, true}, now);
    events.daemon_heard(true, "", now);
    EXPECT_THAT(shown(), testing::StartsWith(" 3 cards: "));
    EXPECT_THAT(shown(), HasSubstr("░ 150 s"));
    events.heartbeat_read({now}, now);
    events.heartbeat_read({std::nullopt, "no history at /x"}, now);
    EXPECT_THAT(shown(), testing::StartsWith(" HISTORY UNREADABLE since 13:49:10 | 3 cards: "));
    events.heartbeat_read({now}, now);
    EXPECT_EQ(view.draw({80, 24}, now).at(1, 0).tone, Tone::heading);
}

TEST_F(LiveViewTest, HelpNamesTheKeys)
{
    press({'?'});
    EXPECT_THAT(shown(), HasSubstr("search: type a position"));
    press({key_escape});
    EXPECT_THAT(shown(), Not(HasSubstr("search: type a position")));
}

TEST_F(LiveViewTest, ManyEventsDoNotPileUp)
{
    for (int i = 0; i < 2000; ++i) {
        happen("event " + std::to_string(i));
    }
    EXPECT_THAT(shown(), HasSubstr("event 1999"));
}

TEST_F(LiveViewTest, HomeAndEndLeadToTheFirstAndTheLast)
{
    (void)shown();
    press({key_end, key_enter});
    EXPECT_THAT(shown(), HasSubstr("card 1/3/0"));
    press({key_home});
    EXPECT_THAT(shown(), HasSubstr("card 1/1/0"));
    press({key_page_down, key_page_up, key_left, key_up});
    EXPECT_THAT(shown(), HasSubstr("card 1/1/0"));
}

} // namespace
