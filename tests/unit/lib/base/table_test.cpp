// Tables and texts cut for a terminal, and left alone for a pipe.
#include "base/table.h"

#include <gmock/gmock.h>

#include <sstream>

#include "base/failure.h"
#include "base/output.h"

namespace
{

using namespace cg;
using testing::ElementsAre;

const std::vector<Column> columns{{"CARD", 0}, {"NAME", 4}, {"REASON", 6}};
const std::vector<std::vector<Cell>> rows{{{"1/3/0"}, {"a long name"}, {"a long, long reason"}},
                                          {{"1/10/0"}, {"b"}, {""}}};

TEST(Table, APipeGetsAllOfIt)
{
    EXPECT_THAT(table_lines(columns, rows, {}),
                ElementsAre("CARD    NAME         REASON", //
                            "1/3/0   a long name  a long, long reason", "1/10/0  b"));
}

TEST(Table, ANarrowTerminalCutsFromTheLastColumnOn)
{
    EXPECT_THAT(
        table_lines(columns, rows, {true, false, 34}),
        ElementsAre("CARD    NAME         REASON", "1/3/0   a long name  a long, long…", "1/10/0  b"));
    EXPECT_THAT(table_lines(columns, rows, {true, false, 24}),
                ElementsAre("CARD    NAME      REASON", "1/3/0   a long …  a lon…", "1/10/0  b"));
    EXPECT_THAT(table_lines(columns, rows, {true, false, 1}),
                ElementsAre("CARD    NAME  REASON", "1/3/0   a l…  a lon…", "1/10/0  b"));
}

const std::vector<Column> flowing{
    {"CARD", 0}, {"NAME", 4, 6}, {"STATE", 5}, {"SINCE", 5, 0, Rest::dropped}, {"WHY", 3}};
const std::vector<std::vector<Cell>> cards{
    {{"1/3/0"}, {"a long name"}, {"waiting 9 s", Tone::waiting, "for m1, m2"}, {"now", {}, "(3 s ago)"}, {}},
    {{"1/4/0"}, {"b"}, {"denied", Tone::bad, "by m1"}, {"now", {}, "(4 s ago)"}, {"", {}, "too hot, much"}}};

TEST(Table, WhereAllFitsEachRowIsOneLine)
{
    const auto expected =
        ElementsAre("CARD   NAME         STATE                   SINCE          WHY",
                    "1/3/0  a long name  waiting 9 s for m1, m2  now (3 s ago)",
                    "1/4/0  b            denied by m1            now (4 s ago)  too hot, much");
    EXPECT_THAT(table_lines(flowing, cards, {true, false, 74}), expected);
    EXPECT_THAT(table_lines(flowing, cards, {}), expected);
}

TEST(Table, WhatDoesNotFitGoesOnBelow)
{
    EXPECT_THAT(table_lines(flowing, cards, {true, false, 60}),
                ElementsAre("CARD   NAME    STATE                   SINCE  WHY",
                            "1/3/0  a lon…  waiting 9 s for m1, m2  now",
                            "1/4/0  b       denied by m1            now    too hot, much"));
    EXPECT_THAT(table_lines(flowing, cards, {true, false, 40}),
                ElementsAre("CARD   NAME    STATE         SINCE", //
                            "1/3/0  a lon…  waiting 9 s   now", "    for m1, m2",
                            "1/4/0  b       denied by m1  now", "    too hot, much"));
    EXPECT_THAT(table_lines(flowing, cards, {true, false, 30}),
                ElementsAre("CARD   NAME    STATE     SINCE", //
                            "1/3/0  a lon…  waiting…  now", "    for m1, m2", "1/4/0  b       denied    now",
                            "    by m1: too hot, much"));
}

TEST(Table, LinesBelowAreBrokenBetweenWords)
{
    EXPECT_THAT(wrapped("one two three", 7), ElementsAre("one two", "three"));
    EXPECT_THAT(wrapped("one two three", 6), ElementsAre("one", "two", "three"));
    EXPECT_THAT(wrapped("線卡線卡 x", 5), ElementsAre("線卡", "線卡", "x"));
    EXPECT_THAT(wrapped("abcdefgh", 3), ElementsAre("abc", "def", "gh"));
    EXPECT_THAT(wrapped("線", 1), ElementsAre("線", ""));
    EXPECT_THAT(wrapped("", 3), ElementsAre(""));
}

TEST(Table, WideCharactersTakeTwoColumns)
{
    EXPECT_EQ(columns_of("Lüfter"), 6U);
    EXPECT_EQ(columns_of("線卡"), 4U);
    EXPECT_EQ(columns_of("e\u0301"), 1U);
    EXPECT_EQ(columns_of("\U0001F680"), 2U);
    EXPECT_EQ(columns_of("\U0001F525 \u231B"), 5U);
    EXPECT_EQ(columns_of("a\u200Bb"), 2U) << "no width of its own";
    EXPECT_EQ(columns_of("\uE000"), 1U) << "for private use";
    EXPECT_EQ(columns_of("\u0378"), 1U) << "not assigned yet";
    EXPECT_EQ(columns_of("\xFF"
                         "a"),
              2U)
        << "no UTF-8";
    EXPECT_EQ(cut_to("線卡板", 5), "線卡…");
    EXPECT_EQ(cut_to("線卡板", 4), "線…");
    EXPECT_EQ(cut_to("線卡板", 6), "線卡板");
    EXPECT_EQ(cut_to("abc", 0), "");
    EXPECT_THAT(table_lines({{"A", 0}, {"B", 0}}, {{{"線"}, {"x"}}, {{"abcd"}, {"y"}}}, {}),
                ElementsAre("A     B", "線    x", "abcd  y"));
}

TEST(Terminal, ColourIsForWhomItIsMeant)
{
    std::ostringstream out;
    const Output output{out, out};
    EXPECT_EQ(toned(terminal_of(output, "auto"), Tone::bad, "x"), "x");
    EXPECT_EQ(toned(terminal_of(output, "never"), Tone::bad, "x"), "x");
    EXPECT_EQ(toned(terminal_of(output, "always"), Tone::bad, "x"), "\033[1;31mx\033[0m");
    EXPECT_EQ(toned(terminal_of(output, "always"), Tone::plain, "x"), "x");
    EXPECT_EQ(terminal_of(output, "auto").width, 0U);
}

} // namespace
