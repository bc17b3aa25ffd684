// Since when nothing is heard: what a tool that keeps a history has to know of a server that hangs.
#include "store/silence.h"

#include "store_client_fixture.h"

namespace
{

using std::chrono::steady_clock;
using store_test::ScopedSetting;
using testing::Contains;
using vx_mom::silent_for;

using SilenceTest = store_test::StoreClientTest;

TEST_F(SilenceTest, NothingIsKnownWithoutAConnection)
{
    EXPECT_FALSE(silent_for(nullptr, 1));
    EXPECT_FALSE(silent_for(global.get(), -1));
    EXPECT_FALSE(silent_for(global.get(), 1));
}

TEST_F(SilenceTest, OfAServerThatHangsItReachesBackToTheLastThingHeard)
{
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "100");
    restart_client();
    const auto begun = steady_clock::now();
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    server.freeze();
    const auto frozen = steady_clock::now();
    ASSERT_TRUE(run_until([&] { return testing::Value(reports, Contains("lost 1")); }));
    const auto noticed = steady_clock::now();
    const auto silence = silent_for(global.get(), 1);
    server.thaw();
    ASSERT_TRUE(silence);
    EXPECT_GE(*silence + std::chrono::milliseconds(1), noticed - frozen);
    EXPECT_LE(*silence, steady_clock::now() - begun);
}

} // namespace
