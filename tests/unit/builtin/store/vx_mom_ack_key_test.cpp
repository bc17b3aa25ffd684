// Several modules answer for one card at the same time, so an answer's key has to tell the modules apart:
// were it made of the position alone, one module's answer would overwrite, and its deletion take away,
// another's.
//
// Tested in the store and not on the key's text: which answers live side by side is what the daemon relies
// on.
#include "store_client_fixture.h"

namespace
{

using store_test::Ack;

constexpr int32_t db = 1;

class AckKeyTest : public store_test::StoreClientTest
{
protected:
    int32_t exists(const Ack &ack) { return vx_mom_exists_sync(global.get(), db, ack.message()); }
};

TEST_F(AckKeyTest, EachModulesAnswerIsARecordOfItsOwn)
{
    const Ack first(1, 3, 2, "m1");
    const Ack second(1, 3, 2, "m2");
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, first.message()), 0);
    EXPECT_EQ(exists(second), 0) << "not written yet";
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, second.message()), 0);

    ASSERT_EQ(vx_mom_del(global.get(), db, first.message(), nullptr, nullptr), 0);
    EXPECT_EQ(exists(second), 1);
    EXPECT_EQ(exists(first), 0);
}

} // namespace
