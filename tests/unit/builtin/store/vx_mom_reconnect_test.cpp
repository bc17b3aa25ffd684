// Loss and return: what is reported, what calls do meanwhile, and what a returning store is taken for.
#include <chrono>

#include "store/codec/names.h"
#include "store/functions.h"
#include "store_client_fixture.h"

namespace
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using store_test::Card;
using store_test::ScopedSetting;
using testing::ElementsAre;
using testing::IsEmpty;

class ReconnectTest : public store_test::StoreClientTest
{
protected:
    int32_t write(int32_t slot, int32_t type)
    {
        return vx_mom_set_sync(global.get(), 1, Card(0, slot, 0, type).message());
    }
    bool run_until_report(const std::string &last)
    {
        return run_until([&] { return !reports.empty() && reports.back() == last; });
    }
    void subscribe_and_forget()
    {
        connect(1);
        ASSERT_EQ(subscribe_cards(), 0);
        ASSERT_TRUE(run_until_event("29"));
        events.clear();
        reports.clear();
    }
    void cut_loop_connections() { (void)server.run(0, {"CLIENT", "KILL", "TYPE", "pubsub"}); }
    void cut_all_connections() { (void)server.run(0, {"CLIENT", "KILL", "SKIPME", "yes"}); }
};

TEST_F(ReconnectTest, ConnectionsAreReportedInTheOrderAsked)
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

TEST_F(ReconnectTest, AConnectionIsWaitedForUntilTheServerComesUp)
{
    server.kill();
    ASSERT_EQ(vx_mom_client_connect(global.get(), 1, note_connect, this), 0);
    EXPECT_FALSE(run_until([&] { return !reports.empty(); }, 100));
    server.start();
    EXPECT_TRUE(run_until_report("up"));
}

TEST_F(ReconnectTest, ACutConnectionComesBackWithTheSameData)
{
    subscribe_and_forget();
    cut_loop_connections();
    ASSERT_TRUE(run_until_report("back 1 type 2"));
    EXPECT_THAT(reports, ElementsAre("lost 1", "back 1 type 2"));
}

TEST_F(ReconnectTest, EveryDatabaseIsReportedAndOnlyOnce)
{
    connect(1);
    connect(28);
    reports.clear();
    cut_all_connections();
    ASSERT_TRUE(run_until([&] { return reports.size() >= 4; }));
    EXPECT_THAT(reports,
                testing::UnorderedElementsAre("lost 1", "lost 28", "back 1 type 2", "back 28 type 2"));
}

TEST_F(ReconnectTest, WhatHappenedDuringTheOutageIsDelivered)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_EQ(write(3, 1), 0);
    subscribe_and_forget();
    cut_loop_connections();
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    ASSERT_EQ(write(2, 2), 0);
    ASSERT_EQ(write(4, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/4/0 type 1"));
    ASSERT_EQ(write(5, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/5/0 type 1"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "4 0/2/0 type 2", "4 0/4/0 type 1", "4 0/5/0 type 1"));
}

TEST_F(ReconnectTest, ASubscriptionRepeatedOnReturnStartsOver)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 1), 0);
    subscribe_and_forget();
    on_return = [&](int32_t) { EXPECT_EQ(subscribe_cards(), 0); };
    cut_loop_connections();
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("3 0/1/0 type 1", "4 0/2/0 type 1", "29"));
}

TEST_F(ReconnectTest, ACallSurvivesACutConnection)
{
    ASSERT_EQ(write(1, 1), 0);
    cut_all_connections();
    EXPECT_EQ(write(1, 2), 0);
    cut_all_connections();
    EXPECT_EQ(vx_mom_exists_sync(global.get(), 1, Card(0, 1, 0).message()), 1);
}

TEST_F(ReconnectTest, AServerRestartedWithItsDataIsTheSame)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    server.kill();
    ASSERT_TRUE(run_until_report("lost 1"));
    server.start();
    EXPECT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_report("back 1 type 2"));
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/2/0 type 1"));
}

TEST_F(ReconnectTest, AServerRestartedEmptyIsAnother)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    server.kill();
    server.start();
    ASSERT_TRUE(run_until_report("back 1 type 1"));
    EXPECT_THAT(reports, ElementsAre("lost 1", "back 1 type 1"));
    ASSERT_TRUE(run_until_event("3 0/1/0 type 1")) << "what vanished is told";
    EXPECT_EQ(write(1, 5), 0) << "calls work again after the report";
    ASSERT_TRUE(run_until_event("4 0/1/0 type 5"));
}

TEST_F(ReconnectTest, AServerRestartedFromAnOlderCopyIsAnother)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    ASSERT_EQ(write(1, 2), 0);
    server.kill();
    server.start();
    ASSERT_TRUE(run_until_report("back 1 type 1"));
    ASSERT_TRUE(run_until_event("4 0/1/0 type 1"));
}

TEST_F(ReconnectTest, ACallThatMeetsOtherDataFailsUntilThatIsReported)
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

