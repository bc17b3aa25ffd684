// Published changes: one text for one change.
#include "store/codec/payload.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using store::PublishedChange;
using testing::Pair;

TEST(Payload, IsReadItemByItem)
{
    PublishedChange change;
    ASSERT_TRUE(store::decode_change("2:171:41:21:62:-71:70:", change));
    EXPECT_EQ(change.revision, 17U);
    EXPECT_EQ(change.command, 4);
    EXPECT_THAT(change.fields, testing::ElementsAre(Pair("6", "-7"), Pair("7", "")));
    EXPECT_EQ(change.mark, "") << "as the functions of the build before write it";
    ASSERT_TRUE(store::decode_change("2:171:41:21:61:12:by5:a.1 -", change));
    EXPECT_THAT(change.fields, testing::ElementsAre(Pair("6", "1")));
    EXPECT_EQ(change.mark, "a.1 -");
    for (const char *wrong :
         {"2:171:41:22:by5:a.1 -1:61:1", "2:171:41:12:by0:", "2:171:41:22:by1:x2:by1:y"}) {
        EXPECT_FALSE(store::decode_change(wrong, change))
            << wrong << ": the mark is last, once, and not empty";
    }
}

TEST(Payload, AnythingElseIsRefused)
{
    const std::string good = "2:171:41:11:62:-7";
    PublishedChange change;
    ASSERT_TRUE(store::decode_change(good, change));
    for (size_t length = 0; length < good.size(); length++) {
        EXPECT_FALSE(store::decode_change(good.substr(0, length), change)) << length;
    }
    for (const char *wrong : {"2:171:41:11:62:-7x", "2:1x1:41:0", "2:-11:41:0", "0:1:41:0", "2:171:x1:0",
                              "99999999999999999999999:1", "-1:1", "1:11:420:99999999999999999999"}) {
        EXPECT_FALSE(store::decode_change(wrong, change)) << wrong;
    }
}

TEST(Payload, HasOneSpellingOnly)
{
    PublishedChange change;
    ASSERT_TRUE(store::decode_change("2:171:41:0", change));
    for (const char *wrong : {"02:171:41:0", "3:0171:41:0", "2:172:041:0", "2:171:42:00", "2:172:-01:0",
                              "+2:171:41:0", "2:171:42:+0"}) {
        EXPECT_FALSE(store::decode_change(wrong, change)) << wrong;
    }
}

} // namespace
