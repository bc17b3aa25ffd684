// The content of records as it is stored, both ways.
#include "store/codec/value.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/codec/key.h"
#include "unit/builtin/store/records.h"

namespace
{

using store::Content;
using store_test::Card;
using testing::Pair;
using testing::UnorderedElementsAre;

TEST(Value, HoldsWhatIsNotAtItsDefault)
{
    uint8_t serial[] = {0, 1, 255};
    char name[] = "LC-8";
    Card card(0, 1, 0, -7);
    card.record.is_online = 1;
    card.record.name = name;
    card.record.serial = {3, serial};
    Content content;
    ASSERT_TRUE(store::encode_record(*card.message(), content));
    EXPECT_THAT(content.present, UnorderedElementsAre(Pair("6", "-7"), Pair("7", "1"), Pair("12", "LC-8"),
                                                      Pair("20", std::string("\0\x01\xff", 3))));
    EXPECT_EQ(content.absent.size(), 16U - 4U);
}

TEST(Value, KeepsASubMessageThatIsPresentButEmpty)
{
    PDev__CardStaticInfo details;
    p_dev__card_static_info__init(&details);
    Card card(0, 1, 0);
    card.record.static_info = &details;
    Content content;
    ASSERT_TRUE(store::encode_record(*card.message(), content));
    EXPECT_THAT(content.present, UnorderedElementsAre(Pair("14", "")));
    std::string why;
    const auto found = store::decode_record(p_dev__card_info__descriptor, store::encode_key(*card.message()),
                                            content.present, why);
    ASSERT_NE(found, nullptr) << why;
    EXPECT_NE(reinterpret_cast<PDev__CardInfo *>(found.get())->static_info, nullptr);
}

TEST(Value, ComesBackAsTheSameRecord)
{
    PDev__DpLibGrole role;
    p_dev__dp_lib_grole__init(&role);
    PDev__LibCardRole cards[2];
    PDev__LibCardRole *list[] = {&cards[0], &cards[1]};
    PDev__CardInfoIndex master;
    p_dev__card_info_index__init(&master);
    master.slotid = 17;
    uint8_t mac[] = {0, 0x11, 0x22, 0, 0x44, 0x55};
    for (int32_t i = 0; i < 2; i++) {
        p_dev__lib_card_role__init(list[i]);
        list[i]->slotid = i;
        list[i]->globe_role = P_DEV__DM_ROLE_E__DM_ROLE_SLAVE;
    }
    role.dev_num = 2;
    role.my_grole = P_DEV__DM_ROLE_E__DM_ROLE_MASTER;
    role.global_master = &master;
    role.sysmac = {sizeof mac, mac};
    role.n_card_role = 2;
    role.card_role = list;

    Content content;
    ASSERT_TRUE(store::encode_record(role.base, content));
    std::string why;
    const auto found =
        store::decode_record(p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole", content.present, why);
    ASSERT_NE(found, nullptr) << why;
    std::string before(protobuf_c_message_get_packed_size(&role.base), '\0');
    std::string after(protobuf_c_message_get_packed_size(found.get()), '\0');
    protobuf_c_message_pack(&role.base, reinterpret_cast<uint8_t *>(before.data()));
    protobuf_c_message_pack(found.get(), reinterpret_cast<uint8_t *>(after.data()));
    EXPECT_EQ(after, before);
}

TEST(Value, AnEnumNumberWithoutANameIsNoFault)
{
    std::string why;
    const auto found =
        store::decode_record(p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole", {{"6", "77"}}, why);
    ASSERT_NE(found, nullptr) << why;
    EXPECT_EQ(reinterpret_cast<PDev__DpLibGrole *>(found.get())->my_grole, 77);
}

TEST(Value, UnknownHashFieldsArePassedOver)
{
    std::string why;
    const auto found = store::decode_record(
        p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole",
        {{"rev", "12"}, {"4711", "x"}, {"note", "of an operator"}, {"", ""}, {"-5", "1"}, {"5", "3"}}, why);
    ASSERT_NE(found, nullptr) << why;
    EXPECT_EQ(reinterpret_cast<PDev__DpLibGrole *>(found.get())->dev_num, 3);
}

TEST(Value, AFieldHasOneNameOnly)
{
    std::string why;
    for (const char *name : {"06", "006", "+6", " 6", "6 "}) {
        const auto found = store::decode_record(p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole",
                                                {{"6", "1"}, {name, "2"}}, why);
        ASSERT_NE(found, nullptr) << why;
        EXPECT_EQ(reinterpret_cast<PDev__DpLibGrole *>(found.get())->my_grole, 1) << name;
    }
}

TEST(Value, ASmuggledIndexIsNotBelieved)
{
    std::string why;
    const auto found = store::decode_record(p_dev__card_info__descriptor, "p_dev.card_info:0:0:1:0",
                                            {{"5", std::string("\x18\x63", 2)}}, why);
    ASSERT_NE(found, nullptr) << why;
    EXPECT_EQ(reinterpret_cast<PDev__CardInfo *>(found.get())->index->slotid, 1);
}

TEST(Value, WhatIsNoValueIsRefused)
{
    const std::vector<std::pair<std::string, std::string>> wrong = {
        {"5", ""},
        {"5", "x"},
        {"5", "1.0"},
        {"5", " 1"},
        {"5", "2147483648"},
        {"5", "0x1"},
        {"6", "DM_ROLE_MASTER"},
        {"7", std::string("\x08", 1)},         // a sub-message cut short
        {"7", std::string("\xff\xff\xff", 3)}, // no tag
        {"12", "x"},
        {"12", std::string("\x62\x05\x08", 3)},    // a list entry cut short
        {"12", std::string("\x28\x01", 2)},        // another field among the list
        {"12", std::string("\x62\x00\x28\x01", 4)} // ... behind an entry
    };
    for (const auto &field : wrong) {
        std::string why;
        EXPECT_EQ(store::decode_record(p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole", {field}, why),
                  nullptr)
            << field.first << "=" << testing::PrintToString(field.second);
        EXPECT_NE(why, "");
    }
    std::string why;
    EXPECT_EQ(store::decode_record(p_dev__card_info__descriptor, "p_dev.card_info:0:0:1:0",
                                   {{"12", std::string("a\0b", 3)}}, why),
              nullptr)
        << "a text would be cut at a zero byte";
}

TEST(Value, FieldListsAreChecked)
{
    const Card card(0, 1, 0, 7);
    const int32_t good[] = {5, 6, 7};
    Content content;
    ASSERT_TRUE(store::encode_fields(*card.message(), good, 3, content));
    EXPECT_THAT(content.present, UnorderedElementsAre(Pair("6", "7")));
    EXPECT_THAT(content.absent, testing::ElementsAre("7"));
    const int32_t bad[] = {6, 10};
    EXPECT_FALSE(store::encode_fields(*card.message(), bad, 2, content));
    const int32_t negative[] = {-6};
    EXPECT_FALSE(store::encode_fields(*card.message(), negative, 1, content));
}

TEST(Value, WhatBelongsToTheWritingIsNoContent)
{
    store::Stored record;
    record.revision = 7;
    EXPECT_TRUE(store::add_field("6", "1", record));
    EXPECT_TRUE(store::add_field("by", "x", record));
    EXPECT_EQ(record.revision, 7U) << "only the revision tells one";
    EXPECT_EQ(record.mark, "x");
    EXPECT_TRUE(store::add_field("rev", "12", record));
    EXPECT_TRUE(store::add_field("7", "", record));
    EXPECT_EQ(record.revision, 12U);
    EXPECT_THAT(record.fields, testing::ElementsAre(Pair("6", "1"), Pair("7", "")));
    for (const char *wrong : {"", "x", "12x", "-1", "18446744073709551616"}) {
        EXPECT_FALSE(store::add_field("rev", wrong, record)) << wrong;
    }
    EXPECT_EQ(record.fields.size(), 2U);
}

} // namespace
