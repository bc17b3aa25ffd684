// The names in the store, and texts as parts of keys.
#include "store/codec/names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

TEST(Names, OfATypeAndADatabaseAreTheseAndNoOthers)
{
    EXPECT_EQ(store::counter_key("p_dev.card_info"), "@rev:p_dev.card_info");
    EXPECT_EQ(store::index_key("p_dev.card_info"), "@idx:p_dev.card_info");
    EXPECT_EQ(store::channel_prefix(28), "@chg:28:");
    EXPECT_STREQ(store::data_set_key, "@set");
    EXPECT_STREQ(store::runs_key, "@runs");
}

TEST(Names, EachByteHasOneFormInAKey)
{
    for (int value = 0; value < 256; value++) {
        const std::string text(1, static_cast<char>(value));
        const std::string part = store::key_part(text);
        const bool is_plain =
            value >= 0x80 || isalnum(value) != 0 || std::string("._-~").find(text) != std::string::npos;
        EXPECT_EQ(part.size(), is_plain ? 1U : 3U) << value;
        std::string found;
        EXPECT_TRUE(store::parse_key_part(part, found)) << value;
        EXPECT_EQ(found, text);
        char other[4];
        (void)std::snprintf(other, sizeof other, "%%%02X", static_cast<unsigned>(value));
        found.clear();
        EXPECT_EQ(store::parse_key_part(other, found), !is_plain) << other;
        EXPECT_EQ(store::parse_key_part(text, found), is_plain) << value;
    }
    for (const char *wrong : {"%", "%2", "a%", "%3a", "%2G", "%G2", "%/0", "%:0", "%@0", "a%2"}) {
        std::string found;
        EXPECT_FALSE(store::parse_key_part(wrong, found)) << wrong;
    }
    std::string found;
    EXPECT_TRUE(store::parse_key_part("a%20b%3A", found));
    EXPECT_EQ(found, "a b:");
}

} // namespace
