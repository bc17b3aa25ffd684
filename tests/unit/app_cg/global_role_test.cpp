// The device's global role, and how often a failing notification is looked at.
//
// The repetitions are counted through the journal: each look at a failing result leaves its error line.
#include "app_cg/global_role.h"

#include <gmock/gmock.h>

#include "admission.h"
#include "app_cg/check_result.h"
#include "app_cg/record_enum.h"
#include "app_cg_dbg/logging.h"

namespace admission::global_role
{

using testing::ElementsAre;
using testing::IsEmpty;

const char *const READ = "vx_mom_hgetall_sync(1, p_dev.dp_lib_grole{})";
const char *const FREED = "vx_mom_hash_res_free()";

std::string pro(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_dp_grole_pro: " + line;
}

std::string said(int32_t level, const std::string &line)
{
    return "log " + std::to_string(level) + " app_cg.cpp app_cg_dp_grole_pmsg_f: " + line;
}

// A role record; a number that the enumeration does not name arrives as such from the store.
records::RoleRecord role_record(int32_t role)
{
    records::RoleRecord record = records::role(P_DEV__DM_ROLE_E__DM_ROLE_NONE);
    app_cg_enum_set(record.record()->my_grole, role);
    return record;
}

int32_t notify(int32_t cmd, vx_mom_result_t *result)
{
    vx_mom_pmsg_t pmsg{};
    pmsg.cmd = cmd;
    pmsg.result = result;
    return app_cg_dp_grole_pmsg_f(nullptr, &pmsg);
}

int32_t role_written(int32_t role, int32_t cmd = VX_MOM_CMD_SET)
{
    records::RoleRecord record = role_record(role);
    vx_mom_result_t result{0, &record.record()->base};
    return notify(cmd, &result);
}

// Both start without a role, unlike the other tests of admission.
class GlobalRole : public AdmissionTest
{
protected:
    void SetUp() override
    {
        AdmissionTest::SetUp();
        become(0);
    }
};

class GlobalRoleLog : public EveryVerbosity
{
protected:
    void SetUp() override
    {
        EveryVerbosity::SetUp();
        become(0);
    }

