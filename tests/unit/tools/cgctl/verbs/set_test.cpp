// get, set and del, and the role, on a real store.
#include <gtest/gtest.h>

#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

class RecordVerbs : public StoreTest
{
protected:
    Json get(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "get");
        arguments.emplace_back("--json");
        return Json::parse(cgctl(arguments));
    }
};

} // namespace

TEST_F(RecordVerbs, WhatWasSetIsGot)
{
    cgctl({"set", "p_libpub.app_cg_card_check_ack", "devid=1", "slotid=3", "t_sslotid=2", "mod_name=m:1*",
           "ret=1", "reason=too hot", "ret_flag=-7"});
    const Json got = get({"app_cg_card_check_ack", "devid=1", "slotid=3", "t_sslotid=2", "mod_name=m:1*"});
    EXPECT_EQ(got, (Json{{"db", 1},
                         {"type", "p_libpub.app_cg_card_check_ack"},
                         {"key", {{"devid", 1}, {"slotid", 3}, {"t_sslotid", 2}, {"mod_name", "m:1*"}}},
                         {"record", {{"ret", 1}, {"reason", "too hot"}, {"ret_flag", -7}}}}));
    EXPECT_EQ(cgctl({"get", "app_cg_card_check_ack"}),
              "p_libpub.app_cg_card_check_ack devid=1 slotid=3 t_sslotid=2 mod_name=\"m:1*\"\n"
              "  ret=1\n"
              "  reason=\"too hot\"\n"
              "  ret_flag=-7\n");
}

TEST_F(RecordVerbs, AnAbsentRecordIsNeverSuccess)
{
    const Outcome got = run_cgctl({"get", "card_info", "devid=1"});
    EXPECT_EQ(got.status, 1);
    EXPECT_EQ(got.out, "");
    EXPECT_EQ(got.err, "cgctl: no p_dev.card_info t_mod=0 devid=1 slotid=0 sslotid=0 in database 1\n");
    EXPECT_EQ(run_cgctl({"get", "dp_lib_grole"}).status, 1);
    EXPECT_EQ(run_cgctl({"del", "card_info", "devid=1"}).status, 1);
    EXPECT_EQ(get({"card_info"}), (Json{{"records", Json::array()}}));
}

TEST_F(RecordVerbs, AllRecordsOfATypeComeSortedByKey)
{
    for (const char *slot : {"slotid=10", "slotid=9", "slotid=-1"}) {
        cgctl({"set", "card_info", "devid=1", slot});
    }
    const Json records = get({"card_info"})["records"];
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0]["key"]["slotid"], -1);
    EXPECT_EQ(records[1]["key"]["slotid"], 9);
    EXPECT_EQ(records[2]["key"]["slotid"], 10);
}

TEST_F(RecordVerbs, SetReplacesTheRecordAndFieldsDoNot)
{
    cgctl({"set", "card_info", "devid=1", "name=first", "cpu_num=4", "static_info.name=type",
           "static_info.node_type=3"});
    cgctl({"set", "--fields", "card_info", "devid=1", "is_online=true", "static_info.sub_slot_num=2"});
    Json record = get({"card_info", "devid=1"})["record"];
    EXPECT_EQ(record["name"], "first");
    EXPECT_EQ(record["cpu_num"], 4);
    EXPECT_EQ(record["is_online"], true);
    EXPECT_EQ(record["static_info"]["name"], "type") << "the rest of the sub-message was lost";
    EXPECT_EQ(record["static_info"]["node_type"], "DM_TYPE_LC");
    EXPECT_EQ(record["static_info"]["sub_slot_num"], 2);
    cgctl({"set", "card_info", "devid=1", "name=second"});
    record = get({"card_info", "devid=1"})["record"];
    EXPECT_EQ(record["name"], "second");
    EXPECT_EQ(record["cpu_num"], 0);
    EXPECT_EQ(record["static_info"], nullptr);
}

TEST_F(RecordVerbs, FieldsOfAnAbsentRecordMakeIt)
{
    cgctl({"set", "--fields", "card_info", "devid=1", "static_info.node_type=DM_TYPE_SFC"});
    EXPECT_EQ(get({"card_info", "devid=1"})["record"]["static_info"]["node_type"], "DM_TYPE_SFC");
}

