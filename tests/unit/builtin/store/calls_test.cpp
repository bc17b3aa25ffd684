// Calls over lost connections, slow servers, and servers that came back with other data.
#include "store/calls.h"

#include <chrono>

#include "store/functions.h"
#include "store_client_fixture.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using store_test::Card;
using store_test::ScopedSetting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class CallsTest : public store_test::StoreClientTest
{
};

TEST_F(CallsTest, ConnectingWaitsForTheStore)
{
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 33), 0);
}

TEST_F(CallsTest, ACallSurvivesACutConnection)
{
    ASSERT_EQ(write(1, 1), 0);
    cut_all_connections();
    EXPECT_EQ(write(1, 2), 0);
    cut_all_connections();
    EXPECT_EQ(vx_mom_exists_sync(global.get(), 1, Card(0, 1, 0).message()), 1);
    EXPECT_THAT(log_text(),
                testing::ContainsRegex("store lost: unix:.*\n.*store answers again\n.*store lost: "
                                       "unix:.*\n.*store answers again\n"));
}

TEST_F(CallsTest, ACallThatMeetsOtherDataFailsUntilThatIsReported)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    server.kill();
    server.start();
    EXPECT_LT(write(1, 2), 0) << "meant for the data that is gone";
    EXPECT_LT(write(1, 2), 0);
    EXPECT_EQ(server.run(1, {"EXISTS", "p_dev.card_info:0:0:1:0"}), "0");
    ASSERT_TRUE(run_until_report("back 1 type 1"));
    EXPECT_EQ(write(1, 2), 0);
}

TEST_F(CallsTest, AToolWithoutALoopFailsOnceAndGoesOn)
{
    ASSERT_EQ(write(1, 1), 0);
    server.kill();
    server.start();
    EXPECT_LT(write(1, 2), 0);
    EXPECT_EQ(write(1, 2), 0);
}

TEST_F(CallsTest, AStoreEmptiedUnderTheConnectionIsAnother)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"FLUSHALL"}), "OK");
    EXPECT_EQ(write(3, 1), 0);
    ASSERT_TRUE(run_until_report("back 1 type 1"));
    EXPECT_THAT(reports, ElementsAre("lost 1", "back 1 type 1"));
}

TEST_F(CallsTest, AServerThatIsEmptiedWhileItRunsIsNoticedByTheNextWrite)
{
    for (int32_t slot = 0; slot < 3; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
    }
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"FLUSHDB"}), "OK");
    (void)write(1, 2);
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(CallsTest, AWriteThatWasTurnedAwayMakesTheReturnUnbelievable)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "requirepass", "secret"}), "OK");
    (void)server.run_as("default", "secret", {"CLIENT", "KILL", "SKIPME", "yes"});
    EXPECT_LT(write(2, 1), 0);
    ASSERT_EQ(server.run_as("default", "secret", {"CONFIG", "SET", "requirepass", ""}), "OK");
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

// Text that a process said on standard error while `work` was done.
std::string said_meanwhile(const std::function<void()> &work)
{
    testing::internal::CaptureStderr();
    work();
    return testing::internal::GetCapturedStderr();
}

TEST_F(CallsTest, AServerThatRefusesIsNamedOnStandardError)
{
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "requirepass", "secret"}), "OK");
    const std::string said = said_meanwhile([this] {
        EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
        EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
        EXPECT_LT(vx_mom_client_connect_sync(global.get(), 28), 0);
    });
    EXPECT_EQ(said, "store client: " + server.endpoint() +
                        ": the store server refuses: NOAUTH Authentication required.\n");
}

TEST_F(CallsTest, AServerThatIsNotThereIsNamedOnStandardError)
{
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "50");
    restart_client();
    server.kill();
    const std::string said =
        said_meanwhile([this] { EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0); });
    EXPECT_THAT(said, testing::MatchesRegex("store client: unix:.*: .+\n"));
}

