// Reading all records of a type: in the order of their writing, and without what is none.
#include "store/snapshot.h"

#include <map>

#include "store/client.h"
#include "store_client_fixture.h"

namespace
{

using store_test::Card;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

constexpr int32_t db = 1;
constexpr const char *counter = "@rev:p_dev.card_info";
constexpr const char *index_set = "@idx:p_dev.card_info";

class SnapshotTest : public store_test::StoreClientTest
{
protected:
    void store_raw(const std::string &record, const std::vector<std::string> &fields)
    {
        std::vector<std::string> command{"HSET", record};
        command.insert(command.end(), fields.begin(), fields.end());
        (void)server.run(db, command);
        (void)server.run(db, {"INCR", counter});
        (void)server.run(db, {"SADD", index_set, record});
    }
};

TEST_F(SnapshotTest, ManyCardsComeInTheOrderOfTheirWriting)
{
    constexpr int32_t cards = 500;
    std::vector<std::string> expected;
    for (int32_t slot = 0; slot < cards; slot++) {
        ASSERT_EQ(write(slot, 1), 0);
        expected.push_back("4 0/" + std::to_string(slot) + "/0 type 1");
    }
    expected.emplace_back("29");
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_EQ(events, expected);
}

TEST_F(SnapshotTest, WhatDoesNotDecodeIsPassedOver)
{
    store_raw("p_dev.card_info:0:0:1:0", {"6", "not a number"});
    store_raw("p_dev.card_info:0:0:2:0", {"6", "99999999999"});
    store_raw("p_dev.card_info:0:0:3:0", {"7", "2"});
    store_raw("p_dev.card_info:0:0:4:0", {"14", std::string("\x2a\x7f", 2)});
    store_raw("p_dev.card_info:0:0:x:0", {"6", "1"});
    store_raw("p_dev.card_info:0:0:1", {"6", "1"});
    store_raw("p_dev.card_info:0:0:01:0", {"6", "1"});
    store_raw("something else", {"6", "1"});
    store_raw("p_dev.card_info:0:0:5:0", {"6", "1", "rev", "many"});
    ASSERT_EQ(server.run(db, {"SADD", index_set, "p_dev.card_info:0:0:6:0"}), "1");
    ASSERT_EQ(server.run(db, {"SET", "p_dev.card_info:0:0:6:0", "a text"}), "OK");
    ASSERT_EQ(server.run(db, {"SET", counter, "20"}), "OK");
    ASSERT_EQ(write(9, 1), 0);

    const Card pattern(0, 0, 0);
    ASSERT_EQ(vx_mom_scan_sync(global.get(), db, pattern.message(), 0, note_card, this), 0);
    EXPECT_THAT(events, ElementsAre("1 0/9/0 type 1"));
    for (const char *bad : {":0:0:1:0", ":0:0:2:0", ":0:0:3:0", ":0:0:4:0", ":0:0:x:0", ":0:0:1 ",
                            ":0:0:01:0", "something else", ":0:0:5:0", ":0:0:6:0"}) {
        EXPECT_THAT(log_text(), HasSubstr(bad));
    }
    events.clear();
    connect(db);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_THAT(events, ElementsAre("4 0/9/0 type 1", "29"));
}

TEST_F(SnapshotTest, AScanNamesWhatItLeavesOut)
{
    store_raw("p_dev.card_info:0:0:1:0", {"6", "not a number"});
    store_raw("p_dev.card_info:0:0:2:0", {"6", "1", "rev", "many"});
    ASSERT_EQ(write(3, 1), 0);
    store::Client client(global.get());
    std::vector<std::string> found;
    const auto scanned = client.scan(db, p_dev__card_info__descriptor,
                                     [&](const store::Record &record) { found.push_back(record.key); });
    EXPECT_EQ(scanned.code, 0);
    EXPECT_THAT(found, ElementsAre("p_dev.card_info:0:0:3:0"));
    std::map<std::string, std::string> left_out;
    for (const store::LeftOut &record : scanned.value) {
        left_out[record.key] = record.why;
    }
    EXPECT_THAT(left_out, ElementsAre(Pair("p_dev.card_info:0:0:1:0", HasSubstr("no value of its type")),
                                      Pair("p_dev.card_info:0:0:2:0", "its revision is no number")));
}

} // namespace
