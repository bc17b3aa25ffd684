// The synchronous calls, seen from both ends: what they return, and what stands in the server afterwards.
#include "store_client_fixture.h"

namespace
{

using store_test::Ack;
using store_test::Card;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int32_t db = 1;
constexpr const char *card_key = "p_dev.card_info:0:1:3:0";

struct FreeResult {
    void operator()(vx_mom_result_t *result) const { vx_mom_hash_res_free(result); }
};
using ResultPtr = std::unique_ptr<vx_mom_result_t, FreeResult>;

class CallsTest : public store_test::StoreClientTest
{
protected:
    // A card in slot 3 of device 1, and its position as the last two fields of the index.
    static std::unique_ptr<Card> card(int32_t type)
    {
        auto made = std::make_unique<Card>(1, 3, 0, type);
        return made;
    }
    ResultPtr read(const ProtobufCMessage *record)
    {
        return ResultPtr(vx_mom_hgetall_sync(global.get(), db, record));
    }
    std::vector<std::string> scan()
    {
        events.clear();
        const Card pattern(0, 0, 0);
        EXPECT_EQ(vx_mom_scan_sync(global.get(), db, pattern.message(), 0, note_card, this), 0);
        return events;
    }
};

void note_result(void *arg, int32_t rv)
{
    *static_cast<int32_t *>(arg) = rv;
}

TEST_F(CallsTest, ConnectingWaitsForTheStore)
{
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), db), 0);
    EXPECT_EQ(vx_mom_client_connect_sync(global.get(), 33), 0);
}

TEST_F(CallsTest, ASetStandsInTheServerReadably)
{
    const auto plugged = card(7);
    char name[] = "LC-8";
    plugged->record.name = name;
    plugged->record.is_online = 1;
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, plugged->message()), 0);

    EXPECT_EQ(server.run(db, {"HGET", card_key, "6"}), "7");
    EXPECT_EQ(server.run(db, {"HGET", card_key, "7"}), "1");
    EXPECT_EQ(server.run(db, {"HGET", card_key, "12"}), "LC-8");
    EXPECT_EQ(server.run(db, {"HGET", card_key, "rev"}), "1");
    EXPECT_NE(server.run(db, {"HGET", card_key, "by"}), "(nil)");
    EXPECT_EQ(server.run(db, {"HLEN", card_key}), "5") << "fields at their default are not stored";
    EXPECT_EQ(server.run(db, {"GET", "@rev:p_dev.card_info"}), "1");
    EXPECT_EQ(server.run(db, {"SMEMBERS", "@idx:p_dev.card_info"}), std::string(card_key) + "\n");
    EXPECT_EQ(server.run(0, {"EXISTS", card_key}), "0") << "databases are apart";
}

TEST_F(CallsTest, ASetReplacesTheWholeRecord)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, card(7)->message()), 0);
    const auto renamed = card(0);
    char name[] = "LC-8";
    renamed->record.name = name;
    int32_t result = 1;
    ASSERT_EQ(vx_mom_set(global.get(), db, renamed->message(), note_result, &result), 0);

    EXPECT_EQ(result, 0);
    EXPECT_EQ(server.run(db, {"HGET", card_key, "6"}), "(nil)");
    EXPECT_EQ(server.run(db, {"HGET", card_key, "12"}), "LC-8");
}

TEST_F(CallsTest, WritingFieldsLeavesTheOthers)
{
    const auto plugged = card(7);
    plugged->record.cpu_num = 4;
    plugged->record.port_num = 48;
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, plugged->message()), 0);

    const auto changed = card(9);
    const int32_t fields[] = {6, 8};
    ASSERT_EQ(vx_mom_hmset(global.get(), db, changed->message(), fields, 2, nullptr, nullptr), 0);

    EXPECT_EQ(server.run(db, {"HGET", card_key, "6"}), "9");
    EXPECT_EQ(server.run(db, {"HGET", card_key, "8"}), "(nil)") << "written with its default";
    EXPECT_EQ(server.run(db, {"HGET", card_key, "18"}), "48") << "not listed";
}

TEST_F(CallsTest, WritingFieldsOfAnAbsentRecordMakesIt)
{
    const int32_t fields[] = {6};
    ASSERT_EQ(vx_mom_hmset(global.get(), db, card(0)->message(), fields, 1, nullptr, nullptr), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, card(0)->message()), 1);
}

TEST_F(CallsTest, ARecordWithAllFieldsAtTheirDefaultExists)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, card(0)->message()), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, card(0)->message()), 1);
    const ResultPtr found = read(card(0)->message());
    ASSERT_NE(found->record, nullptr);
    EXPECT_EQ(describe(found->record), "1/3/0 type 0");
}

TEST_F(CallsTest, AnAbsentRecordIsNoError)
{
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, card(0)->message()), 0);
    const ResultPtr found = read(card(0)->message());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->error_code, 0);
    EXPECT_EQ(found->record, nullptr);
}

TEST_F(CallsTest, DeletingTakesTheRecordAway)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, card(7)->message()), 0);
    EXPECT_EQ(vx_mom_del(global.get(), db, card(0)->message(), nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"EXISTS", card_key}), "0");
    EXPECT_EQ(server.run(db, {"SCARD", "@idx:p_dev.card_info"}), "0");
}