class ShortDeadlineTest : public CallsTest
{
protected:
    ShortDeadlineTest() : deadline("VX_MOM_DEADLINE_MS", "400") { restart_client(); }
    static milliseconds time(const std::function<void()> &work)
    {
        const auto begin = steady_clock::now();
        work();
        return std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin);
    }

    ScopedSetting deadline;
};

TEST_F(ShortDeadlineTest, APausedServerIsGivenUpAtTheDeadline)
{
    ASSERT_EQ(write(1, 1), 0);
    server.freeze();
    const milliseconds taken = time([&] { EXPECT_LT(write(1, 2), 0); });
    server.thaw();
    EXPECT_GE(taken, milliseconds(400));
    EXPECT_LT(taken, milliseconds(2000));
}

TEST_F(ShortDeadlineTest, AWriteGivenUpMakesTheReturnUnbelievable)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    server.freeze();
    EXPECT_LT(write(1, 2), 0);
    ASSERT_TRUE(run_until_report("lost 1"));
    server.thaw();
    ASSERT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ShortDeadlineTest, AReadGivenUpLeavesTheReturnBelievable)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    cut_all_connections();
    server.freeze();
    EXPECT_LT(vx_mom_exists_sync(global.get(), 1, Card(0, 1, 0).message()), 0);
    server.thaw();
    ASSERT_TRUE(run_until_report("back 1 type 2"));
}

TEST_F(ShortDeadlineTest, AHundredCallsDuringAnOutageBlockAsOne)
{
    ASSERT_EQ(write(1, 1), 0);
    server.kill();
    const milliseconds taken = time([&] {
        for (int i = 0; i < 100; i++) {
            EXPECT_LT(write(1, 2), 0);
        }
    });
    EXPECT_LT(taken, milliseconds(2000)) << "a hundred deadlines are 40 s";
    server.start();
}

TEST_F(ShortDeadlineTest, AServerThatComesBackInTimeIsRiddenOut)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    server.kill();
    server.start();
    EXPECT_EQ(write(1, 2), 0);
}

// A server that answers, but has no functions and is not to be given any: no outage, and as slow as one.
TEST_F(ShortDeadlineTest, AHundredCallsWithoutFunctionsBlockAsOne)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "default", "-function"}), "OK");
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "admin", "on", "nopass", "+@all"}), "OK");
    ASSERT_EQ(server.run_as("admin", "x", {"FUNCTION", "FLUSH"}), "OK");
    const milliseconds taken = time([&] {
        for (int32_t i = 0; i < 100; i++) {
            EXPECT_LT(write(2, i), 0);
        }
    });
    EXPECT_LT(taken, milliseconds(4000));
    ASSERT_EQ(server.run_as("admin", "x", {"FUNCTION", "LOAD", store::library_code()}), store::library_name);
    EXPECT_EQ(write(2, 1), 0);
}

TEST_F(ShortDeadlineTest, WaitingForReplicasEndsBeforeTheDeadline)
{
    const ScopedSetting replicas("VX_MOM_WAIT_REPLICAS", "1");
    const ScopedSetting limit("VX_MOM_WAIT_MS", "60000");
    restart_client();
    subscribe_and_forget();
    EXPECT_EQ(write(1, 1), 0);
    EXPECT_THAT(log_text(), testing::HasSubstr("confirmed by 0 replicas"));
    ASSERT_TRUE(run_until_event("4 0/1/0 type 1"));
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(ShortDeadlineTest, ReadsBetweenWritesThatAreRefusedForNowRenewNoBudget)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "min-replicas-to-write", "1"}), "OK");
    const milliseconds taken = time([&] {
        for (int32_t i = 0; i < 30; i++) {
            EXPECT_LT(write(2, i), 0);
            EXPECT_EQ(vx_mom_exists_sync(global.get(), 1, Card(0, 1, 0).message()), 1);
        }
    });
    EXPECT_LT(taken, milliseconds(6000)) << "thirty deadlines are twelve seconds";
}

} // namespace
