// Whole numbers in texts.
#include "loop/number.h"

#include <gtest/gtest.h>

namespace
{

using platform::whole_number;

TEST(WholeNumber, IsTheWholeText)
{
    EXPECT_EQ(whole_number("0"), 0);
    EXPECT_EQ(whole_number("-7"), -7);
    EXPECT_EQ(whole_number("9223372036854775807"), INT64_MAX);
    for (const char *text : {"", "-", "+1", " 1", "1 ", "1.0", "0x1", "9223372036854775808", "1\n"}) {
        EXPECT_EQ(whole_number(text), std::nullopt) << text;
    }
}

TEST(WholeNumber, LiesWithinItsBounds)
{
    EXPECT_EQ(whole_number("1", 1, 3), 1);
    EXPECT_EQ(whole_number("3", 1, 3), 3);
    EXPECT_EQ(whole_number("0", 1, 3), std::nullopt);
    EXPECT_EQ(whole_number("4", 1, 3), std::nullopt);
}

} // namespace
