// Tables and texts cut for a terminal, and left alone for a pipe.
#include "cgctl/table.h"

#include <gmock/gmock.h>

#include <sstream>

#include "cgctl/failure.h"
#include "cgctl/session.h"

namespace
{

using namespace cgctl;
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

TEST(Table, WideCharactersTakeTwoColumns)
{
    EXPECT_EQ(columns_of("Lüfter"), 6U);
    EXPECT_EQ(columns_of("線卡"), 4U);
    EXPECT_EQ(columns_of("e\u0301"), 1U);
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
    const Session session{out, out};
    EXPECT_EQ(toned(terminal_of(session, "auto"), Tone::bad, "x"), "x");
    EXPECT_EQ(toned(terminal_of(session, "never"), Tone::bad, "x"), "x");
    EXPECT_EQ(toned(terminal_of(session, "always"), Tone::bad, "x"), "\033[1;31mx\033[0m");
    EXPECT_EQ(toned(terminal_of(session, "always"), Tone::plain, "x"), "x");
    EXPECT_EQ(terminal_of(session, "auto").width, 0U);
    EXPECT_THROW(terminal_of(session, "sometimes"), Failure);
}

} // namespace
