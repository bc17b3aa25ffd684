// Records as text and back: what `get` prints has to be what `set` takes.
#include "records/record_text.h"

#include <gtest/gtest.h>

#include "base/failure.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "schema_registry.h"

namespace cg
{

namespace
{

std::string refusal(const std::function<void()> &action)
{
    try {
        action();
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.status(), wrong_usage) << failure.what();
        return failure.what();
    }
    return "(nothing was refused)";
}

Json built(const char *type, const std::vector<std::string> &assignments)
{
    Json record = Json::object();
    for (const std::string &assignment : assignments) {
        assign(record_type(type), record, assignment);
    }
    return record;
}

std::string refused(const char *type, const std::string &assignment)
{
    return refusal([&] { built(type, {assignment}); });
}

template <typename Record>
const Record &as(const MessagePtr &message)
{
    return *reinterpret_cast<const Record *>(message.get());
}

} // namespace

TEST(RecordText, EveryMessageOfTheSchemasHasATextForm)
{
    ASSERT_GT(schema_registry_count(), 0U);
    for (std::size_t i = 0; i < schema_registry_count(); ++i) {
        const ProtobufCMessageDescriptor &type = *schema_registry_at(i);
        const MessagePtr empty = from_json(type, Json::object());
        const Json fields = to_json(*empty);
        EXPECT_EQ(fields.size(), type.n_fields) << type.name;
        EXPECT_EQ(to_json(*from_json(type, fields)), fields) << type.name;
    }
}

TEST(RecordText, FieldsOfEveryKindReachTheRecord)
{
    const Json json = built("card_info", {"devid=1", "slotid=-3", "is_online=true", "name=fan \"A\" = ü",
                                          "serial=00e0Fc", "static_info.node_type=DM_TYPE_LC",
                                          "static_info.index.type=0x10", "cpu_num=-2147483648"});
    const MessagePtr message = from_json(p_dev__card_info__descriptor, json);
    const auto &card = as<PDev__CardInfo>(message);
    ASSERT_NE(card.index, nullptr);
    EXPECT_EQ(card.index->devid, 1);
    EXPECT_EQ(card.index->slotid, -3);
    EXPECT_NE(card.is_online, 0);
    EXPECT_STREQ(card.name, "fan \"A\" = ü");
    ASSERT_EQ(card.serial.len, 3U);
    EXPECT_EQ(card.serial.data[2], 0xFC);
    ASSERT_NE(card.static_info, nullptr);
    EXPECT_EQ(card.static_info->node_type, 3);
    ASSERT_NE(card.static_info->index, nullptr);
    EXPECT_EQ(card.static_info->index->type, 16);
    EXPECT_EQ(card.cpu_num, INT32_MIN);
}

TEST(RecordText, ARecordSurvivesTheWayToJsonAndBack)
{
    Json json =
        built("dp_lib_grole", {"my_grole=DM_ROLE_SLAVE", "sysmac=00ff", "global_master.slotid=7",
                               "card_role.0.devid=1", "card_role.0.globe_role=1", "card_role.1.valid=1"});
    const MessagePtr message = from_json(p_dev__dp_lib_grole__descriptor, json);
    const auto &role = as<PDev__DpLibGrole>(message);
    ASSERT_EQ(role.n_card_role, 2U);
    EXPECT_EQ(role.card_role[0]->globe_role, P_DEV__DM_ROLE_E__DM_ROLE_MASTER);
    EXPECT_EQ(role.global_slave, nullptr);
    json = to_json(*message);
    EXPECT_EQ(json["my_grole"], "DM_ROLE_SLAVE");
    EXPECT_EQ(json["card_role"][0]["globe_role"], "DM_ROLE_MASTER");
    EXPECT_EQ(json["global_slave"], nullptr);
    EXPECT_EQ(to_json(*from_json(p_dev__dp_lib_grole__descriptor, json)), json);
}

