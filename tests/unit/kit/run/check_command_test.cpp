// What a command is given, and what its end means, without a store and without commands.
#include "run/check_command.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

namespace cg
{

namespace
{

// Wait statuses as the kernel gives them.
constexpr int exited(int status)
{
    return status << 8;
}

kit::Answer verdict(int wait_status, const std::string &output = "", const std::string &errors = "")
{
    return verdict_of(wait_status, output, errors, std::nullopt);
}

bool holds(const std::vector<std::string> &variables, const std::string &variable)
{
    return std::count(variables.begin(), variables.end(), variable) == 1;
}

} // namespace

TEST(VerdictOf, ExitStatusZeroIsPassWhateverItSaid)
{
    EXPECT_TRUE(verdict(exited(0), "too hot\n").pass);
    EXPECT_EQ(verdict(exited(0), "too hot\n").reason, "");
}

TEST(VerdictOf, AnythingElseIsDenyWithTheFirstLine)
{
    EXPECT_FALSE(verdict(exited(1)).pass);
    EXPECT_EQ(verdict(exited(1), "\n \r\ntoo hot \r\nsecond", "err").reason, "too hot");
    EXPECT_EQ(verdict(exited(1), "", "from stderr\n").reason, "from stderr");
    EXPECT_EQ(verdict(exited(7), " \n", "").reason, "exit status 7");
}

TEST(VerdictOf, SignalsAndTimeOutAreSaid)
{
    EXPECT_FALSE(verdict(SIGSEGV).pass);
    EXPECT_EQ(verdict(SIGSEGV).reason, "ended by signal 11 (SIGSEGV)");
    EXPECT_EQ(verdict(SIGKILL, "half\n").reason, "ended by signal 9 (SIGKILL): half");
    EXPECT_EQ(verdict_of(SIGTERM, "", "", 1.5).reason, "no verdict within 1.5 s");
    // One that ends well after having been told to end has not passed the card.
    EXPECT_FALSE(verdict_of(exited(0), "", "", 1.5).pass);
}

TEST(VerdictOf, TheReasonIsShortAndOfOneLine)
{
    EXPECT_EQ(verdict(exited(1), std::string(300, 'x')).reason, std::string(255, 'x'));
    EXPECT_EQ(verdict(exited(1), std::string(254, 'x') + "é").reason, std::string(254, 'x'));
    EXPECT_EQ(verdict(exited(1), "a\x1B[0m\xFF").reason, "a\\x1B[0m\\xFF");
}

TEST(CheckEnvironment, CarriesTheCardAndNothingOfAnEarlierOne)
{
    setenv("CG_CARD_NAME", "stale", 1);
    setenv("CG_CARD", "stale", 1);
    setenv("CG_OTHER", "kept", 1);
    kit::Facts card;
    card.request = {{1, 3, 2}, 200, 3, 77};
    const std::vector<std::string> without = check_environment("volt", card);
    for (const char *variable :
         {"CG_MODULE=volt", "CG_CARD=1/3/2", "CG_DEVID=1", "CG_SLOTID=3", "CG_SSLOTID=2", "CG_DEV_TYPE=200",
          "CG_NODE_TYPE=DM_TYPE_LC", "CG_NODEID=77", "CG_OTHER=kept"}) {
        EXPECT_TRUE(holds(without, variable)) << variable;
    }
    EXPECT_TRUE(std::none_of(without.begin(), without.end(), [](const std::string &variable) {
        return variable.starts_with("CG_CARD_NAME=") || variable.starts_with("CG_ONLINE=") ||
               variable == "CG_CARD=stale";
    }));
    card.has_info = true;
    card.online = true;
    card.name = "fan";
    card.serial = {0x00, 0xff};
    const std::vector<std::string> with = check_environment("volt", card);
    for (const char *variable : {"CG_CARD_NAME=fan", "CG_SERIAL=00ff", "CG_ONLINE=1"}) {
        EXPECT_TRUE(holds(with, variable)) << variable;
    }
    card.request.node_type = 4711;
    EXPECT_TRUE(holds(check_environment("volt", card), "CG_NODE_TYPE=4711")) << "a type without a name";
    unsetenv("CG_CARD_NAME");
    unsetenv("CG_CARD");
    unsetenv("CG_OTHER");
}

} // namespace cg
