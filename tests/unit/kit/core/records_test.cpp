// What a module makes of records, and records of what it says.
#include "core/records.h"

#include <gtest/gtest.h>

#include "module_fixture.h"
#include "p_libpub.pb-c.h"

namespace kit_test
{

namespace
{

class Records : public ModuleTest
{
protected:
    Records() : loop_("test"), client_(loop_.context()) { fake_store::connect(); }

    static kit::Facts facts_of(int32_t slot)
    {
        kit::Facts facts;
        facts.request = {{1, slot, 0}, 1, 3, 7};
        return facts;
    }

    platform::Loop loop_;
    store::Client client_;
};

} // namespace

TEST_F(Records, AChangeWithoutARecordIsAboutNothing)
{
    EXPECT_EQ(kit::request_in({}), std::nullopt);
    EXPECT_FALSE(kit::card_in({}));
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    store::Change change;
    change.record = &request.base;
    EXPECT_EQ(kit::request_in(change), std::nullopt) << "it has no index";
    change.record = &card.base;
    EXPECT_FALSE(kit::card_in(change));
}

TEST_F(Records, ACardMayLackAllButItsPosition)
{
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = 1;
    index.slotid = 2;
    index.sslotid = 3;
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    card.index = &index;
    card.name = nullptr;
    store::Change change;
    change.record = &card.base;
    const auto facts = kit::card_in(change);
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->request, (kit::Request{{1, 2, 3}, 0, 0, 0}));
    EXPECT_TRUE(facts->has_info);
    EXPECT_FALSE(facts->online);
    EXPECT_EQ(facts->name + facts->type_name, "");
    const app_cg_kit_card_t view = facts->view();
    EXPECT_EQ(view.sslotid, 3);
    EXPECT_EQ(view.serial_size, 0U);
}

TEST_F(Records, ACardHasItsOwnTypesAndIds)
{
    std::string name = "line";
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    PDev__CardStaticInfo kind = P_DEV__CARD_STATIC_INFO__INIT;
    kind.name = name.data();
    kind.node_type = P_DEV__DM_NODE_TYPE_E__DM_TYPE_SFC;
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    card.index = &index;
    card.config_dev_type = 230;
    card.card_nodeid = 9;
    card.static_info = &kind;
    store::Change change;
    change.record = &card.base;
    EXPECT_EQ(kit::card_in(change)->request, (kit::Request{{}, 230, P_DEV__DM_NODE_TYPE_E__DM_TYPE_SFC, 9}));
}

TEST_F(Records, InformationIsAddedWhereThereIsSome)
{
    kit::Facts facts = facts_of(3);
    EXPECT_TRUE(kit::read_info(client_, facts));
    EXPECT_FALSE(facts.has_info);
    EXPECT_EQ(facts.view().name, nullptr);
    plug(3, {"fan", "1"});
    EXPECT_TRUE(kit::read_info(client_, facts));
    EXPECT_TRUE(facts.has_info);
    EXPECT_STREQ(facts.view().name, "fan");
    EXPECT_EQ(facts.view().has_info, 1);
    EXPECT_EQ(facts.view().serial_size, 1U);
    fake_store::refuse_reads("NOPERM");
    kit::Facts refused = facts_of(3);
    EXPECT_EQ(kit::read_info(client_, refused).reason, "NOPERM");
    EXPECT_FALSE(refused.has_info);
}

TEST_F(Records, ARequestStandsWhenAllOfItDoes)
{
    const kit::Request wanted = facts_of(3).request;
    EXPECT_FALSE(kit::stands(client_, wanted).value);
    request(3, 1);
    const auto standing = kit::stands(client_, wanted);
    EXPECT_TRUE(standing);
    EXPECT_TRUE(standing.value);
    for (const kit::Request &other :
         {kit::Request{wanted.position, 2, 3, 7}, kit::Request{wanted.position, 1, 4, 7},
          kit::Request{wanted.position, 1, 3, 8}, kit::Request{{1, 4, 0}, 1, 3, 7}}) {
        EXPECT_FALSE(kit::stands(client_, other).value);
    }
    fake_store::refuse_reads("NOPERM");
    EXPECT_EQ(kit::stands(client_, wanted).reason, "NOPERM");
}

TEST_F(Records, AnAnswerHasAReasonOnlyIfItDenies)
{
    EXPECT_TRUE(kit::write_answer(client_, {1, 3, 0}, "volt", {false, "hot"}));
    EXPECT_TRUE(kit::write_answer(client_, {1, 4, 0}, "volt", {true, "hot"}));
    EXPECT_EQ(answers(), (Strings{"3 DENY hot", "4 PASS"}));
    EXPECT_TRUE(kit::write_answer(client_, {1, 3, 2}, "volt", {true, ""}));
    std::vector<int32_t> sub_slots;
    fake_store::for_each(p_libpub__app_cg_card_check_ack__descriptor, [&](const ProtobufCMessage &message) {
        sub_slots.push_back(reinterpret_cast<const PLibpub__AppCgCardCheckAck &>(message).index->t_sslotid);
    });
    EXPECT_EQ(sub_slots, (std::vector<int32_t>{0, 0, 2}));
    fake_store::refuse_writes("OOM");
    EXPECT_EQ(kit::write_answer(client_, {1, 3, 0}, "volt", {true, ""}).reason, "OOM");
}

} // namespace kit_test
