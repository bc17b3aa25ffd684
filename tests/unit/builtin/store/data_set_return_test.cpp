// What a server that comes back is taken for.
#include "store/codec/names.h"
#include "store/functions.h"
#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using testing::ElementsAre;

// Somebody else's writes: another client, which has no memory of before.
void write_as_another(int32_t slots)
{
    const std::unique_ptr<vx_global_t, store_test::FinishContext> other(vx_global_init("another", nullptr));
    for (int32_t slot = 0; slot < slots; slot++) {
        ASSERT_EQ(vx_mom_set_sync(other.get(), 1, Card(0, 100 + slot, 0, 1).message()), 0);
    }
}

class ReturnTest : public store_test::StoreClientTest
{
protected:
    // The server loses a change that this client saw, and takes more changes of another one.
    void return_older_copy()
    {
        ASSERT_EQ(write(1, 1), 0);
        ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
        subscribe_and_forget();
        ASSERT_EQ(write(2, 1), 0);
        ASSERT_TRUE(run_until_event("4 0/2/0 type 1"));
        server.kill();
        server.start();
        write_as_another(20);
    }
};

// What follows a word at the beginning of a line.
std::string line_of(const std::string &text, const std::string &word)
{
    const size_t begin = text.find(word) + word.size();
    return text.substr(begin, text.find('\r', begin) - begin);
}

TEST_F(ReturnTest, AServerRestartedWithItsDataIsTheSame)
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

TEST_F(ReturnTest, AServerRestartedEmptyIsAnother)
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

TEST_F(ReturnTest, AServerRestartedFromAnOlderCopyIsAnother)
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

TEST_F(ReturnTest, AnOlderCopyIsNoticedHoweverMuchOthersHaveWrittenSince)
{
    ASSERT_NO_FATAL_FAILURE(return_older_copy());
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReturnTest, ARestartWithAllDataIsBelievedHoweverMuchOthersHaveWrittenSince)
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

TEST_F(ReturnTest, AnOlderCopyInBetweenIsNoticed)
{
    ASSERT_NO_FATAL_FAILURE(return_older_copy());
    ASSERT_EQ(server.run(0, {"SAVE"}), "OK");
    server.kill();
    server.start();
    EXPECT_TRUE(run_until_report("back 1 type 1"));
}

TEST_F(ReturnTest, RunsThatAreNotNotedAnyMoreAreNotBelieved)
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

TEST_F(ReturnTest, ADeletionOfNothingDoesNotVouchForWhatWasOnlyHeard)
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

TEST_F(ReturnTest, ASecondCrashThatLosesNothingIsBelieved)
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

// The client that registers a run may know fewer types of records.
TEST_F(ReturnTest, ARunThatAnOlderClientRegisteredIsBelieved)
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

// A user may make up changes of his own records, and have the server cut the connection with a long one.
TEST_F(ReturnTest, ARevisionThatWasMadeUpIsNoReasonToDisbelieveTheStore)
{
    ASSERT_EQ(write(1, 1), 0);
    subscribe_and_forget();
    ASSERT_EQ(server.run(1, {"PUBLISH", "@chg:1:p_dev.card_info:0:0:7:0", "1:21:41:11:61:5"}), "1");
    ASSERT_TRUE(run_until([&] { return count("3 0/7/0 type 5") == 1; }));
    cut_loop_connections();
    EXPECT_TRUE(run_until_report("back 1 type 2"));
}

} // namespace
