// The whole client on a group of servers: fail-overs, and what must not be taken for one.
#include "sentinel_group.h"
#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using store_test::ScopedSetting;
using store_test::SentinelGroup;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class GroupTest : public store_test::StoreClientTest
{
protected:
    GroupTest() : GroupTest(SentinelGroup::Options()) {}
    explicit GroupTest(const SentinelGroup::Options &options)
        : group(options), place("VX_MOM_ENDPOINT", group.endpoint())
    {
        restart_client();
    }

    bool run_until_back(const std::string &report)
    {
        return run_until([&] { return !reports.empty() && reports.back() == report; }, 60000);
    }
    // Whether another server has taken the first one's place for everybody: before that the others would take
    // over its emptiness when it comes back.
    bool is_replaced()
    {
        const std::string old_port = std::to_string(group.server_port(0));
        for (size_t sentinel = 0; sentinel < 3; sentinel++) {
            const std::string named =
                group.run_sentinel(sentinel, {"SENTINEL", "GET-MASTER-ADDR-BY-NAME", SentinelGroup::name});
            if (named.find(old_port) != std::string::npos) {
                return false;
            }
        }
        return group.run(1, {"ROLE"}).find(old_port) == std::string::npos &&
               group.run(2, {"ROLE"}).find(old_port) == std::string::npos;
    }
    // Whether the servers other than the first have everything that it has.
    bool is_copied() { return group.run(0, {"WAIT", "2", "5000"}) == "2"; }

    SentinelGroup group;
    ScopedSetting place;
    ScopedSetting patience{"VX_MOM_DEADLINE_MS", "40000"}; // a loaded machine elects slowly
};

TEST_F(GroupTest, ACallSurvivesAFailOver)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_TRUE(is_copied());
    group.kill_server(0);
    EXPECT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_back("back 1 type 2"));
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1"));
    EXPECT_EQ(vx_mom_exists_sync(global.get(), 1, Card(0, 1, 0).message()), 1);
}

TEST_F(GroupTest, ACallDoesNotWaitForAMasterThatStandsStill)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_TRUE(is_copied());
    group.freeze_server(0);
    EXPECT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_back("back 1 type 2"));
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    group.thaw_server(0);
    EXPECT_EQ(write(3, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/3/0 type 1"));
}

TEST_F(GroupTest, AMasterThatStandsStillIsLeftWithoutAnyCall)
{
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "2000");
    restart_client();
    subscribe_and_forget();
    group.freeze_server(0);
    EXPECT_TRUE(run_until_back("back 1 type 2"));
}

TEST_F(GroupTest, WritesThatAFailOverLosesAreNoticed)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_TRUE(is_copied());
    group.freeze_server(1);
    group.freeze_server(2);
    ASSERT_EQ(group.run(0, {"CLIENT", "KILL", "TYPE", "replica"}), "2") << "nothing waits on its way to them";
    ASSERT_EQ(write(2, 1), 0);
    group.kill_server(0);
    group.thaw_server(1);
    group.thaw_server(2);
    EXPECT_TRUE(run_until_back("back 1 type 1"));
}

// It answers as a master until the sentinels get round to it, and a client that only now looks for its server
// must not fall for it.
TEST_F(GroupTest, AnEmptyOldMasterIsNotBelieved)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_TRUE(is_copied());
    group.kill_server(0);
    ASSERT_TRUE(store_test::eventually([this] { return is_replaced(); }));
    group.start_server(0);
    EXPECT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_back("back 1 type 2"));
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(reports, Not(Contains(HasSubstr("type 1"))));
    EXPECT_EQ(vx_mom_exists_sync(global.get(), 1, Card(0, 1, 0).message()), 1);
}

// One server that nobody replaces; sentinels look every ten seconds which process it is.
class LoneMasterTest : public GroupTest
{
protected:
    LoneMasterTest() : GroupTest(options()) {}

private:
    static SentinelGroup::Options options()
    {
        SentinelGroup::Options options;
        options.replicas = 0;
        options.down_after = std::chrono::minutes(2);
        return options;
    }
};

TEST_F(LoneMasterTest, OtherDataIsBelievedOnceTheSentinelsHaveSeenWhoHasIt)
{
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "300");
    restart_client();
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    group.kill_server(0);
    group.start_server(0);
    EXPECT_LT(write(2, 1), 0);
    EXPECT_THAT(reports, Not(Contains(HasSubstr("type"))));
    EXPECT_TRUE(run_until_back("back 1 type 1"));
    EXPECT_THAT(log_text(), HasSubstr("has other data, and the sentinels have not seen its start yet"));
    EXPECT_EQ(write(2, 1), 0);
}

TEST_F(GroupTest, AWriteWaitsForReplicas)
{
    const ScopedSetting replicas("VX_MOM_WAIT_REPLICAS", "2");
    const ScopedSetting limit("VX_MOM_WAIT_MS", "5000");
    restart_client();
    ASSERT_EQ(write(1, 1), 0);
    EXPECT_EQ(group.run(1, {"SELECT", "1"}), "OK");
    EXPECT_THAT(log_text(), Not(HasSubstr("confirmed")));
    group.freeze_server(2);
    const ScopedSetting short_limit("VX_MOM_WAIT_MS", "20");
    restart_client();
    ASSERT_EQ(write(2, 1), 0) << "it is written all the same";
    ASSERT_EQ(write(3, 1), 0);
    group.thaw_server(2);
    ASSERT_TRUE(is_copied());
    ASSERT_TRUE(run_until([&] {
        EXPECT_EQ(write(4, 1), 0);
        return log_text().find("confirmed by 2 replicas again") != std::string::npos;
    }));
    EXPECT_THAT(log_text(), HasSubstr("a write is confirmed by 1 replicas and not by 2"));
}

// A server may be told to refuse writes without its replicas; that passes.
TEST_F(GroupTest, AWriteWaitsUntilThereAreReplicasAgain)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(group.run(0, {"CONFIG", "SET", "min-replicas-to-write", "3"}), "OK");
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "300");
    restart_client();
    EXPECT_LT(write(2, 1), 0);
    EXPECT_THAT(log_text(), HasSubstr("NOREPLICAS"));
    ASSERT_EQ(group.run(0, {"CONFIG", "SET", "min-replicas-to-write", "2"}), "OK");
    EXPECT_TRUE(run_until([&] { return write(2, 1) == 0; }));
}

TEST_F(GroupTest, AGroupThatNobodyKnowsIsNamed)
{
    const ScopedSetting elsewhere("VX_MOM_ENDPOINT", "sentinel:unknown@" + group.sentinel_address(0));
    const ScopedSetting shorter("VX_MOM_DEADLINE_MS", "200");
    restart_client();
    EXPECT_LT(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_THAT(log_text(), AllOf(HasSubstr("unknown"), HasSubstr(group.sentinel_address(0))));
}

} // namespace
