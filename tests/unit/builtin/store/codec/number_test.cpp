// Whole numbers from text.
#include "store/codec/number.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>

namespace
{

TEST(Number, IsReadWholeOrNotAtAll)
{
    uint64_t number = 0;
    EXPECT_TRUE(store::parse_number("18446744073709551615", number));
    EXPECT_EQ(number, UINT64_MAX);
    EXPECT_TRUE(store::parse_number("007", number));
    EXPECT_EQ(number, 7U);
    for (const char *wrong : {"", "x", "1x", " 1", "1 ", "+1", "-1", "0x1", "18446744073709551616"}) {
        EXPECT_FALSE(store::parse_number(wrong, number)) << wrong;
    }
}

TEST(Number, HasOneShortestForm)
{
    int64_t number = 1;
    for (const auto &[text, value] : {std::pair{"0", 0}, {"-1", -1}, {"10", 10}, {"7", 7}}) {
        EXPECT_TRUE(store::parse_shortest(text, number)) << text;
        EXPECT_EQ(number, value);
    }
    for (const char *wrong : {"", "00", "01", "-0", "-01", "+1", "1x", "-"}) {
        EXPECT_FALSE(store::parse_shortest(wrong, number)) << wrong;
    }
}

} // namespace
