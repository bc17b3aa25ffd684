// What a function refuses changes nothing.
#include <sys/stat.h>

#include <fstream>

#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using store_test::ScopedSetting;
using testing::ElementsAre;

constexpr int32_t db = 1;
constexpr const char *key = "p_dev.card_info:0:0:1:0";
constexpr const char *counter = "@rev:p_dev.card_info";
constexpr const char *index_set = "@idx:p_dev.card_info";

class RefusalTest : public store_test::StoreClientTest
{
protected:
    // Makes every kind of write to card 0/1/0 and expects each to be refused.
    void expect_all_writes_refused()
    {
        const Card card(0, 1, 0, 9);
        const int32_t fields[] = {6};
        EXPECT_LT(vx_mom_set_sync(global.get(), db, card.message()), 0);
        EXPECT_LT(vx_mom_hmset(global.get(), db, card.message(), fields, 1, nullptr, nullptr), 0);
        EXPECT_LT(vx_mom_del(global.get(), db, card.message(), nullptr, nullptr), 0);
        EXPECT_LT(vx_mom_pdel(global.get(), db, card.message(), 2, nullptr, nullptr), 0);
    }
    // All that the database holds, to compare.
    std::string dump()
    {
        const char *script = "local keys = redis.call('KEYS', '*') table.sort(keys) local text = '' "
                             "for _, k in ipairs(keys) do text = text .. k .. redis.call('DUMP', k) end "
                             "return text";
        return server.run(db, {"EVAL", script, "0"});
    }
};

TEST_F(RefusalTest, AKeyOfTheWrongTypeIsLeftAlone)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(db, {"DEL", key}), "1");
    ASSERT_EQ(server.run(db, {"SET", key, "a text"}), "OK");
    const std::string before = dump();
    expect_all_writes_refused();
    EXPECT_LT(vx_mom_exists_sync(global.get(), db, Card(0, 1, 0).message()), 0);
    EXPECT_EQ(dump(), before);
}

TEST_F(RefusalTest, ACounterThatIsNoneStopsWrites)
{
    ASSERT_EQ(write(1, 1), 0);
    for (const char *value : {"abc", "1.5", "007", "99999999999999999999", "9223372036854775807", ""}) {
        ASSERT_EQ(server.run(db, {"SET", counter, value}), "OK");
        const std::string before = dump();
        expect_all_writes_refused();
        EXPECT_LT(write(2, 9), 0) << "a new record";
        EXPECT_EQ(dump(), before) << value;
    }
    ASSERT_EQ(server.run(db, {"DEL", counter}), "1");
    ASSERT_EQ(server.run(db, {"SADD", counter, "a member"}), "1");
    const std::string before = dump();
    expect_all_writes_refused();
    EXPECT_EQ(dump(), before) << "a set";
}

// Counting is itself the check of the counter, so a number that none of our writes leaves there moves.
TEST_F(RefusalTest, ANumberThatIsNoRevisionStopsWritesAndMovesAlone)
{
    ASSERT_EQ(write(1, 1), 0);
    const std::string kept = server.run(db, {"GET", counter});
    for (const char *value : {"-5", "999999999999999"}) {
        const std::string before = dump();
        ASSERT_EQ(server.run(db, {"SET", counter, value}), "OK");
        EXPECT_LT(write(2, 9), 0) << "a new record";
        EXPECT_LT(vx_mom_pdel(global.get(), db, Card(0, 1, 0).message(), 2, nullptr, nullptr), 0);
        EXPECT_EQ(server.run(db, {"GET", counter}), value) << "is looked at before";
        expect_all_writes_refused();
        EXPECT_NE(server.run(db, {"GET", counter}), value);
        ASSERT_EQ(server.run(db, {"SET", counter, kept}), "OK");
        EXPECT_EQ(dump(), before) << value;
    }
}

