// What is written for the device around the daemon.
#include "chassis.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "base/failure.h"
#include "loop/loop.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "s_dev.pb-c.h"
#include "unit/support/store_test.h"

namespace cg
{

namespace
{

using testing::HasSubstr;
using testing::Not;

const Position third{1, 3, 0};

class ChassisTest : public StoreTest
{
protected:
    // What the server answers about a record in a database.
    [[nodiscard]] std::string stored(const std::string &key, const std::string &db = "1") const
    {
        return tell_server("SELECT " + db + "\r\nHGETALL " + key + "\r\n");
    }

    static std::string field(const std::string &number, const std::string &value)
    {
        return "$" + std::to_string(number.size()) + "\r\n" + number + "\r\n$" +
               std::to_string(value.size()) + "\r\n" + value + "\r\n";
    }

    void plug(bool offline = false)
    {
        NewCard card;
        card.position = third;
        card.name = "lc 48";
        card.offline = offline;
        chassis_.plug(card);
    }

    platform::Loop loop_{"test"};
    store::Client client_{loop_.context()};
    Chassis chassis_{client_};
};

} // namespace

TEST_F(ChassisTest, CardsArePluggedSwitchedAndPulled)
{
    const std::string key = "p_dev.card_info:0:1:3:0";
    EXPECT_FALSE(chassis_.has_card(third));
    plug();
    EXPECT_TRUE(chassis_.has_card(third));
    EXPECT_THAT(stored(key), HasSubstr(field("12", "lc 48")));
    EXPECT_THAT(stored(key), HasSubstr(field("7", "1")));
    chassis_.change(third, scenario::Move::offline);
    EXPECT_THAT(stored(key), Not(HasSubstr(field("7", "1"))));
    EXPECT_THAT(stored(key), HasSubstr(field("12", "lc 48"))) << "the other fields stay";
    chassis_.change(third, scenario::Move::online);
    EXPECT_THAT(stored(key), HasSubstr(field("7", "1")));
    chassis_.change(third, scenario::Move::pull);
    EXPECT_FALSE(chassis_.has_card(third));
}

TEST_F(ChassisTest, TheRoleIsWritten)
{
    chassis_.set_role(P_DEV__DM_ROLE_E__DM_ROLE_SLAVE);
    EXPECT_THAT(stored("p_dev.dp_lib_grole"), HasSubstr(field("6", "2")));
}

TEST_F(ChassisTest, AnswersMeetARequestOrAreNotGiven)
{
    const std::string key = "p_libpub.app_cg_card_check_ack:1:3:0:m1";
    const DueAnswer denial{third, "m1", false, "too warm"};
    chassis_.answer(denial);
    EXPECT_EQ(stored(key), "+OK\r\n*0\r\n+OK\r\n");
    PDev__CardInfoIndex index = P_DEV__CARD_INFO_INDEX__INIT;
    index.devid = 1;
    index.slotid = 3;
    PLibpub__AppCgCardCheckInfo request = P_LIBPUB__APP_CG_CARD_CHECK_INFO__INIT;
    request.index = &index;
    ASSERT_TRUE(client_.set(1, request.base));
    chassis_.answer(denial);
    EXPECT_THAT(stored(key), HasSubstr(field("6", "1") + field("7", "too warm")));
    chassis_.answer({third, "m1"});
    EXPECT_THAT(stored(key), Not(HasSubstr("too warm")));
}

TEST_F(ChassisTest, PowerOffRequestsOfOneCardAreForgotten)
{
    for (const int32_t slot : {3, 4}) {
        SDev__ImCardPowerOnoffIndex index = S_DEV__IM_CARD_POWER_ONOFF_INDEX__INIT;
        index.devid = 1;
        index.slotid = slot;
        SDev__ImCardPowerOnoff power = S_DEV__IM_CARD_POWER_ONOFF__INIT;
        power.index = &index;
        ASSERT_TRUE(client_.set(33, power.base));
    }
    chassis_.forget_power_off(third);
    EXPECT_EQ(tell_server("SELECT 33\r\nSCARD @idx:s_dev.im_card_power_onoff\r\n"), "+OK\r\n:1\r\n+OK\r\n");
}

TEST_F(ChassisTest, FailuresSayWhatAndWhy)
{
    setenv("VX_MOM_DEADLINE_MS", "100", 1);
    store::Client client(loop_.context(), {.notice = [](int32_t, const std::string &) {}});
    unsetenv("VX_MOM_DEADLINE_MS");
    stop_server();
    try {
        Chassis(client).plug({third});
        FAIL();
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.status(), failed);
        EXPECT_THAT(failure.what(), testing::StartsWith("cannot plug 1/3/0: "));
    }
    require({}, "do nothing");
    try {
        require({-EINVAL, "no endpoint"}, "look up 1/3/0");
        FAIL();
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.status(), wrong_usage);
        EXPECT_STREQ(failure.what(), "cannot look up 1/3/0: no endpoint");
    }
}

} // namespace cg