TEST(RecordText, AnEnumerationTakesNamesAndAnyNumber)
{
    EXPECT_EQ(built("dp_lib_grole", {"my_grole=3"})["my_grole"], "DM_ROLE_CANDIDATE");
    const Json unnamed = built("dp_lib_grole", {"my_grole=9"});
    EXPECT_EQ(unnamed["my_grole"], 9);
    EXPECT_EQ(as<PDev__DpLibGrole>(from_json(p_dev__dp_lib_grole__descriptor, unnamed)).my_grole, 9);
}

TEST(RecordText, ASubMessageCanBePresentAndEmpty)
{
    const Json json = built("card_info", {"static_info={}"});
    const MessagePtr message = from_json(p_dev__card_info__descriptor, json);
    EXPECT_NE(as<PDev__CardInfo>(message).static_info, nullptr);
    EXPECT_EQ(as<PDev__CardInfo>(message).index, nullptr);
}

TEST(RecordText, RefusalsNameWhatIsWrongAndWhatIsRight)
{
    EXPECT_EQ(refused("card_info", "is_onlin=1"),
              "unknown field \"is_onlin\" of p_dev.card_info; nearest: is_online");
    EXPECT_EQ(refused("card_info", "static_info.nod_type=1"),
              "unknown field \"nod_type\" of p_dev.card_static_info; nearest: node_type");
    EXPECT_EQ(refused("card_info", "is_online=yes"), "is_online=yes: not a truth value; true, false, 1 or 0");
    EXPECT_EQ(refused("card_info", "cpu_num=2147483648"),
              "cpu_num=2147483648: not a whole number from -2147483648 to 2147483647");
    EXPECT_EQ(refused("card_info", "serial=abc"),
              "serial=abc: not hexadecimal; two digits for each byte, as in 00e0fc01");
    EXPECT_EQ(refused("card_info", "name=\xFF"), "name=\\xFF: not UTF-8; texts of records are");
    EXPECT_EQ(refused("card_info", "static_info.node_type=DM_TYPE_LCC"),
              "static_info.node_type=DM_TYPE_LCC: no value of p_dev.dm_node_type_e; nearest: DM_TYPE_LC, "
              "DM_TYPE_SFC, DM_TYPE_MSC, or a number");
    EXPECT_EQ(refused("card_info", "is_online"),
              "\"is_online\" is not an assignment; FIELD=VALUE with a field of p_dev.card_info");
    EXPECT_EQ(refused("card_info", "=1"),
              "\"=1\" is not an assignment; FIELD=VALUE with a field of p_dev.card_info");
}

TEST(RecordText, RefusesPathsThatLeadNowhere)
{
    EXPECT_EQ(refused("card_info", "name.x=1"), "name.x: name is a single value and has no fields");
    EXPECT_EQ(refused("card_info", "name.\x1b[31m=1"),
              "name.\\x1B[31m: name is a single value and has no fields");
    EXPECT_EQ(refused("card_info", "static_info=3"),
              "static_info=3: a p_dev.card_static_info has fields of its own; static_info.index=..., or "
              "static_info={} for an empty one");
    EXPECT_EQ(refused("dp_lib_grole", "card_role.1.devid=1"),
              "card_role.1: no entry there; a position from 0 to 0");
    EXPECT_EQ(refused("dp_lib_grole", "card_role.x.devid=1"),
              "card_role.x: no entry there; a position from 0 to 0");
    EXPECT_EQ(refused("dp_lib_grole", "card_role=1"),
              "card_role: a list; say which entry, as in card_role.0.devid=...");
    EXPECT_NE(refused("card_info", "static_info.=1").find("unknown field"), std::string::npos);
}