// The mark of the write before would vouch for fields that are others now.
TEST_F(RefusalTest, AWriteWithoutAMarkTakesTheMarkOfTheOneBefore)
{
    ASSERT_EQ(write(1, 1), 0);
    const auto call = [&](std::vector<std::string> function, std::vector<std::string> more) {
        function.insert(function.begin(), "FCALL");
        function.insert(function.end(), {"3", key, counter, index_set, "@chg:1:"});
        function.insert(function.end(), more.begin(), more.end());
        return server.run(db, function);
    };
    EXPECT_EQ(call({"vx_mom2_set"}, {"m.1", "6", "1"}), "2");
    EXPECT_EQ(call({"vx_mom2_set"}, {"m.1", "6", "1"}), "2") << "a repetition";
    EXPECT_EQ(call({"vx_mom2_hmset"}, {"", "2", "6", "5"}), "3");
    EXPECT_EQ(call({"vx_mom2_set"}, {"m.1", "6", "1"}), "4") << "a write: somebody has written since";
    EXPECT_EQ(server.run(db, {"HGET", key, "6"}), "1");
}

TEST_F(RefusalTest, AnIndexThatIsNoneStopsWrites)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(db, {"SET", index_set, "a text"}), "OK");
    const std::string before = dump();
    expect_all_writes_refused();
    EXPECT_EQ(dump(), before);
}

TEST_F(RefusalTest, ARefusedWriteIsHeardByNobody)
{
    ASSERT_EQ(write(1, 1), 0);
    connect(db);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    events.clear();
    ASSERT_EQ(server.run(db, {"SET", "p_dev.card_info:0:0:2:0", "a text"}), "OK");
    EXPECT_LT(write(2, 1), 0);
    ASSERT_EQ(write(3, 1), 0);
    ASSERT_TRUE(run_until_event("4 0/3/0 type 1"));
    EXPECT_THAT(events, ElementsAre("4 0/3/0 type 1"));
}

TEST_F(RefusalTest, AFullServerRefusesToWriteButDeletes)
{
    ASSERT_EQ(write(1, 1), 0);
    ASSERT_EQ(server.run(0, {"CONFIG", "SET", "maxmemory", "1"}), "OK");
    const std::string before = dump();
    EXPECT_LT(write(1, 2), 0);
    EXPECT_LT(write(2, 1), 0);
    EXPECT_EQ(dump(), before);
    EXPECT_EQ(vx_mom_del(global.get(), db, Card(0, 1, 0).message(), nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"EXISTS", key}), "0");
    EXPECT_EQ(server.run(db, {"GET", counter}), "2");
}

// A user who lacks one right after the other; nothing of a refused write may be left in any case.
class RightsTest : public RefusalTest, public testing::WithParamInterface<const char *>
{
protected:
    // Makes a write and tells whether it was refused; then nothing may have changed.
    bool is_refused(const std::function<int32_t()> &write_something)
    {
        const std::string before = dump();
        if (write_something() == 0) {
            return false;
        }
        EXPECT_EQ(dump(), before);
        return true;
    }
};

TEST_P(RightsTest, AUserWithoutTheRightChangesNothing)
{
    ASSERT_EQ(write(1, 1), 0);
    const std::string file = server.folder().path("auth");
    std::ofstream(file) << "user gate\npassword secret\n";
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    const ScopedSetting auth("VX_MOM_AUTH_FILE", file);
    ASSERT_EQ(server.run(0, {"ACL", "SETUSER", "gate", "on", ">secret", "allkeys", "allchannels", "+@all",
                             GetParam()}),
              "OK");
    restart_client();
    const Card card(0, 1, 0, 9);
    const int32_t fields[] = {6};
    int refused = 0;
    refused += is_refused([&] { return vx_mom_set_sync(global.get(), db, card.message()); });
    refused += is_refused([&] { return write(2, 9); }); // a new one
    refused += is_refused(
        [&] { return vx_mom_hmset(global.get(), db, card.message(), fields, 1, nullptr, nullptr); });
    // A field at its default is one to remove.
    refused += is_refused([&] {
        return vx_mom_hmset(global.get(), db, Card(0, 1, 0, 0).message(), fields, 1, nullptr, nullptr);
    });
    refused += is_refused([&] { return vx_mom_del(global.get(), db, card.message(), nullptr, nullptr); });
    (void)vx_mom_set_sync(global.get(), db, card.message());
    refused += is_refused([&] { return vx_mom_pdel(global.get(), db, card.message(), 2, nullptr, nullptr); });
    EXPECT_GT(refused, 0);
}

INSTANTIATE_TEST_SUITE_P(Each, RightsTest,
                         testing::Values("-hset", "-hget", "-hlen", "-hdel", "-del", "-incr", "-sadd",
                                         "-srem", "-sismember", "-smembers", "-publish", "-get", "-hgetall",
                                         "-fcall", "-info", "resetchannels"));

} // namespace
