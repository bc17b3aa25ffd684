// The words of a line.
#include "line.h"

#include <gmock/gmock.h>

#include <functional>

namespace cg::scenario
{

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;

// "BYTE: message" of what is wrong with a line; empty when nothing is.
std::string mistake(const std::string &text, const std::function<void(Line &)> &read)
{
    try {
        Line line(text);
        read(line);
    } catch (const Mistake &found) {
        return std::to_string(found.at) + ": " + found.message;
    }
    return "";
}

std::string mistake(const std::string &text)
{
    return mistake(text, [](Line &line) {
        while (!line.at_end()) {
            line.word("a word");
        }
    });
}

Milliseconds time_in(const std::string &text)
{
    return Line(text).time();
}

std::string time_mistake(const std::string &text)
{
    return mistake(text, [](Line &line) { line.time(); });
}

std::vector<std::string> words_of(const std::string &text)
{
    std::vector<std::string> words;
    for (Line line(text); !line.at_end();) {
        words.push_back(line.word("a word").text);
    }
    return words;
}

} // namespace

TEST(Line, IsSplitAtBlanksAndCommas)
{
    using Words = std::vector<std::string>;
    EXPECT_EQ(words_of(" plug\t1/3  x # and on"), (Words{"plug", "1/3", "x"}));
    EXPECT_EQ(words_of("m1,m2 , m3"), (Words{"m1", ",", "m2", ",", "m3"}));
    EXPECT_EQ(words_of("a#b"), Words{"a#b"});
    EXPECT_EQ(words_of("name=\"lc 48\" b=c"), (Words{"name=lc 48", "b=c"}));
    EXPECT_EQ(words_of(R"("a \\ \"b\", and # no comment")"), Words{"a \\ \"b\", and # no comment"});
    EXPECT_TRUE(Line(" \t# all").at_end());
}

TEST(Line, TextsInQuotesAreNoKeywords)
{
    Line line("\"plug\" plug");
    EXPECT_TRUE(line.at_quoted());
    EXPECT_FALSE(line.accept("plug"));
    EXPECT_EQ(line.quoted("a text"), "plug");
    EXPECT_FALSE(line.at_quoted());
    EXPECT_EQ(line.at(), 7U);
    EXPECT_TRUE(line.accept("plug"));
    EXPECT_EQ(line.at(), 12U);
    EXPECT_EQ(line.text_from(7), "plug");
}

TEST(Line, MistakesStandWhereTheyAre)
{
    EXPECT_EQ(mistake("say \"hello"), "4: this text in quotes has no end on the line");
    EXPECT_EQ(mistake("say \"a\\n\""), "6: a backslash in quotes; it stands only before \" and \\");
    EXPECT_THAT(mistake("say a\"b\""), HasSubstr("5: a text in quotes begins in the middle of a word"));
    EXPECT_THAT(mistake("a=b\"c\""), HasSubstr("3: a text in quotes begins in the middle of a word"));
    EXPECT_EQ(mistake("\"a\"b"), "3: a blank goes behind a text in quotes");
    EXPECT_EQ(mistake("say \"ü\xff\""), "7: these bytes are not UTF-8");
    EXPECT_EQ(mistake("say \"\x1b[2J\""), "5: a control character; only blanks and tabs stand between words");
    EXPECT_EQ(mistake("say ü x",
                      [](Line &line) {
                          line.quoted("what is said");
                          line.end("");
                      }),
              "0: what is said stands in quotes: \"say\"");
    EXPECT_EQ(mistake("ü x",
                      [](Line &line) {
                          line.word("");
                          line.end("stop");
                      }),
              "3: \"x\" is not expected here; stop");
    EXPECT_EQ(mistake("a  ",
                      [](Line &line) {
                          line.word("");
                          line.word("a role");
                      }),
              "2: a role is missing here");
}

TEST(Line, ChoosesAmongKeywords)
{
    const std::vector<std::string> keywords{"master", "slave"};
    EXPECT_EQ(Line("slave").choice("a role", keywords), 1U);
    EXPECT_EQ(mistake("slav", [&](Line &line) { line.choice("a role", keywords); }),
              "0: \"slav\" is not a role; nearest: slave");
    EXPECT_EQ(mistake("", [&](Line &line) { line.choice("a role", keywords); }), "0: a role is missing here");
}

TEST(Line, ReadsPositionsModulesAndNumbers)
{
    Line line("1/3 m1, m2 -7");
    EXPECT_EQ(line.position(), (Position{1, 3, 0}));
    EXPECT_EQ(line.modules(), (std::vector<std::string>{"m1", "m2"}));
    EXPECT_EQ(line.number("a number"), -7);
    EXPECT_THAT(mistake("1", [](Line &read) { read.position(); }),
                HasSubstr("0: \"1\" is not a card position"));
    EXPECT_THAT(mistake("a/b", [](Line &read) { read.module(); }),
                HasSubstr("0: \"a/b\" is not a module name"));
    EXPECT_EQ(mistake("4294967296", [](Line &read) { read.number("a number"); }),
              "0: \"4294967296\" is not a number");
}

TEST(Line, TimesHaveUnitsAndBounds)
{
    EXPECT_EQ(time_in("3s"), 3s);
    EXPECT_EQ(time_in("200ms"), 200ms);
    EXPECT_EQ(time_in("0.25s"), 250ms);
    EXPECT_EQ(time_in("5m"), 300s);
    EXPECT_EQ(time_in("60m"), 1h);
    EXPECT_EQ(time_in("1ms"), 1ms);
    EXPECT_EQ(Line("0s").time(0ms), 0s);
    EXPECT_EQ(time_mistake("3"), "0: \"3\" is not a time; a number and ms, s or m, as in 5s");
    for (const char *text : {"s", "1e3s", "nans", "infs", "\"3s\"", "3h", "3 s"}) {
        EXPECT_THAT(time_mistake(text), HasSubstr("is not a time")) << text;
    }
    EXPECT_EQ(time_mistake("60.01m"), "0: \"60.01m\" is out of range; from 1 ms to an hour");
    EXPECT_THAT(time_mistake("0.4ms"), HasSubstr("out of range"));
    EXPECT_THAT(time_mistake("-1s"), HasSubstr("out of range"));
    EXPECT_EQ(time_mistake(""), "0: a time as in 5s is missing here");
}

} // namespace cg::scenario
