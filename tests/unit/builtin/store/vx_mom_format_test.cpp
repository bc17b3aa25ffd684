// The stored form of records, module by module: keys, values, payloads, functions.
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"
#include "store/codec/key.h"
#include "store/codec/names.h"
#include "store/codec/payload.h"
#include "store/codec/value.h"
#include "store/functions.h"
#include "store_client_fixture.h"

namespace
{

using store::Content;
using store::Fields;
using store::PublishedChange;
using store_test::Ack;
using store_test::Card;
using testing::Pair;
using testing::UnorderedElementsAre;

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

TEST(Value, ARecordOfAnySizeHasItsMemoryForItself)
{
    std::string why;
    const auto named = [&why](const std::string &name) {
        return store::decode_record(p_dev__card_info__descriptor, "p_dev.card_info:0:1:2:0", {{"12", name}},
                                    why);
    };
    const auto name_of = [](const store::MessagePtr &record) {
        return std::string(reinterpret_cast<const PDev__CardInfo *>(record.get())->name);
    };
    for (const size_t size : {1U, 400U, 600U, 100000U}) {
        store::MessagePtr first = named(std::string(size, 'a'));
        const store::MessagePtr second = named(std::string(size, 'b'));
        ASSERT_TRUE(first != nullptr && second != nullptr) << why;
        EXPECT_EQ(name_of(first), std::string(size, 'a'));
        const store::MessagePtr moved = std::move(first);
        first = named("c");
        EXPECT_EQ(name_of(moved), std::string(size, 'a'));
        EXPECT_EQ(name_of(second), std::string(size, 'b'));
        EXPECT_EQ(reinterpret_cast<const PDev__CardInfo *>(moved.get())->index->slotid, 2);
    }
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

TEST(Payload, IsReadItemByItem)
{
    PublishedChange change;
    ASSERT_TRUE(store::decode_change("2:171:41:21:62:-71:70:", change));
    EXPECT_EQ(change.revision, 17U);
    EXPECT_EQ(change.command, 4);
    EXPECT_THAT(change.fields, testing::ElementsAre(Pair("6", "-7"), Pair("7", "")));
    EXPECT_EQ(change.mark, "") << "as the functions of the build before write it";
    ASSERT_TRUE(store::decode_change("2:171:41:21:61:12:by5:a.1 -", change));
    EXPECT_THAT(change.fields, testing::ElementsAre(Pair("6", "1")));
    EXPECT_EQ(change.mark, "a.1 -");
    for (const char *wrong :
         {"2:171:41:22:by5:a.1 -1:61:1", "2:171:41:12:by0:", "2:171:41:22:by1:x2:by1:y"}) {
        EXPECT_FALSE(store::decode_change(wrong, change))
            << wrong << ": the mark is last, once, and not empty";
    }
}

TEST(Payload, AnythingElseIsRefused)
{
    const std::string good = "2:171:41:11:62:-7";
    PublishedChange change;
    ASSERT_TRUE(store::decode_change(good, change));
    for (size_t length = 0; length < good.size(); length++) {
        EXPECT_FALSE(store::decode_change(good.substr(0, length), change)) << length;
    }
    for (const char *wrong : {"2:171:41:11:62:-7x", "2:1x1:41:0", "2:-11:41:0", "0:1:41:0", "2:171:x1:0",
                              "99999999999999999999999:1", "-1:1", "1:11:420:99999999999999999999"}) {
        EXPECT_FALSE(store::decode_change(wrong, change)) << wrong;
    }
}

TEST(Payload, HasOneSpellingOnly)
{
    PublishedChange change;
    ASSERT_TRUE(store::decode_change("2:171:41:0", change));
    for (const char *wrong : {"02:171:41:0", "3:0171:41:0", "2:172:041:0", "2:171:42:00", "2:172:-01:0",
                              "+2:171:41:0", "2:171:42:+0"}) {
        EXPECT_FALSE(store::decode_change(wrong, change)) << wrong;
    }
}

class FunctionTest : public store_test::StoreClientTest
{
protected:
    // Calls a function on a card as another writer would.
    std::string call(std::vector<std::string> command)
    {
        const std::string type = "p_dev.card_info";
        command.insert(command.begin(), "FCALL");
        command.insert(command.begin() + 2, {"3", "p_dev.card_info:0:0:1:0", store::counter_key(type),
                                             store::index_key(type), store::channel_prefix(1)});
        return server.run(1, command);
    }

    const Card card{0, 1, 0, 1};
};

TEST_F(FunctionTest, AreThereOnceSomebodyHasConnected)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    const std::string list = server.run(1, {"FUNCTION", "LIST"});
    for (const char *function : {store::set_function, store::hmset_function, store::del_function,
                                 store::pdel_function, store::register_function}) {
        EXPECT_THAT(list, testing::HasSubstr(std::string(function) + "\n")) << function;
    }
}

TEST_F(FunctionTest, AreLoadedAgainWhenTheyAreGone)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    ASSERT_EQ(server.run(1, {"FUNCTION", "FLUSH"}), "OK");
    EXPECT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 2).message()), 0);
    EXPECT_EQ(server.run(1, {"HGET", "p_dev.card_info:0:0:1:0", "6"}), "2");
}

