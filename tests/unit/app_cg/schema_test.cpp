// The schemas, against a second account of them: a table typed by hand, field by field.
//
// Other services write and read these records by field number, so a number, a type or a key attribute that
// changes by accident breaks a device in the field. The table is deliberately not generated.
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"
#include "schema_registry.h"
#include "vx_mom_schema.h"

namespace
{

struct Field {
    uint32_t number;
    const char *name;
    const char *type; // a scalar's name, or the full name of a message or enumeration; "repeated ..." if so
    int32_t attribute;
};

bool operator==(const Field &a, const Field &b)
{
    return a.number == b.number && std::string(a.name) == b.name && std::string(a.type) == b.type &&
           a.attribute == b.attribute;
}

void PrintTo(const Field &field, std::ostream *out)
{
    *out << field.number << " " << field.type << " " << field.name << " attribute " << field.attribute;
}

using Messages = std::map<std::string, std::vector<Field>>;
using Values = std::vector<std::pair<std::string, int>>;

const Messages MESSAGES{
    {"p_dev.card_info_index",
     {{1, "t_mod", "int32", 1},
      {2, "devid", "int32", 0},
      {3, "slotid", "int32", 0},
      {4, "sslotid", "int32", 0}}},
    {"p_dev.card_static_info_index", {{1, "type", "int32", 0}}},
    {"p_dev.card_tipc_index", {{1, "card_tipc_nodeid", "int32", 0}}},
    {"p_libpub.app_cg_card_check_ack_index",
     {{1, "devid", "int32", 0},
      {2, "slotid", "int32", 0},
      {3, "t_sslotid", "int32", 1},
      {4, "mod_name", "string", 0}}},
    {"p_dev.dm_set_card_custom_st_index",
     {{1, "t_devid", "int32", 1},
      {2, "t_slotid", "int32", 1},
      {3, "t_sslotid", "int32", 1},
      {4, "t_mod_name", "string", 1},
      {5, "t_reason", "string", 1}}},
    {"s_dev.im_card_power_onoff_index",
     {{1, "devid", "int32", 0},
      {2, "slotid", "int32", 0},
      {3, "sslotid", "int32", 0},
      {4, "mod_name", "string", 0},
      {5, "cause", "string", 0}}},
    {"p_dev.card_info",
     {{5, "index", "p_dev.card_info_index", 2},
      {6, "config_dev_type", "int32", 0},
      {7, "is_online", "bool", 0},
      {8, "cpu_num", "int32", 0},
      {9, "is_mboard", "bool", 0},
      {11, "sw_status", "int32", 0},
      {12, "name", "string", 0},
      {13, "ex_sw_st_is_cns", "bool", 0},
      {14, "static_info", "p_dev.card_static_info", 0},
      {15, "user_slot", "int32", 0},
      {16, "user_sslot", "int32", 0},
      {17, "card_nodeid", "int32", 0},
      {18, "port_num", "int32", 0},
      {19, "is_pre_insl", "bool", 0},
      {20, "serial", "bytes", 0},
      {21, "mac_addr", "bytes", 0},
      {22, "card_tipc_nodeid", "int32", 0}}},
    {"p_dev.card_static_info",
     {{5, "index", "p_dev.card_static_info_index", 2},
      {6, "node_type", "int32", 0},
      {7, "sub_slot_num", "int32", 0},
      {8, "name", "string", 0}}},
    {"p_dev.dp_lib_grole",
     {{5, "dev_num", "int32", 0},
      {6, "my_grole", "p_dev.dm_role_e", 0},
      {7, "global_master", "p_dev.card_info_index", 0},
      {8, "global_slave", "p_dev.card_info_index", 0},
      {9, "sysmac", "bytes", 0},
      {10, "l2_mac", "bytes", 0},
      {11, "l3_mac", "bytes", 0},
      {12, "card_role", "repeated p_dev.lib_card_role", 0},
      {13, "global_master_node", "int32", 0},
      {14, "global_slave_node", "int32", 0}}},
    {"p_dev.lib_card_role",
     {{1, "devid", "int32", 0},
      {2, "slotid", "int32", 0},
      {3, "sslotid", "int32", 0},
      {4, "is_local_master", "bool", 0},
      {5, "globe_role", "p_dev.dm_role_e", 0},
      {6, "valid", "bool", 0},
      {7, "card_nodeid", "int32", 0},
      {8, "tipc_addr", "int32", 0}}},
    {"p_libpub.app_cg_card_check_info",
     {{5, "index", "p_dev.card_info_index", 2},
      {6, "type", "int32", 0},
      {7, "node_type", "p_dev.dm_node_type_e", 0},
      {8, "card_nodeid", "int32", 0}}},
    {"p_libpub.app_cg_card_check_ack",
     {{5, "index", "p_libpub.app_cg_card_check_ack_index", 2},
      {6, "ret", "int32", 0},
      {7, "reason", "string", 0},
      {8, "ret_flag", "int32", 0}}},
    {"p_libpub.app_cg_mom_deny_check_result",
     {{5, "index", "p_dev.card_tipc_index", 2},
      {6, "stat", "p_libpub.app_cg_card_check_stat", 0},
      {7, "node_type", "p_dev.dm_node_type_e", 0}}},
    {"p_libpub.app_cg_card_deny_check_result",
     {{5, "index", "p_dev.card_info_index", 2},
      {6, "stat", "p_libpub.app_cg_card_check_stat", 0},
      {7, "config_dev_type", "int32", 0},
      {8, "card_nodeid", "int32", 0}}},
    {"p_libpub.app_cg_card_bak_info",
     {{5, "index", "p_dev.card_info_index", 2},
      {6, "config_dev_type", "int32", 0},
      {7, "card_nodeid", "int32", 0},
      {8, "node_type", "int32", 0}}},
    {"p_dev.dm_set_card_custom_st",
     {{5, "index", "p_dev.dm_set_card_custom_st_index", 2},
      {6, "level", "p_dev.dm_ctm_level_e", 0},
      {7, "status", "p_dev.dm_ctm_status_e", 0}}},
    {"s_dev.im_card_power_onoff",
     {{5, "index", "s_dev.im_card_power_onoff_index", 2}, {6, "updown", "bool", 0}}},
};

const std::map<std::string, Values> ENUMERATIONS{
    {"p_libpub.app_cg_card_check_stat", {{"APP_CG_CHECK_DENY", 0}, {"APP_CG_CHECK_PASS", 1}}},
    {"p_dev.dm_ctm_status_e", {{"OK", 0}, {"OFFLINE", 1}, {"CANNOT_STARTUP", 2}, {"DM_CTM_STATUS_END", 3}}},
    {"p_dev.dm_ctm_level_e",
     {{"DM_CTM_SSA_OK", 0}, {"DM_CTM_OFFLINE", 1}, {"DM_CTM_APP_CG", 2}, {"DM_CTM_END", 3}}},
    {"p_dev.dm_role_e",
     {{"DM_ROLE_NONE", 0}, {"DM_ROLE_MASTER", 1}, {"DM_ROLE_SLAVE", 2}, {"DM_ROLE_CANDIDATE", 3}}},
    {"p_dev.dm_node_type_e",
     {{"DM_TYPE_UNKNOWN", 0},
      {"DM_TYPE_BOX", 1},
      {"DM_TYPE_MB", 2},
      {"DM_TYPE_LC", 3},
      {"DM_TYPE_SUB_LC", 4},
      {"DM_TYPE_SFC", 5},
      {"DM_TYPE_MSC", 6},
      {"DM_TYPE_HPSC", 7}}},
};

std::vector<const ProtobufCMessageDescriptor *> registered()
{
    std::vector<const ProtobufCMessageDescriptor *> messages;
    for (size_t i = 0; i < schema_registry_count(); i++) {
        messages.push_back(schema_registry_at(i));
    }
    return messages;
}

std::string type_of(const ProtobufCFieldDescriptor &field)
{
    const std::map<ProtobufCType, const char *> scalars{{PROTOBUF_C_TYPE_INT32, "int32"},
                                                        {PROTOBUF_C_TYPE_BOOL, "bool"},
                                                        {PROTOBUF_C_TYPE_STRING, "string"},
                                                        {PROTOBUF_C_TYPE_BYTES, "bytes"}};
    if (field.type == PROTOBUF_C_TYPE_MESSAGE) {
        return static_cast<const ProtobufCMessageDescriptor *>(field.descriptor)->name;
    }
    if (field.type == PROTOBUF_C_TYPE_ENUM) {
        return static_cast<const ProtobufCEnumDescriptor *>(field.descriptor)->name;
    }
    const auto scalar = scalars.find(field.type);
    return scalar == scalars.end() ? "type " + std::to_string(field.type) : scalar->second;
}

std::string label_of(const ProtobufCFieldDescriptor &field)
{
    switch (field.label) {
    case PROTOBUF_C_LABEL_NONE: // no presence flag
        return "";
    case PROTOBUF_C_LABEL_REPEATED:
        return (field.flags & PROTOBUF_C_FIELD_FLAG_PACKED) != 0 ? "packed " : "repeated ";
    case PROTOBUF_C_LABEL_OPTIONAL:
        return "optional ";
    default:
        return "required ";
    }
}

Values values_of(const ProtobufCEnumDescriptor &type)
{
    Values values;
    for (unsigned i = 0; i < type.n_values; i++) {
        values.emplace_back(type.values[i].name, type.values[i].value);
    }
    return values;
}

} // namespace