    // A failing look at the result happens once, once more for the message, and once for the value.
    Journal looked_at(const std::string &complaint, const std::string &failure) const
    {
        return heard(GetParam() > 0
                         ? std::initializer_list<Journal>{{complaint, complaint, failure, complaint}}
                         : std::initializer_list<Journal>{{complaint, complaint}});
    }
};

INSTANTIATE_TEST_SUITE_P(Verbosity, GlobalRoleLog, every_verbosity(), verbosity_name);

// ---- the result of a read or a write ----

TEST_P(GlobalRoleLog, ARoleIsTakenOver)
{
    records::RoleRecord record = role_record(1);
    vx_mom_result_t result{0, &record.record()->base};
    EXPECT_EQ(app_cg_dp_grole_pro(&result), 0);
    EXPECT_EQ(recording::take(), heard({{pro(80, "dp grole 1"), pro(40, "leave")}}));
    EXPECT_EQ(g_app_cg_global.grole, 1);
}

TEST_F(GlobalRole, EveryNumberIsTakenOver)
{
    for (const int32_t role : {3, 1, 2, 0, 4, -1, 77}) {
        EXPECT_EQ(role_written(role), 0);
        EXPECT_EQ(g_app_cg_global.grole, role);
    }
}

TEST_P(GlobalRoleLog, AResultIsNeeded)
{
    become(2);
    EXPECT_EQ(app_cg_dp_grole_pro(nullptr), -21);
    EXPECT_EQ(recording::take(), heard({{pro(100, "result NULL")}}));
    EXPECT_EQ(g_app_cg_global.grole, 2);
}

TEST_P(GlobalRoleLog, AResultWithAnErrorIsRefused)
{
    become(2);
    records::RoleRecord record = role_record(1);
    vx_mom_result_t result{-3, &record.record()->base};
    EXPECT_EQ(app_cg_dp_grole_pro(&result), -21);
    EXPECT_EQ(recording::take(), heard({{pro(100, "result error_code -3")}}));
    EXPECT_EQ(g_app_cg_global.grole, 2);
}

TEST_P(GlobalRoleLog, AResultWithoutARecordIsRefused)
{
    become(2);
    vx_mom_result_t result{0, nullptr};
    EXPECT_EQ(app_cg_dp_grole_pro(&result), -4);
    EXPECT_EQ(recording::take(), heard({{pro(100, "dp NULL pointer, addr error!\n")}}));
    EXPECT_EQ(g_app_cg_global.grole, 2);
}

// ---- notifications ----

TEST_P(GlobalRoleLog, AWrittenRoleIsTakenOver)
{
    for (const int32_t cmd : {4, 6}) {
        EXPECT_EQ(role_written(3, cmd), 0);
        EXPECT_EQ(recording::take(), heard({{pro(80, "dp grole 3"), pro(40, "leave")}}));
        EXPECT_EQ(g_app_cg_global.grole, 3);
    }
    EXPECT_EQ(g_app_cg_global.grole_ready, 0);
}

TEST_P(GlobalRoleLog, ANotificationIsNeeded)
{
    EXPECT_EQ(app_cg_dp_grole_pmsg_f(nullptr, nullptr), -4);
    EXPECT_EQ(recording::take(), heard({{said(100, "pmsg NULL pointer, addr error!\n")}}));
}

TEST_P(GlobalRoleLog, ADeletedRecordLeavesTheRole)
{
    become(1);
    EXPECT_EQ(notify(3, nullptr), 0);
    EXPECT_EQ(recording::take(), heard({{said(100, "del")}}));
    EXPECT_EQ(g_app_cg_global.grole, 1);
}

TEST_P(GlobalRoleLog, OtherCommandsAreIgnored)
{
    become(2);
    for (const int32_t cmd : {0, 1, 2, 5, 28, -1}) {
        EXPECT_EQ(role_written(1, cmd), 0);
        EXPECT_EQ(recording::take(), heard({{said(40, "pmsg->cmd " + std::to_string(cmd))}}));
    }
    EXPECT_EQ(g_app_cg_global.grole, 2);
}

TEST_P(GlobalRoleLog, AFailingNotificationIsLookedAtAgain)
{
    become(1);
    records::RoleRecord record = role_record(2);
    vx_mom_result_t result{5, &record.record()->base};
    for (const int32_t cmd : {4, 6}) {
        EXPECT_EQ(notify(cmd, &result), -21);
        EXPECT_EQ(recording::take(), looked_at(pro(100, "result error_code 5"), said(100, "failed,rv -21")));
    }
    EXPECT_EQ(g_app_cg_global.grole, 1);
}

TEST_P(GlobalRoleLog, AMissingResultIsLookedForAgain)
{
    EXPECT_EQ(notify(4, nullptr), -21);
    EXPECT_EQ(recording::take(), looked_at(pro(100, "result NULL"), said(100, "failed,rv -21")));
}

TEST_P(GlobalRoleLog, AMissingRecordIsLookedForAgain)
{
    vx_mom_result_t result{0, nullptr};
    EXPECT_EQ(notify(6, &result), -4);
    EXPECT_EQ(recording::take(),
              looked_at(pro(100, "dp NULL pointer, addr error!\n"), said(100, "failed,rv -4")));
}

// The result mends itself between two looks, as the log of the first complaint is written.
TEST_F(GlobalRole, TheLastLookDecides)
{
    records::RoleRecord record = role_record(1);
    vx_mom_result_t result{5, &record.record()->base};
    recording::script_action("vxcg_zlog", [] {});
    recording::script_action("vxcg_zlog", [&result] { result.error_code = 0; });
    EXPECT_EQ(notify(4, &result), 0);
    EXPECT_THAT(recording::take(), ElementsAre(pro(100, "result error_code 5"),
                                               pro(100, "result error_code 5"), said(100, "failed,rv -21")));
    EXPECT_EQ(g_app_cg_global.grole, 1);
}

TEST_F(GlobalRole, ALookForTheMessageMaySucceed)
{
    records::RoleRecord record = role_record(1);
    vx_mom_result_t result{5, &record.record()->base};
    recording::script_action("vxcg_zlog", [&result] { result.error_code = 0; });
    EXPECT_EQ(notify(4, &result), 0);
    EXPECT_THAT(recording::take(), ElementsAre(pro(100, "result error_code 5"), said(100, "failed,rv 0")));
}

// ---- confirmation of the subscription ----

TEST_P(GlobalRoleLog, TheRoleIsReadWhenTheSubscriptionIsInPlace)
{
    records::RoleRecord record = role_record(1);
    recording::script_hgetall(0, record);
    EXPECT_EQ(notify(29, nullptr), 0);
    EXPECT_EQ(recording::take(), heard({{READ, pro(80, "dp grole 1"), pro(40, "leave"), FREED}}));
    EXPECT_EQ(g_app_cg_global.grole, 1);
    EXPECT_EQ(g_app_cg_global.grole_ready, 1);
}

TEST_P(GlobalRoleLog, AFailedReadIsLookedAtOnceAndFreed)
{
    become(1);
    recording::script_hgetall(7, nullptr);
    EXPECT_EQ(notify(29, nullptr), -21);
    EXPECT_EQ(recording::take(),
              heard({{READ, pro(100, "result error_code 7"), FREED, said(100, "failed,rv -21")}}));
    EXPECT_EQ(g_app_cg_global.grole, 1);
    EXPECT_EQ(g_app_cg_global.grole_ready, 0);
}

TEST_P(GlobalRoleLog, AnAbsentRoleIsAFailure)
{
    recording::script_hgetall(0, nullptr);
    EXPECT_EQ(notify(29, nullptr), -4);
    EXPECT_EQ(recording::take(),
              heard({{READ, pro(100, "dp NULL pointer, addr error!\n"), FREED, said(100, "failed,rv -4")}}));
    EXPECT_EQ(g_app_cg_global.grole_ready, 0);
}

TEST_P(GlobalRoleLog, AReadWithoutAResultIsAFailure)
{
    recording::script("vx_mom_hgetall_sync", {-1});
    EXPECT_EQ(notify(29, nullptr), -21);
    EXPECT_EQ(recording::take(), heard({{READ, pro(100, "result NULL"), std::string(FREED) + " result=null",
                                         said(100, "failed,rv -21")}}));
    EXPECT_EQ(g_app_cg_global.grole_ready, 0);
}

TEST_F(GlobalRole, ALaterReadMakesTheRoleReadyForGood)
{
    recording::script_hgetall(7, nullptr);
    notify(29, nullptr);
    EXPECT_EQ(g_app_cg_global.grole_ready, 0);
    records::RoleRecord record = role_record(2);
    recording::script_hgetall(0, record);
    notify(29, nullptr);
    EXPECT_EQ(g_app_cg_global.grole_ready, 1);
    recording::script_hgetall(7, nullptr);
    notify(29, nullptr);
    notify(3, nullptr);
    EXPECT_EQ(g_app_cg_global.grole_ready, 1);
    EXPECT_EQ(g_app_cg_global.grole, 2);
}

// ---- what the role is for ----

TEST_P(GlobalRoleLog, BeforeAnyRoleTheGatedWritersRefuse)
{
    EXPECT_EQ(app_cg_update_card_check_result(1, 3, 2, 1, 1, 3, 0x21, 17), 0);
    EXPECT_EQ(app_cg_update_dev_check_result(1, 3, 2, 2, 1), 0);
    EXPECT_EQ(recording::take(), heard({refused(card_result_set({}, 1), "app_cg_update_card_check_result", 0),
                                        refused(dev_status_set({}), "app_cg_update_dev_check_result", 0)}));
}

TEST_F(GlobalRole, TheLastRoleWrittenCounts)
{
    role_written(1);
    role_written(3);
    app_cg_update_dev_check_result(1, 3, 2, 2, 1);
    EXPECT_THAT(recording::take(), IsEmpty());
    role_written(1);
    app_cg_update_dev_check_result(1, 3, 2, 2, 1);
    EXPECT_EQ(recording::take(), heard_at(1, dev_status_set({})));
}

TEST_F(GlobalRole, AChangeOfRolePublishesNothing)
{
    role_written(2);
    register_modules({});
    card_written({});
    ASSERT_EQ(node_of({})->stat, 1);
    recording::take();
    role_written(1);
    EXPECT_THAT(recording::take(), IsEmpty());
    // Only a later event of the card brings the results that were skipped, if it calls the writers at all.
    card_written({});
    EXPECT_THAT(recording::take(), testing::Not(testing::Contains(testing::StartsWith("vx_mom_"))));
}

TEST_F(GlobalRole, OnlyTheOwnRoleIsRead)
{
    records::RoleRecord record = role_record(2);
    PDev__LibCardRole card_role = P_DEV__LIB_CARD_ROLE__INIT;
    card_role.globe_role = P_DEV__DM_ROLE_E__DM_ROLE_MASTER;
    PDev__LibCardRole *roles[] = {&card_role};
    record.record()->n_card_role = 1;
    record.record()->card_role = roles;
    record.record()->dev_num = 1;
    record.record()->global_master_node = 1;
    vx_mom_result_t result{0, &record.record()->base};
    EXPECT_EQ(notify(4, &result), 0);
    EXPECT_EQ(g_app_cg_global.grole, 2);
}

} // namespace admission::global_role