TEST_F(ReconnectTest, AToolWithoutALoopFailsOnceAndGoesOn)
{
    ASSERT_EQ(write(1, 1), 0);
    server.kill();
    server.start();
    EXPECT_LT(write(1, 2), 0);
    EXPECT_EQ(write(1, 2), 0);
}

TEST_F(ReconnectTest, AStoreEmptiedUnderTheConnectionIsAnother)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(write(2, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"FLUSHALL"}), "OK");
    EXPECT_EQ(write(3, 1), 0);
    ASSERT_TRUE(run_until_report("back 1 type 1"));
    EXPECT_THAT(reports, ElementsAre("lost 1", "back 1 type 1"));
}

// What follows a word at the beginning of a line.
std::string line_of(const std::string &text, const std::string &word)
{
    const size_t begin = text.find(word) + word.size();
    return text.substr(begin, text.find('\r', begin) - begin);
}

// Somebody else's writes: another client, which has no memory of before.
void write_as_another(int32_t slots)
{
    const std::unique_ptr<vx_global_t, store_test::FinishContext> other(vx_global_init("another", nullptr));
    for (int32_t slot = 0; slot < slots; slot++) {
        ASSERT_EQ(vx_mom_set_sync(other.get(), 1, Card(0, 100 + slot, 0, 1).message()), 0);
    }
}

TEST_F(ReconnectTest, AnOlderCopyIsNoticedHoweverMuchOthersHaveWrittenSince)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    subscribe_and_forget();
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    server.kill();
    server.start();
    write_as_another(20);
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReconnectTest, ARestartWithAllDataIsBelievedHoweverMuchOthersHaveWrittenSince)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    for (int round = 0; round < 3; round++) {
        ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
        server.kill();
        server.start();
        write_as_another(20);
    }
    EXPECT_TRUE(run_until_report("back 1 type 2"));
    EXPECT_TRUE(run_until([&] { return count("4 0/119/0 type 1") != 0; }));
}

TEST_F(ReconnectTest, AnOlderCopyInBetweenIsNoticed)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    subscribe_and_forget();
    ASSERT_EQ(write(2, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
    server.kill();
    server.start();
    write_as_another(20);
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    server.kill();
    server.start();
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReconnectTest, RunsThatAreNotNotedAnyMoreAreNotBelieved)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    server.kill();
    server.start();
    write_as_another(1);
    ASSERT_EQ(server.run(1, {"HDEL", "@runs", "1"}), "1");
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReconnectTest, ADeletionOfNothingDoesNotVouchForWhatWasOnlyHeard)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    write_as_another(1);
    ASSERT_TRUE(run_until_event("4 0/100/0 type 1"));
    ASSERT_EQ(vx_mom_del(global.get(), 1, Card(0, 7, 0).message(), nullptr, nullptr), 0);
    server.kill();
    server.start();
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReconnectTest, AWriteThatWasTurnedAwayMakesTheReturnUnbelievable)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "requirepass", "secret"}), "OK");
    (void)server.run_as("default", "secret", {"CLIENT", "KILL", "SKIPME", "yes"});
    EXPECT_LT(write(2, 1), 0);
    ASSERT_EQ(server.run_as("default", "secret", {"CONFIG", "SET", "requirepass", ""}), "OK");
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReconnectTest, ASecondCrashThatLosesNothingIsBelieved)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    for (int crash = 0; crash < 2; crash++) {
        reports.clear();
        server.kill(); // what was noted of its run goes with it
        server.start();
        ASSERT_TRUE(run_until_report("back 1 type 2")) << crash;
    }
}

// Whoever registers a run may know fewer types of records.
TEST_F(ReconnectTest, ARunThatAnOlderClientRegisteredIsBelieved)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    server.kill();
    server.start();
    const std::string run = line_of(server.run(0, {"INFO", "server"}), "run_id:") + ":" +
                            line_of(server.run(0, {"INFO", "replication"}), "master_replid:");
    ASSERT_EQ(server.run(1, {"FUNCTION", "LOAD", "REPLACE", store::library_code()}), store::library_name);
    ASSERT_EQ(server.run(1, {"FCALL", store::register_function, "3", "@set", "@runs", "@rev:other", run, "id",
                             store::library_digest(), "other"}),
              "2");
    EXPECT_TRUE(run_until_report("back 1 type 2"));
}

TEST_F(ReconnectTest, AServerThatIsEmptiedWhileItRunsIsNoticedByTheNextWrite)
{
    for (int32_t slot = 0; slot < 3; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
    }
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"FLUSHDB"}), "OK");
    (void)write(1, 2);
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

// A user may make up changes of his own records, and have the server cut the connection with a long one.
TEST_F(ReconnectTest, ARevisionThatWasMadeUpIsNoReasonToDisbelieveTheStore)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0", "1:21:41:11:61:5"}), "1");
    ASSERT_TRUE(run_until([&] { return count("3 0/7/0 type 5") == 1; }));
    cut_loop_connections();
    EXPECT_TRUE(run_until_report("back 1 type 2"));
}

class ShortDeadlineTest : public ReconnectTest
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