TEST(SchemaTest, TheMessagesAreTheseAndNoOthers)
{
    std::map<std::string, int> seen;
    for (const ProtobufCMessageDescriptor *message : registered()) {
        ASSERT_NE(message, nullptr);
        seen[message->name]++;
        EXPECT_EQ(MESSAGES.count(message->name), 1U) << message->name << " is not expected";
    }
    for (const auto &[name, fields] : MESSAGES) {
        EXPECT_EQ(seen[name], 1) << name;
    }
    EXPECT_EQ(schema_registry_count(), 17U);
    EXPECT_EQ(MESSAGES.size(), 17U);
    EXPECT_EQ(schema_registry_at(schema_registry_count()), nullptr);
}

TEST(SchemaTest, EveryFieldHasItsNumberNameTypeLabelAndKeyAttribute)
{
    for (const ProtobufCMessageDescriptor *message : registered()) {
        SCOPED_TRACE(message->name);
        const auto expected = MESSAGES.find(message->name);
        ASSERT_NE(expected, MESSAGES.end());
        std::vector<std::string> types; // keeps the texts that the fields point to
        types.reserve(message->n_fields);
        std::vector<Field> fields;
        for (unsigned i = 0; i < message->n_fields; i++) {
            const ProtobufCFieldDescriptor &field = message->fields[i];
            types.push_back(label_of(field) + type_of(field));
            fields.push_back(
                {field.id, field.name, types.back().c_str(), vx_mom_key_attribute(message, field.id)});
        }
        EXPECT_EQ(fields, expected->second);
    }
}

