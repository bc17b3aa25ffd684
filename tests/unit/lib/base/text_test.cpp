// Texts from the store and from people, hostile ones included.
#include "base/text.h"

#include <gtest/gtest.h>

namespace cg
{

TEST(Visible, LeavesTextOfAnyLanguageAlone)
{
    EXPECT_EQ(visible("Karte 3: zu heiß, 过热 \xF0\x9F\x94\xA5"), "Karte 3: zu heiß, 过热 \xF0\x9F\x94\xA5");
}

TEST(Visible, ShowsControlCharactersOfEveryKind)
{
    EXPECT_EQ(visible("a\nb\rc\td"), "a\\nb\\rc\\td");
    EXPECT_EQ(visible("\x1B[2J\x7F"), "\\x1B[2J\\x7F");
    EXPECT_EQ(visible("\xC2\x9B"), "\\xC2\\x9B"); // a terminal takes U+009B for an escape sequence
}

TEST(Visible, ShowsWhatIsNoUtf8)
{
    EXPECT_EQ(visible("\xC0\xAF"), "\\xC0\\xAF");          // overlong
    EXPECT_EQ(visible("\xED\xA0\x80"), "\\xED\\xA0\\x80"); // a surrogate
    EXPECT_EQ(visible("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(visible("ok\xE8\xBF"), "ok\\xE8\\xBF"); // cut off
    EXPECT_EQ(visible("\xFF"), "\\xFF");
}

TEST(Utf8, IsWellFormedUpToTheBoundsOfEachForm)
{
    for (const char *text : {"", "\x7F", "\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF",
                             "\xEE\x80\x80", "\xEF\xBF\xBF", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(is_utf8(text)) << visible(text);
        EXPECT_TRUE(is_utf8(std::string(text) + "a")) << visible(text);
    }
    for (const char *text : {"\x80", "\xBF", "\xC1\xBF", "\xC2", "\xC2\x7F", "\xC2\xC0", "\xE0\x9F\xBF",
                             "\xED\xA0\x80", "\xE1\x80", "\xE1\x80\x7F", "\xF0\x8F\xBF\xBF",
                             "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF1\x80\x80"}) {
        EXPECT_FALSE(is_utf8(text)) << visible(text);
        EXPECT_FALSE(is_utf8(std::string(text) + "a")) << visible(text);
    }
}

TEST(Visible, ShowsTheLastControlCharacterAndNotTheNextOne)
{
    EXPECT_EQ(visible("\x1F ~\x7F"), "\\x1F ~\\x7F");
    EXPECT_EQ(visible("\xC2\x9F\xC2\xA0"), "\\xC2\\x9F\xC2\xA0");
}

TEST(Visible, StopsAtAWholeCharacter)
{
    EXPECT_EQ(visible("abc", 2), "ab");
    EXPECT_EQ(visible("aéb", 2), "a");
    EXPECT_EQ(visible("a\nb", 2), "a");
    EXPECT_EQ(visible("abc", 3), "abc");
}

TEST(InQuotes, EscapesQuotesAndBackslashes)
{
    EXPECT_EQ(in_quotes("a\"b\\c\n"), "\"a\\\"b\\\\c\\n\"");
}

TEST(Lower, LeavesAllButAsciiAlone)
{
    EXPECT_EQ(lower("DM_TYPE-Lc 9 \u00c4"), "dm_type-lc 9 \u00c4");
}

TEST(Hex, GoesBothWays)
{
    EXPECT_EQ(from_hex("00ffA1"), std::string("\x00\xFF\xA1", 3));
    EXPECT_EQ(from_hex("00:e0:fc"), std::string("\x00\xE0\xFC", 3));
    EXPECT_EQ(from_hex(""), "");
    const std::string bytes("\x00\xFF\xA1", 3);
    EXPECT_EQ(to_hex(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()), "00ffa1");
}

TEST(Hex, RefusesWhatIsNone)
{
    for (const char *text : {"0", "0g", "00:", ":00", "00::11", "-1", "0x", "00 11", "+1"}) {
        EXPECT_EQ(from_hex(text), std::nullopt) << text;
    }
}

TEST(Number, TakesDecimalAndHexadecimalWithinItsBounds)
{
    EXPECT_EQ(to_number("-2147483648", INT32_MIN, INT32_MAX), INT32_MIN);
    EXPECT_EQ(to_number("0x10", 0, 100), 16);
    for (const char *text : {"", "101", "-1", "1 ", "0x", "1e1", "0x-1", "+1"}) {
        EXPECT_EQ(to_number(text, 0, 100), std::nullopt) << text;
    }
}

TEST(Joined, HasSeparatorsBetween)
{
    EXPECT_EQ(joined({}), "");
    EXPECT_EQ(joined({"a"}), "a");
    EXPECT_EQ(joined({"a", "", "b"}, "-"), "a--b");
}

TEST(Split, GivesOnePartMoreThanSeparators)
{
    using Parts = std::vector<std::string>;
    EXPECT_EQ(split("", ','), Parts{""});
    EXPECT_EQ(split(",a,,b", ','), (Parts{"", "a", "", "b"}));
}

TEST(ShellWord, IsQuotedUnlessEveryShellReadsItAsItIs)
{
    const std::string plain = "azAZ09/._-:@%+,=";
    EXPECT_EQ(shell_word(plain), plain);
    EXPECT_EQ(shell_word(""), "''");
    EXPECT_EQ(shell_word("it's"), "'it'\\''s'");
    for (const char c : {' ', ';', '`', '{', '[', '$', '~', '*', '#', '\n', '"', '\\', '!', '\xC3'}) {
        EXPECT_EQ(shell_word(std::string("a") + c), std::string("'a") + c + '\'') << c;
    }
}

TEST(Suggestion, IsNearByDistanceOrByAPart)
{
    EXPECT_EQ(suggestion("AB", {"abcd", "abcde"}), "nearest: abcd") << "two letters away, and three";
    EXPECT_EQ(suggestion("ab", {"xxabxx"}), "one of: xxabxx") << "too short to be searched for";
    EXPECT_EQ(suggestion("abc", {"xxxabcxxx"}), "nearest: xxxabcxxx");
    EXPECT_EQ(suggestion("abcdefghi", {"abcdefxyz", "abcdewxyz"}), "nearest: abcdefxyz") << "a third";
    EXPECT_EQ(suggestion("a", {"b", "a", "c", "d"}), "nearest: a, b, c") << "three at most";
}

TEST(Suggestion, NamesTheNearestFirst)
{
    EXPECT_EQ(suggestion("slotld", {"devid", "slotid", "sslotid"}), "nearest: slotid, sslotid");
    EXPECT_EQ(suggestion("check_info", {"app_cg_card_check_info", "dp_lib_grole"}),
              "nearest: app_cg_card_check_info");
    EXPECT_EQ(suggestion("zzzzzz", {"devid", "slotid"}), "one of: devid, slotid");
}

} // namespace cg