TEST(RecordText, RefusesJsonThatDoesNotFit)
{
    const ProtobufCMessageDescriptor &type = p_dev__dp_lib_grole__descriptor;
    // NOLINTNEXTLINE(clang-analyzer-core.CallAndMessage): it loses `type` behind the macro
    EXPECT_EQ(refusal([&] { from_json(type, Json::parse(R"({"dev_num":1.5})")); }),
              "dev_num=1.5: not a whole number from -2147483648 to 2147483647");
    EXPECT_EQ(refusal([&] { from_json(type, Json{{"card_role", 1}}); }), "card_role: not a list");
    EXPECT_EQ(refusal([&] { from_json(type, Json{{"sysmac", 1}}); }), "sysmac=1: not a text");
    EXPECT_EQ(refusal([&] {
                  from_json(type, Json{{"global_master", 1}});
              }),
              "global_master: not an object with the fields of p_dev.card_info_index");
}

TEST(RecordText, LinesShowWhatIsSetOrEverything)
{
    const Json json =
        to_json(*from_json(p_libpub__app_cg_card_check_ack__descriptor,
                           built("app_cg_card_check_ack", {"mod_name=m1", "reason=too hot\n"})));
    const ProtobufCMessageDescriptor &type = p_libpub__app_cg_card_check_ack__descriptor;
    EXPECT_EQ(to_lines(type, json, Shown::set),
              (std::vector<std::string>{"index.mod_name=\"m1\"", "reason=\"too hot\\n\""}));
    EXPECT_EQ(
        to_lines(type, json, Shown::all),
        (std::vector<std::string>{"index.devid=0", "index.slotid=0", "index.t_sslotid=0",
                                  "index.mod_name=\"m1\"", "ret=0", "reason=\"too hot\\n\"", "ret_flag=0"}));
}

TEST(RecordText, TextOfAnotherEncodingDoesNotBreakTheOutput)
{
    PLibpub__AppCgCardCheckAck ack = P_LIBPUB__APP_CG_CARD_CHECK_ACK__INIT;
    std::string reason = "\xB9\xFD\xC8\xC8";
    ack.reason = reason.data();
    EXPECT_EQ(Json::parse(dump(to_json(ack.base)))["reason"],
              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(to_lines(p_libpub__app_cg_card_check_ack__descriptor, to_json(ack.base), Shown::set),
              (std::vector<std::string>{"reason=\"\\xB9\\xFD\\xC8\\xC8\""}));
}

TEST(RecordText, ARecordWithoutAKeyIsAllPayload)
{
    const RecordType &role = record_type("dp_lib_grole");
    EXPECT_EQ(key_part(role, {{"my_grole", 1}}), Json::object());
    EXPECT_EQ(payload_part(role, {{"my_grole", 1}}), (Json{{"my_grole", 1}}));
    const RecordType &card = record_type("card_info");
    EXPECT_EQ(key_part(card, {{"name", "x"}}), Json::object()) << "the key is missing";
    EXPECT_EQ(key_part(card, {{"index", nullptr}}), Json::object());
    const Json whole{{"index", {{"devid", 1}}}, {"name", "x"}};
    EXPECT_EQ(key_part(card, whole), (Json{{"devid", 1}}));
    EXPECT_EQ(payload_part(card, whole), (Json{{"name", "x"}}));
}

TEST(RecordTypes, AreFoundByFullNameAndByLastPart)
{
    EXPECT_EQ(record_type("p_dev.card_info").descriptor, &p_dev__card_info__descriptor);
    EXPECT_EQ(record_type("card_info").descriptor, &p_dev__card_info__descriptor);
    EXPECT_EQ(record_type("app_cg_card_deny_check_result").db, 28);
    EXPECT_EQ(record_type("im_card_power_onoff").db, 33);
    EXPECT_EQ(record_type("dp_lib_grole").index, nullptr);
    EXPECT_STREQ(record_type("card_info").index->name, "index");
    EXPECT_EQ(refusal([] { record_type("card_inf0"); }),
              "unknown record type \"card_inf0\"; nearest: card_info");
    EXPECT_NE(refusal([] { record_type("lib_card_role"); }).find("unknown record type"), std::string::npos);
}

} // namespace cg