TEST(SchemaTest, EveryEnumerationHasItsValues)
{
    const ProtobufCEnumDescriptor *const types[] = {
        &p_libpub__app_cg_card_check_stat__descriptor,
        &p_dev__dm_ctm_status_e__descriptor,
        &p_dev__dm_ctm_level_e__descriptor,
        &p_dev__dm_role_e__descriptor,
        &p_dev__dm_node_type_e__descriptor,
    };
    ASSERT_EQ(std::size(types), ENUMERATIONS.size());
    for (const ProtobufCEnumDescriptor *type : types) {
        SCOPED_TRACE(type->name);
        const auto expected = ENUMERATIONS.find(type->name);
        ASSERT_NE(expected, ENUMERATIONS.end());
        EXPECT_EQ(values_of(*type), expected->second);
    }
}

TEST(SchemaTest, NoOtherEnumerationIsUsed)
{
    for (const ProtobufCMessageDescriptor *message : registered()) {
        for (unsigned i = 0; i < message->n_fields; i++) {
            if (message->fields[i].type == PROTOBUF_C_TYPE_ENUM) {
                EXPECT_EQ(ENUMERATIONS.count(type_of(message->fields[i])), 1U) << message->fields[i].name;
            }
        }
    }
}

TEST(SchemaTest, TheKeyAttributeFollowsItsRule)
{
    for (const ProtobufCMessageDescriptor *message : registered()) {
        for (unsigned i = 0; i < message->n_fields; i++) {
            const std::string name = message->fields[i].name;
            const int32_t expected = name == "index" ? 2 : name.rfind("t_", 0) == 0 ? 1 : 0;
            EXPECT_EQ(vx_mom_key_attribute(message, message->fields[i].id), expected)
                << message->name << "." << name;
        }
    }
}

TEST(SchemaTest, TheKeyAttributeOfWhatIsUnknownIsMinusOne)
{
    const ProtobufCMessageDescriptor unknown{};
    EXPECT_EQ(vx_mom_key_attribute(&unknown, 5), -1);
    EXPECT_EQ(vx_mom_key_attribute(nullptr, 5), -1);
    EXPECT_EQ(vx_mom_key_attribute(&p_dev__card_info__descriptor, 10), -1) << "not assigned";
    EXPECT_EQ(vx_mom_key_attribute(&p_dev__card_info__descriptor, 23), -1);
    EXPECT_EQ(vx_mom_key_attribute(&p_dev__card_info__descriptor, 0), -1);
    EXPECT_EQ(vx_mom_key_attribute(&p_dev__dp_lib_grole__descriptor, 4), -1);
}

TEST(SchemaTest, AFieldAtItsDefaultIsNotToldApartFromAnUnsetOne)
{
    PDev__CardInfo card = P_DEV__CARD_INFO__INIT;
    EXPECT_EQ(protobuf_c_message_get_packed_size(&card.base), 0U);
    card.config_dev_type = 0;
    card.is_online = 0;
    EXPECT_EQ(protobuf_c_message_get_packed_size(&card.base), 0U);
    EXPECT_STREQ(card.name, "");
}
