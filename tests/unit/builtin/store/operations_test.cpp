// The calls on records, seen from both ends: what they return, and what stands in the server afterwards.
#include "store/operations.h"

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

class OperationsTest : public store_test::StoreClientTest
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

TEST_F(OperationsTest, ASetStandsInTheServerReadably)
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

TEST_F(OperationsTest, ASetReplacesTheWholeRecord)
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

TEST_F(OperationsTest, WritingFieldsLeavesTheOthers)
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

TEST_F(OperationsTest, WritingFieldsOfAnAbsentRecordMakesIt)
{
    const int32_t fields[] = {6};
    ASSERT_EQ(vx_mom_hmset(global.get(), db, card(0)->message(), fields, 1, nullptr, nullptr), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, card(0)->message()), 1);
}

TEST_F(OperationsTest, AFieldThatIsNamedTwiceIsWrittenOnce)
{
    ASSERT_EQ(write(1, 1), 0);
    const int32_t fields[] = {6, 7, 6};
    Card card(0, 1, 0, 9);
    EXPECT_EQ(vx_mom_hmset(global.get(), db, card.message(), fields, 3, nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"HGET", "p_dev.card_info:0:0:1:0", "6"}), "9");
}

TEST_F(OperationsTest, ARecordWithAllFieldsAtTheirDefaultExists)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, card(0)->message()), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, card(0)->message()), 1);
    const ResultPtr found = read(card(0)->message());
    ASSERT_NE(found->record, nullptr);
    EXPECT_EQ(describe(found->record), "1/3/0 type 0");
}

TEST_F(OperationsTest, AnAbsentRecordIsNoError)
{
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, card(0)->message()), 0);
    const ResultPtr found = read(card(0)->message());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->error_code, 0);
    EXPECT_EQ(found->record, nullptr);
}

TEST_F(OperationsTest, DeletingTakesTheRecordAway)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, card(7)->message()), 0);
    EXPECT_EQ(vx_mom_del(global.get(), db, card(0)->message(), nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"EXISTS", card_key}), "0");
    EXPECT_EQ(server.run(db, {"SCARD", "@idx:p_dev.card_info"}), "0");
}

TEST_F(OperationsTest, DeletingWhatIsAbsentSucceedsAndCountsNothing)
{
    int32_t result = 1;
    EXPECT_EQ(vx_mom_del(global.get(), db, card(0)->message(), note_result, &result), 0);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(vx_mom_pdel(global.get(), db, card(0)->message(), 2, nullptr, nullptr), 0);
    EXPECT_EQ(server.run(db, {"GET", "@rev:p_dev.card_info"}), "(nil)");
}

TEST_F(OperationsTest, APatternDeletesByItsFirstKeyFields)
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

TEST_F(OperationsTest, AScanDeliversEveryRecordOfTheTypeOnce)
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

TEST_F(OperationsTest, AScansCallbackMayCallTheStore)
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

TEST_F(OperationsTest, ARecordThatChangesDuringAScanIsDeliveredOnce)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, Card(0, 1, 0, 1).message()), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, Card(0, 2, 0, 1).message()), 0);
    on_event = [&](const std::string &) {
        EXPECT_EQ(vx_mom_set_sync(global.get(), db, Card(0, 1, 0, 2).message()), 0);
    };
    EXPECT_THAT(scan(), ElementsAre("1 0/1/0 type 1", "1 0/2/0 type 1"));
}

TEST_F(OperationsTest, WhatDoesNotDecodeIsAnErrorToRead)
{
    ASSERT_EQ(server.run(db, {"HSET", "p_dev.card_info:0:0:1:0", "6", "x"}), "1");
    vx_mom_result_t *result = vx_mom_hgetall_sync(global.get(), db, Card(0, 1, 0).message());
    ASSERT_NE(result, nullptr);
    EXPECT_LT(result->error_code, 0);
    EXPECT_EQ(result->record, nullptr);
    vx_mom_hash_res_free(result);

    ASSERT_EQ(server.run(db, {"SET", "p_dev.card_info:0:0:1:0", "a text"}), "OK");
    result = vx_mom_hgetall_sync(global.get(), db, Card(0, 1, 0).message());
    ASSERT_NE(result, nullptr);
    EXPECT_LT(result->error_code, 0);
    vx_mom_hash_res_free(result);
}

// Several modules answer for one card at the same time, so an answer's key has to tell the modules apart:
// were it made of the position alone, one module's answer would overwrite, and its deletion take away,
// another's.
TEST_F(OperationsTest, EachModulesAnswerIsARecordOfItsOwn)
{
    const Ack first(1, 3, 2, "m1");
    const Ack second(1, 3, 2, "m2");
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, first.message()), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, second.message()), 0) << "not written yet";
    ASSERT_EQ(vx_mom_set_sync(global.get(), db, second.message()), 0);

    ASSERT_EQ(vx_mom_del(global.get(), db, first.message(), nullptr, nullptr), 0);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, second.message()), 1);
    EXPECT_EQ(vx_mom_exists_sync(global.get(), db, first.message()), 0);
}

} // namespace
