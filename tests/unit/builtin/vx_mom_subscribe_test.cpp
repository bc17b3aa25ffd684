// Subscriptions: the snapshot, what happens while it is taken, live changes, losses and starting over.
#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using testing::ElementsAre;
using testing::IsEmpty;

class SubscribeTest : public store_test::StoreClientTest
{
};

TEST_F(SubscribeTest, ExistingCardsComeFirstThenTheConfirmationThenChanges)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 7).message()), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 2, 0, 8).message()), 0);
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));

    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 3, 0, 9).message()), 0);
    const int32_t fields[] = {6};
    ASSERT_EQ(vx_mom_hmset(global.get(), 1, Card(0, 1, 0, 5).message(), fields, 1, nullptr, nullptr), 0);
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 2, 0).message(), nullptr, nullptr), 0);

    ASSERT_TRUE(run_until_event("3 0/2/0 type 8"));
    EXPECT_THAT(events, ElementsAre("4 0/1/0 type 7", "4 0/2/0 type 8", "29", "4 0/3/0 type 9",
                                    "6 0/1/0 type 5", "3 0/2/0 type 8"));
}

} // namespace