TEST_F(CallsTest, DeletingWhatIsAbsentSucceedsAndCountsNothing)
{
    int32_t result = 1;
    EXPECT_EQ(vx_mom_del(global.get(), db, card(0)->message(), note_result, &result), 0);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(vx_mom_pdel(global.get(), db, card(0)->message(), 2, nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"GET", "@rev:p_dev.card_info"}), "(nil)");
}

TEST_F(CallsTest, APatternDeletesByItsFirstKeyFields)
{
    for (const char *checker : {"alarm", "power"}) {
        ASSERT_EQ(vx_mom_set_sync(global.get(), db, Ack(1, 3, 0, checker).message()), 0);
        ASSERT_EQ(vx_mom_set_sync(global.get(), db, Ack(1, 31, 0, checker).message()), 0);
    }
    ASSERT_EQ(vx_mom_pdel(global.get(), db, Ack(1, 3, 0, "").message(), 3, nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"SORT", "@idx:p_libpub.app_cg_card_check_ack", "ALPHA"}),
              "p_libpub.app_cg_card_check_ack:1:31:0:alarm\np_libpub.app_cg_card_check_ack:1:31:0:power\n");

    ASSERT_EQ(vx_mom_pdel(global.get(), db, Ack(1, 31, 0, "power").message(), 4, nullptr, nullptr), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, Ack(1, 31, 0, "alarm").message()), 1);
    ASSERT_EQ(vx_mom_pdel(global.get(), db, Ack(0, 0, 0, "").message(), 0, nullptr, nullptr), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, Ack(1, 31, 0, "alarm").message()), 0);
}

TEST_F(CallsTest, AScanDeliversEveryRecordOfTheTypeOnce)
{
    constexpr int32_t cards = 300;
    for (int32_t slot = 0; slot < cards; slot++) {
        ASSERT_EQ(vx_mom_set_sync(global.get(), db, Card(0, slot, 0, 1).message()), 0);
    }
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, Ack(1, 3, 0, "alarm").message()), 0);

    EXPECT_EQ(scan().size(), cards);
    for (int32_t slot = 0; slot < cards; slot++) {
        EXPECT_EQ(count("1 0/" + std::to_string(slot) + "/0 type 1"), 1);
    }
}

TEST_F(CallsTest, AScansCallbackMayCallTheStore)
{
    constexpr int32_t cards = 200;
    for (int32_t slot = 0; slot < cards; slot++) {
        ASSERT_EQ(vx_mom_set_sync(global.get(), db, Card(0, slot, 0, 1).message()), 0);
    }
    int32_t slot = 0;
    on_event = [&](const std::string &) {
        EXPECT_EQ(vx_mom_exists_sync(global.get(), db, Card(0, slot, 0).message()), 1);
        EXPECT_EQ(vx_mom_del(global.get(), db, Card(0, slot, 0).message(), nullptr, nullptr), 0);
        slot++;
    };
    EXPECT_EQ(scan().size(), cards);
    EXPECT_THAT(scan(), IsEmpty());
}

TEST_F(CallsTest, ARecordThatChangesDuringAScanIsDeliveredOnce)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, Card(0, 1, 0, 1).message()), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, Card(0, 2, 0, 1).message()), 0);
    on_event = [&](const std::string &) {
        EXPECT_EQ(vx_mom_set_sync(global.get(), db, Card(0, 1, 0, 2).message()), 0);
    };
    EXPECT_THAT(scan(), ElementsAre("1 0/1/0 type 1", "1 0/2/0 type 1"));
}

TEST_F(CallsTest, TheServersScriptsMayBeForgotten)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, card(1)->message()), 0);
    ASSERT_EQ(server.run(db, {"FUNCTION", "FLUSH"}), "OK");
    EXPECT_EQ(vx_mom_set_sync(global.get(), db, card(2)->message()), 0);
    EXPECT_EQ(server.run(db, {"HGET", card_key, "6"}), "2");
}

TEST_F(CallsTest, WrongArgumentsAreRefused)
{
    const auto any = card(1);
    const int32_t unknown[] = {10};
    EXPECT_LT(vx_mom_client_connect_sync(nullptr, db), 0);
    EXPECT_LT(vx_mom_client_connect_sync(global.get(), -1), 0);
    EXPECT_LT(vx_mom_set_sync(global.get(), db, nullptr), 0);
    EXPECT_LT(vx_mom_hmset(global.get(), db, any->message(), unknown, 1, nullptr, nullptr), 0);
    EXPECT_LT(vx_mom_hmset(global.get(), db, any->message(), unknown, 0, nullptr, nullptr), 0);
    EXPECT_LT(vx_mom_pdel(global.get(), db, any->message(), 5, nullptr, nullptr), 0);
    EXPECT_LT(vx_mom_subscribe(global.get(), db, any->message(), 1, note_card, this), 0);
    EXPECT_LT(vx_mom_scan_sync(global.get(), db, any->message(), 0, nullptr, this), 0);
    EXPECT_EQ(server.run(db, {"DBSIZE"}), "0") << "nothing is written";
    vx_mom_hash_res_free(nullptr);
}

} // namespace
