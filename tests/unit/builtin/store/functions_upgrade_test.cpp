// Functions of the build before beside the present ones.
#include <fstream>
#include <iterator>

#include "cause_fixture.h"

namespace
{

using store::Origin;
using store_test::Card;
using store_test::CauseTest;
using store_test::db;
using store_test::key_of;

// The functions of the build before, as a server keeps them that has not been restarted since.
class UpgradeTest : public CauseTest
{
protected:
    UpgradeTest()
    {
        std::ifstream file(OLD_FUNCTIONS);
        const std::string code{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        EXPECT_EQ(server.run(db, {"FUNCTION", "LOAD", code}), "vx_mom1");
    }

    // Calls one of them on a card.
    std::string call_old(const std::string &function, int32_t slot, const std::vector<std::string> &more)
    {
        std::vector<std::string> words{"FCALL",      "vx_mom1_" + function,  "3",
                                       key_of(slot), "@rev:p_dev.card_info", "@idx:p_dev.card_info",
                                       "@chg:1:"};
        words.insert(words.end(), more.begin(), more.end());
        return server.run(db, words);
    }
};

TEST_F(UpgradeTest, WhatTheBuildBeforeHasWrittenIsReadWithAnUnknownCause)
{
    ASSERT_EQ(call_old("set", 1, {"0123abcd.7", "6", "5"}), "1");
    const auto found = client->read(db, *Card(0, 1, 0).message());
    ASSERT_TRUE(found.value);
    EXPECT_EQ(found.value->origin(), (Origin{"0123abcd", 7, {}}));
    EXPECT_EQ(reinterpret_cast<const PDev__CardInfo &>(*found.value->message).config_dev_type, 5);
    listen();
    EXPECT_EQ(origin_heard(VX_MOM_CMD_SET, 1), (Origin{"0123abcd", 7, {}}));
}

TEST_F(UpgradeTest, WhatTheBuildBeforeWritesAndDeletesIsHeardWithAnUnknownWriter)
{
    listen();
    ASSERT_EQ(call_old("set", 1, {"0123abcd.7", "6", "5"}), "1");
    EXPECT_EQ(origin_heard(VX_MOM_CMD_SET, 1), Origin{});
    ASSERT_EQ(call_old("del", 1, {}), "2");
    EXPECT_EQ(origin_heard(VX_MOM_CMD_DELETED, 1), Origin{});
    heard.clear();
    write(1);
    EXPECT_EQ(origin_heard(VX_MOM_CMD_SET, 1).instance.size(), 8U) << "the same books serve both";
    ASSERT_EQ(call_old("hmset", 1, {"0123abcd.8", "2", "6", "6"}), "4");
    EXPECT_EQ(origin_heard(VX_MOM_CMD_HMSET, 1), Origin{});
}

} // namespace
