// Records' keys: one text for one index.
#include "store/codec/key.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "store/codec/value.h"
#include "unit/builtin/store/records.h"

namespace
{

using store_test::Ack;
using store_test::Card;

std::string wire_of_key(const ProtobufCMessageDescriptor &type, const std::string &key)
{
    std::string wire;
    return store::decode_key(type, key, wire) ? "ok" : "refused";
}

TEST(Key, IsTheTypeAndItsIndexInFieldOrder)
{
    Card card(1, 2, 3);
    card.index.t_mod = -4;
    EXPECT_EQ(store::encode_key(*card.message()), "p_dev.card_info:-4:1:2:3");
    EXPECT_EQ(store::encode_key(*Ack(1, 2, 3, "alarm").message()),
              "p_libpub.app_cg_card_check_ack:1:2:3:alarm");
}

TEST(Key, OfATypeWithoutAnIndexIsItsName)
{
    PDev__DpLibGrole role;
    p_dev__dp_lib_grole__init(&role);
    EXPECT_EQ(store::encode_key(role.base), "p_dev.dp_lib_grole");
    EXPECT_EQ(store::key_field_count(p_dev__dp_lib_grole__descriptor), 0U);
    EXPECT_EQ(wire_of_key(p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole"), "ok");
    EXPECT_EQ(wire_of_key(p_dev__dp_lib_grole__descriptor, "p_dev.dp_lib_grole:"), "refused");
}

TEST(Key, OfARecordWithoutItsIndexIsAllDefaults)
{
    PDev__CardInfo card;
    p_dev__card_info__init(&card);
    EXPECT_EQ(store::encode_key(card.base), "p_dev.card_info:0:0:0:0");
}

TEST(Key, EscapesWhatCouldBeASeparatorAGlobOrAControlByte)
{
    const std::string prefix = "p_libpub.app_cg_card_check_ack:0:0:0:";
    EXPECT_EQ(store::encode_key(*Ack(0, 0, 0, "a:b*c?[d]\\\n%").message()),
              prefix + "a%3Ab%2Ac%3F%5Bd%5D%5C%0A%25");
    EXPECT_EQ(store::encode_key(*Ack(0, 0, 0, "aZ09._-~").message()), prefix + "aZ09._-~");
    EXPECT_EQ(store::encode_key(*Ack(0, 0, 0, "\xc3\xa4").message()), prefix + "\xc3\xa4");
    EXPECT_EQ(store::encode_key(*Ack(0, 0, 0, "").message()), prefix);
}

TEST(Key, ComesBackAsTheSameIndex)
{
    for (const char *module : {"", "alarm", "a:b", "%25", "x\x01y\x7f", "\xff\xfe", "::::"}) {
        const Ack ack(-1, 2147483647, 3, module);
        std::string why;
        const auto found = store::decode_record(p_libpub__app_cg_card_check_ack__descriptor,
                                                store::encode_key(*ack.message()), {}, why);
        ASSERT_NE(found, nullptr) << module << ": " << why;
        const auto *index = reinterpret_cast<PLibpub__AppCgCardCheckAck *>(found.get())->index;
        EXPECT_EQ(index->devid, -1);
        EXPECT_EQ(index->slotid, 2147483647);
        EXPECT_EQ(index->t_sslotid, 3);
        EXPECT_STREQ(index->mod_name, module);
    }
}

TEST(Key, HasOneSpellingOnly)
{
    const ProtobufCMessageDescriptor &type = p_libpub__app_cg_card_check_ack__descriptor;
    const std::string name = type.name;
    EXPECT_EQ(wire_of_key(type, name + ":1:2:3:a%3Ab"), "ok");
    for (const char *wrong :
         {"", ":1:2:3", ":1:2:3:a:b", ":01:2:3:a", ":+1:2:3:a", ":-0:2:3:a", ":1 :2:3:a", ":1::3:a",
          ":x:2:3:a", ":2147483648:2:3:a", ":1:2:3:%3a", ":1:2:3:%41", ":1:2:3:%3", ":1:2:3:%", ":1:2:3:a b",
          ":1:2:3:%00", "x:1:2:3:a", " :1:2:3:a"}) {
        EXPECT_EQ(wire_of_key(type, name + wrong), "refused") << wrong;
    }
    EXPECT_EQ(wire_of_key(type, "p_libpub.other:1:2:3:a"), "refused");
}

TEST(Key, PrefixesEndWhereAFieldEnds)
{
    const Ack ack(1, 2, 3, "alarm");
    const std::string name = "p_libpub.app_cg_card_check_ack";
    EXPECT_EQ(store::encode_key_prefix(*ack.message(), 0), name + ":");
    EXPECT_EQ(store::encode_key_prefix(*ack.message(), 3), name + ":1:2:3:");
    EXPECT_EQ(store::encode_key_prefix(*ack.message(), 4), name + ":1:2:3:alarm");
}

TEST(Key, ATypeThatTheSchemasDoNotKnowHasNone)
{
    bool known = false;
    EXPECT_EQ(store::index_field(p_dev__card_info__descriptor, known)->id, 5U);
    EXPECT_TRUE(known);
    EXPECT_EQ(store::index_field(p_dev__dp_lib_grole__descriptor, known), nullptr);
    EXPECT_TRUE(known);
    ProtobufCMessageDescriptor stranger = p_dev__card_info__descriptor;
    EXPECT_EQ(store::index_field(stranger, known), nullptr);
    EXPECT_FALSE(known);
}

} // namespace