TEST_F(RecordVerbs, EveryTypeHasItsDatabaseAndAnotherCanBeGiven)
{
    cgctl({"set", "app_cg_card_deny_check_result", "devid=1", "stat=APP_CG_CHECK_PASS"});
    EXPECT_EQ(get({"app_cg_card_deny_check_result", "devid=1"})["db"], 28);
    cgctl({"set", "im_card_power_onoff", "devid=1", "mod_name=cap"});
    EXPECT_EQ(get({"im_card_power_onoff"})["records"][0]["db"], 33);
    cgctl({"set", "card_static_info", "type=5", "name=x", "--db", "7"});
    EXPECT_EQ(get({"card_static_info", "type=5", "--db", "7"})["record"]["name"], "x");
    EXPECT_EQ(run_cgctl({"get", "card_static_info", "type=5", "--db", "8"}).status, 1);
}

TEST_F(RecordVerbs, NothingIsWrittenWhenAValueIsWrong)
{
    EXPECT_EQ(run_cgctl({"set", "card_info", "devid=1", "name=x", "is_online=maybe"}).status, 2);
    EXPECT_EQ(get({"card_info"})["records"].size(), 0U);
}

TEST_F(RecordVerbs, RepeatedSubMessagesAreSetByPosition)
{
    cgctl({"set", "dp_lib_grole", "my_grole=DM_ROLE_MASTER", "card_role.0.devid=1", "card_role.0.valid=true",
           "card_role.1.globe_role=DM_ROLE_SLAVE"});
    cgctl({"set", "--fields", "dp_lib_grole", "card_role.1.slotid=8"});
    const Json record = get({"dp_lib_grole"})["record"];
    ASSERT_EQ(record["card_role"].size(), 2U);
    EXPECT_EQ(record["card_role"][0]["valid"], true);
    EXPECT_EQ(record["card_role"][1]["globe_role"], "DM_ROLE_SLAVE");
    EXPECT_EQ(record["card_role"][1]["slotid"], 8);
    EXPECT_EQ(record["my_grole"], "DM_ROLE_MASTER");
}

TEST_F(RecordVerbs, DeletesOneOrAllWithTheSameFirstKeyFields)
{
    for (const char *module : {"mod_name=m1", "mod_name=m2"}) {
        cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=3", module});
        cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=4", module});
    }
    cgctl({"del", "app_cg_card_check_ack", "devid=1", "slotid=3", "mod_name=m1"});
    EXPECT_EQ(get({"app_cg_card_check_ack"})["records"].size(), 3U);
    cgctl({"del", "app_cg_card_check_ack", "devid=1", "slotid=4", "--keys", "3"});
    const Json left = get({"app_cg_card_check_ack"})["records"];
    ASSERT_EQ(left.size(), 1U);
    EXPECT_EQ(left[0]["key"]["mod_name"], "m2");
    EXPECT_EQ(left[0]["key"]["slotid"], 3);
    cgctl({"del", "app_cg_card_check_ack", "--keys", "0"});
    EXPECT_EQ(get({"app_cg_card_check_ack"})["records"].size(), 0U);
}

TEST_F(RecordVerbs, TheRoleIsOneFieldOfItsRecord)
{
    EXPECT_EQ(run_cgctl({"role"}).status, 1);
    cgctl({"set", "dp_lib_grole", "dev_num=2"});
    for (const char *role : {"master", "slave", "candidate", "none"}) {
        EXPECT_EQ(cgctl({"role", role}), "");
        EXPECT_EQ(cgctl({"role"}), std::string(role) + '\n');
    }
    cgctl({"role", "slave"});
    EXPECT_EQ(Json::parse(cgctl({"role", "--json"})), (Json{{"role", "slave"}}));
    EXPECT_EQ(get({"dp_lib_grole"})["record"]["dev_num"], 2) << "the role's other fields were lost";
    cgctl({"set", "--fields", "dp_lib_grole", "my_grole=9"});
    EXPECT_EQ(cgctl({"role"}), "9\n");
}

} // namespace cg
