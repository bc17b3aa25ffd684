// The live view's layout, character by character, and where the arrow keys lead.
#include "screen/screen_layout.h"

#include <gmock/gmock.h>

namespace
{

using namespace cg;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::vector<std::string> lines_of(const Canvas &canvas)
{
    std::vector<std::string> lines;
    for (std::size_t y = 0; y < canvas.size().height; ++y) {
        lines.push_back(canvas.line(y));
    }
    return lines;
}

std::string all_of(const Canvas &canvas)
{
    std::string text;
    for (const std::string &line : lines_of(canvas)) {
        text += line + '\n';
    }
    return text;
}

ScreenCard card(int device, int slot, int sub = 0)
{
    ScreenCard card;
    card.position = {device, slot, sub};
    card.name = "lc-" + std::to_string(slot);
    card.type = "lc";
    card.state = "passed";
    card.tone = Tone::good;
    return card;
}

Screen with_cards(int count)
{
    Screen screen;
    for (int i = 0; i < count; ++i) {
        screen.cards.push_back(card(1 + i / 100, 1 + i % 100));
    }
    return screen;
}

TEST(ScreenLayout, ASlotIsABoxWithItsSubSlotsInside)
{
    Screen screen;
    screen.title = "title";
    screen.cards = {card(1, 3), card(1, 3, 1), card(1, 4)};
    screen.cards[1].state = "waiting for m1";
    screen.cards[1].share_left = 0.5;
    screen.cards[1].left = "150 s";
    screen.events.push_back({"something happened"});
    EXPECT_THAT(lines_of(draw(screen, {50, 16}).canvas),
                ElementsAre("title",                                              //
                            "device 1: 3 cards",                                  //
                            "┌─ slot 3 ──────────────┐┌─ slot 4 ──────────────┐", //
                            "│lc-3 (lc)              ││lc-4 (lc)              │", //
                            "│passed                 ││passed                 │", //
                            "│                       ││                       │", //
                            "│/1 lc-3 (lc)           ││                       │", //
                            "│waiting for m1         ││                       │", //
                            "│█████████░░░░░░░░ 150 s││                       │", //
                            "└───────────────────────┘└───────────────────────┘", //
                            "",                                                   //
                            "── events ────────────────────────────────────────", //
                            "something happened", "", "",                         //
                            "q quit  arrows select  Enter detail  f filter  / …"));
}

TEST(ScreenLayout, WhereBoxesDoNotFitEachCardIsALine)
{
    Screen screen = with_cards(12);
    screen.cards[11].state = "waiting for m1, m3";
    screen.cards[11].share_left = 1;
    screen.cards[11].left = "300 s";
    const std::string text = all_of(draw(screen, {80, 24}).canvas);
    EXPECT_THAT(text, HasSubstr("\n1/1/0  lc-1  passed\n"));
    EXPECT_THAT(text, HasSubstr("\n1/12/0 lc-12 waiting for m1, m3"));
    EXPECT_THAT(text, HasSubstr(" ██████ 300 s\n"));
    EXPECT_THAT(text, Not(HasSubstr("┌")));
}

TEST(ScreenLayout, TheUsersChoiceOfThePanelWins)
{
    Screen screen = with_cards(1);
    screen.panel = Panel::lines;
    EXPECT_THAT(all_of(draw(screen, {80, 24}).canvas), Not(HasSubstr("┌")));
    screen = with_cards(100);
    screen.panel = Panel::boxes;
    EXPECT_THAT(all_of(draw(screen, {80, 24}).canvas), HasSubstr("┌─ slot 1 "));
}

TEST(ScreenLayout, TwoHundredCardsFlowInColumnsAndScrollToTheSelectedOne)
{
    Screen screen = with_cards(200);
    std::string text = all_of(draw(screen, {80, 24}).canvas);
    EXPECT_THAT(text, HasSubstr("device 1: 100 cards\n1/1/0   lc-1   passed"));
    EXPECT_THAT(text, HasSubstr("1/51/0"));
    screen.selected = Position{2, 100, 0};
    text = all_of(draw(screen, {80, 24}).canvas);
    EXPECT_THAT(text, HasSubstr("2/100/0"));
    EXPECT_THAT(text, Not(HasSubstr("1/1/0 ")));
    screen.selected = Position{1, 1, 0};
    text = all_of(draw(screen, {80, 24}).canvas);
    EXPECT_THAT(text, HasSubstr("device 1: 100 cards\n1/1/0 "));
}

TEST(ScreenLayout, EachDeviceOfAStackIsAPanelOfItsOwn)
{
    Screen screen;
    screen.cards = {card(1, 1), card(2, 1)};
    const std::string text = all_of(draw(screen, {80, 24}).canvas);
    EXPECT_THAT(text, HasSubstr("device 1: 1 card\n┌"));
    EXPECT_THAT(text, HasSubstr("device 2: 1 card\n┌"));
}

TEST(ScreenLayout, ATinyTerminalGetsAWordAndNothingElse)
{
    Screen screen = with_cards(3);
    for (const Size size : {Size{39, 24}, Size{80, 9}, Size{1, 1}, Size{0, 0}}) {
        const Drawn drawn = draw(screen, size);
        EXPECT_TRUE(drawn.places.empty());
    }
    EXPECT_EQ(draw(screen, {30, 5}).canvas.line(0), "This terminal is too small:");
    EXPECT_EQ(draw(screen, {10, 5}).canvas.line(0), "This term…");
}

TEST(ScreenLayout, EverySizeAndNumberOfCardsCanBeDrawn)
{
    for (const int count : {0, 1, 7, 16, 200}) {
        Screen screen = with_cards(count);
        for (ScreenCard &each : screen.cards) {
            each.share_left = 0.3;
            each.left = "90 s";
        }
        for (std::size_t width = 40; width < 220; width += 7) {
            for (std::size_t height = 10; height < 60; height += 5) {
                EXPECT_EQ(draw(screen, {width, height}).places.size(), screen.cards.size());
            }
        }
    }
}

TEST(ScreenLayout, ThePopupStandsOverThePanel)
{
    Screen screen = with_cards(3);
    screen.popup = {"card 1/3/0", "state     passed"};
    const std::string text = all_of(draw(screen, {80, 24}).canvas);
    EXPECT_THAT(text, HasSubstr("state     passed"));
    screen.popup.resize(100, "line");
    EXPECT_THAT(all_of(draw(screen, {80, 24}).canvas), HasSubstr("…"));
}

TEST(ScreenLayout, OnlyTheNewestEventsAreShown)
{
    Screen screen;
    for (int i = 0; i < 20; ++i) {
        screen.events.push_back({"event " + std::to_string(i)});
    }
    const std::string text = all_of(draw(screen, {40, 10}).canvas);
    EXPECT_THAT(text, HasSubstr("event 17\nevent 18\nevent 19\n"));
    EXPECT_THAT(text, Not(HasSubstr("event 16")));
}

TEST(ScreenLayout, ArrowsLeadToTheNeighbour)
{
    Screen screen;
    screen.cards = {card(1, 1), card(1, 1, 1), card(1, 2), card(1, 3), card(1, 4)};
    const std::vector<CardPlace> places = draw(screen, {80, 40}).places; // three boxes in a row
    const Position first{1, 1, 0};
    EXPECT_EQ(neighbour(places, first, 1, 0), (Position{1, 2, 0}));
    EXPECT_EQ(neighbour(places, first, 0, 1), (Position{1, 1, 1}));
    EXPECT_EQ(neighbour(places, {1, 1, 1}, 0, 1), (Position{1, 4, 0}));
    EXPECT_EQ(neighbour(places, {1, 4, 0}, 0, -1), (Position{1, 1, 1}));
    EXPECT_EQ(neighbour(places, first, -1, 0), first) << "there is nothing";
    EXPECT_EQ(neighbour(places, {9, 9, 9}, 0, 1), first) << "where nobody is, the first one";
    EXPECT_EQ(neighbour({}, first, 0, 1), first);
}

} // namespace
