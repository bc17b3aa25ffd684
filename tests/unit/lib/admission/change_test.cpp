// Which writes are the same one.
#include "admission/change.h"

#include <gtest/gtest.h>

using namespace admission;

TEST(WriteTest, IsKnownByItsWriterAndHisNumberWhateverTheDataSetCountsNow)
{
    const Write write{7, {"daemon", 3, {}}};
    EXPECT_TRUE(is_same(write, {9, {"daemon", 3, {}}}));
    EXPECT_FALSE(is_same(write, {7, {"daemon", 4, {}}}));
    EXPECT_FALSE(is_same(write, {7, {"another", 3, {}}}));
    EXPECT_FALSE(is_same(write, {7, {}}));
    EXPECT_FALSE(is_same({7, {}}, write));
}

TEST(WriteTest, OfAnUnknownWriterIsKnownByItsRevision)
{
    EXPECT_TRUE(is_same({7, {}}, {7, {}}));
    EXPECT_FALSE(is_same({7, {}}, {8, {}}));
    EXPECT_FALSE(is_same({}, {}));
}
