// The C surface of the store client: its arguments, its callbacks, and that nothing is said past them.
#include "vx_mom.h"

#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using store_test::ScopedSetting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr int32_t db = 1;

class SurfaceTest : public store_test::StoreClientTest
{
};

TEST_F(SurfaceTest, WrongArgumentsAreRefused)
{
    const Card any(1, 3, 0, 1);
    const int32_t unknown[] = {10};
    EXPECT_LT(vx_mom_client_connect_sync(nullptr, db), 0);
    EXPECT_LT(vx_mom_client_connect_sync(global.get(), -1), 0);
    EXPECT_LT(vx_mom_set_sync(global.get(), db, nullptr), 0);
    EXPECT_LT(vx_mom_hmset(global.get(), db, any.message(), unknown, 1, nullptr, nullptr), 0);
    EXPECT_LT(vx_mom_hmset(global.get(), db, any.message(), unknown, 0, nullptr, nullptr), 0);
    EXPECT_LT(vx_mom_pdel(global.get(), db, any.message(), 5, nullptr, nullptr), 0);
    EXPECT_LT(vx_mom_subscribe(global.get(), db, any.message(), 1, note_card, this), 0);
    EXPECT_LT(vx_mom_scan_sync(global.get(), db, any.message(), 0, nullptr, this), 0);
    EXPECT_EQ(server.run(db, {"DBSIZE"}), "0") << "nothing is written";
    vx_mom_hash_res_free(nullptr);
}

TEST_F(SurfaceTest, AStartThatTheServerRefusesHasAStatusOfItsOwn)
{
    EXPECT_EQ(server.run(db, {"SET", "@rev:p_dev.card_info", "no number"}), "OK");
    constexpr int32_t status_of_an_exit = 0xff;
    EXPECT_EQ(vx_mom_set_sync(global.get(), db, Card(1, 3, 0, 1).message()) & status_of_an_exit, 135)
        << "255 is another instance";
}

TEST_F(SurfaceTest, ConnectionsAreReportedInTheOrderAsked)
{
    std::vector<int32_t> order;
    const auto note = [](void *, void *second) -> int32_t {
        auto *entry = static_cast<std::pair<std::vector<int32_t> *, int32_t> *>(second);
        entry->first->push_back(entry->second);
        return 0;
    };
    std::pair<std::vector<int32_t> *, int32_t> first{&order, 1};
    std::pair<std::vector<int32_t> *, int32_t> second{&order, 33};
    std::pair<std::vector<int32_t> *, int32_t> third{&order, 28};
    ASSERT_EQ(vx_mom_client_connect(global.get(), 1, note, &first), 0);
    ASSERT_EQ(vx_mom_client_connect(global.get(), 33, note, &second), 0);
    ASSERT_EQ(vx_mom_client_connect(global.get(), 28, note, &third), 0);
    EXPECT_THAT(order, IsEmpty()) << "only the loop calls back";
    ASSERT_TRUE(run_until([&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(1, 33, 28));
}

TEST_F(SurfaceTest, AWrongEndpointFailsEveryCall)
{
    const ScopedSetting wrong("VX_MOM_ENDPOINT", "nowhere");
    testing::internal::CaptureStderr();
    restart_client();
    const Card card(0, 1, 0);
    EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_LT(vx_mom_client_connect(global.get(), 1, note_connect, this), 0);
    EXPECT_LT(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    EXPECT_LT(subscribe_cards(), 0);
    vx_mom_result_t *result = vx_mom_hgetall_sync(global.get(), 1, card.message());
    ASSERT_NE(result, nullptr);
    EXPECT_LT(result->error_code, 0);
    vx_mom_hash_res_free(result);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("'nowhere'"));
    EXPECT_THAT(log_text(), HasSubstr("'nowhere'"));
}

} // namespace