TEST_F(FunctionTest, OfAnotherVersionAreReplaced)
{
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, card.message()), 0);
    std::string other = store::library_code();
    other.replace(other.find("NOPERM"), 6, "NOWISH");
    ASSERT_EQ(server.run(1, {"FUNCTION", "LOAD", "REPLACE", other}), store::library_name);
    ASSERT_EQ(server.run(1, {"HSET", store::runs_key, "library", "of another version"}), "0");
    restart_client();
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_THAT(server.run(1, {"FUNCTION", "LIST", "WITHCODE"}), testing::HasSubstr("'NOPERM"));
    EXPECT_EQ(server.run(1, {"HGET", store::runs_key, "library"}), store::library_digest());
}

TEST_F(FunctionTest, AWriteThatIsRepeatedIsOneChange)
{
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    EXPECT_EQ(call({store::set_function, "mark-1", "6", "5"}), "1");
    EXPECT_EQ(call({store::set_function, "mark-1", "6", "5"}), "1");
    EXPECT_EQ(call({store::hmset_function, "mark-2", "2", "6", "6"}), "2");
    EXPECT_EQ(call({store::hmset_function, "mark-2", "2", "6", "6"}), "2");
    EXPECT_EQ(call({store::set_function, "mark-1", "6", "5"}), "3") << "by then it is another write";
    ASSERT_TRUE(run_until_event("4 0/1/0 type 5"));
    EXPECT_THAT(events, testing::ElementsAre("29", "4 0/1/0 type 5", "6 0/1/0 type 6", "4 0/1/0 type 5"));
}

TEST_F(FunctionTest, AFieldWithoutAValueChangesNothing)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    ASSERT_EQ(call({store::set_function, "", "6", "5"}), "1");
    for (const std::vector<std::string> &wrong :
         std::vector<std::vector<std::string>>{{store::set_function, "", "6"},
                                               {store::set_function, "", "6", "1", "7"},
                                               {store::hmset_function, "", "1", "6", "1"},
                                               {store::hmset_function, "", "4", "6", "1", "7"},
                                               {store::hmset_function, "", "-2", "6", "1"},
                                               {store::hmset_function, "", "0.5", "6", "1"},
                                               {store::hmset_function, "", "two", "6", "1"},
                                               {store::hmset_function, ""}}) {
        EXPECT_THAT(call(wrong), testing::StartsWith("(error)")) << wrong.size();
    }
    std::vector<std::string> long_one{store::set_function, ""};
    long_one.resize(20000, "7");
    EXPECT_THAT(call(long_one), testing::StartsWith("(error)"));
    long_one.resize(4002);
    EXPECT_EQ(call(long_one), "2");
    EXPECT_EQ(server.run(1, {"HGET", "p_dev.card_info:0:0:1:0", "7"}), "7");
    EXPECT_EQ(server.run(1, {"GET", "@rev:p_dev.card_info"}), "2");
}

TEST_F(FunctionTest, AWriteWithoutAMarkIsAlwaysAnotherOne)
{
    ASSERT_EQ(vx_mom_client_connect_sync(global.get(), 1), 0);
    EXPECT_EQ(call({store::set_function, "", "6", "5"}), "1");
    EXPECT_EQ(call({store::set_function, "", "6", "5"}), "2");
    EXPECT_EQ(server.run(1, {"HEXISTS", "p_dev.card_info:0:0:1:0", "by"}), "0");
}

TEST_F(FunctionTest, LargeRevisionsKeepAllTheirDigits)
{
    ASSERT_EQ(server.run(1, {"SET", "@rev:p_dev.card_info", "900719925474098"}), "OK");
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 1).message()), 0);
    EXPECT_EQ(server.run(1, {"HGET", "p_dev.card_info:0:0:1:0", "rev"}), "900719925474099");
    connect(1);
    ASSERT_EQ(subscribe_cards(), 0);
    ASSERT_TRUE(run_until_event("29"));
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, Card(0, 1, 0, 2).message()), 0);
    EXPECT_TRUE(run_until_event("4 0/1/0 type 2"));
}

TEST_F(FunctionTest, AnyBytesTravelWithAChange)
{
    uint8_t bytes[256];
    for (size_t i = 0; i < sizeof bytes; i++) {
        bytes[i] = static_cast<uint8_t>(i);
    }
    Card sent(0, 1, 0, 1);
    sent.record.serial = {sizeof bytes, bytes};
    connect(1);
    std::string heard;
    const auto note = [](void *arg, vx_mom_pmsg_t *pmsg) -> int32_t {
        if (pmsg->result != nullptr) {
            const auto *record = reinterpret_cast<PDev__CardInfo *>(pmsg->result->record);
            static_cast<std::string *>(arg)->assign(reinterpret_cast<char *>(record->serial.data),
                                                    record->serial.len);
        }
        return 0;
    };
    ASSERT_EQ(vx_mom_subscribe(global.get(), 1, sent.message(), 0, note, &heard), 0);
    ASSERT_EQ(vx_mom_set_sync(global.get(), 1, sent.message()), 0);
    ASSERT_TRUE(run_until([&] { return !heard.empty(); }));
    EXPECT_EQ(heard, std::string(reinterpret_cast<char *>(bytes), sizeof bytes));
}

} // namespace
