// cgctl module run, as a process of its own on a real store. The tests play the daemon.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "loop/descriptor.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

class ModuleRun : public StoreTest
{
protected:
    std::unique_ptr<Child> start(std::vector<std::string> options, const std::string &script)
    {
        std::vector<std::string> arguments{"module", "run", "volt"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--", "sh", "-c", script, "sh", folder_.path("")});
        auto runner = start_cgctl(arguments);
        EXPECT_TRUE(runner->says("subscribed")) << runner->err();
        return runner;
    }

    void ask(const std::string &slot, const std::string &type = "1")
    {
        cgctl({"set", "--fields", "app_cg_card_check_info", "devid=1", "slotid=" + slot, "type=" + type,
               "node_type=DM_TYPE_LC", "card_nodeid=7"});
    }

    void withdraw(const std::string &slot)
    {
        cgctl({"del", "app_cg_card_check_info", "devid=1", "slotid=" + slot});
    }

    static std::vector<std::string> ack_key(const std::string &slot)
    {
        return {"app_cg_card_check_ack", "devid=1", "slotid=" + slot, "mod_name=volt"};
    }

    // Takes a card's answer out of the store, as the daemon does.
    Json take_answer(const std::string &slot)
    {
        std::vector<std::string> get{"get", "--json"};
        const std::vector<std::string> key = ack_key(slot);
        get.insert(get.end(), key.begin(), key.end());
        Outcome outcome;
        EXPECT_TRUE(eventually([&] { return (outcome = run_cgctl(get)).status == 0; }))
            << "no answer for " << slot;
        if (outcome.status != 0) {
            return {{"ret", -1}, {"reason", ""}};
        }
        std::vector<std::string> del{"del"};
        del.insert(del.end(), key.begin(), key.end());
        cgctl(del);
        return outcome.json()["record"];
    }

    [[nodiscard]] std::vector<std::string> lines_of(const std::string &name) const
    {
        std::ifstream file(folder_.path(name));
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    pid_t pid_in(const std::string &name)
    {
        EXPECT_TRUE(eventually([&] { return !lines_of(name).empty(); })) << name << " was not written";
        return lines_of(name).empty() ? -1 : std::stoi(lines_of(name)[0]);
    }

    static bool ends(pid_t pid)
    {
        return eventually([&] { return kill(pid, 0) != 0 && errno == ESRCH; });
    }

    static void stop(Child &runner)
    {
        runner.send(SIGTERM);
        EXPECT_EQ(runner.wait(), 0) << runner.err();
    }
};

} // namespace

TEST_F(ModuleRun, TheExitStatusDecidesAndTheFirstLineIsTheReason)
{
    const auto runner =
        start({}, "test $CG_SLOTID = 3 && exit 0; echo; echo \"slot $CG_CARD is too hot\"; exit 4");
    ask("3");
    const Json passed = take_answer("3");
    EXPECT_EQ(passed, (Json{{"ret", 0}, {"reason", ""}, {"ret_flag", 0}}));
    ask("4");
    const Json denied = take_answer("4");
    EXPECT_EQ(denied, (Json{{"ret", 1}, {"reason", "slot 1/4/0 is too hot"}, {"ret_flag", 0}}));
    stop(*runner);
    EXPECT_NE(runner->err().find("volt 1/3/0 PASS\n"), std::string::npos) << runner->err();
    EXPECT_NE(runner->err().find("volt 1/4/0 DENY slot 1/4/0 is too hot\n"), std::string::npos)
        << runner->err();
    EXPECT_EQ(runner->out(), "");
}

TEST_F(ModuleRun, TheCardIsInTheEnvironment)
{
    cgctl({"card", "plug", "1/3", "--name", "fan 3", "--serial", "00e0"});
    const auto runner = start({}, "env | grep ^CG_ | sort >$1/env");
    ask("3", "200");
    take_answer("3");
    EXPECT_EQ(lines_of("env"), (std::vector<std::string>{"CG_CARD=1/3/0", "CG_CARD_NAME=fan 3", "CG_DEVID=1",
                                                         "CG_DEV_TYPE=200", "CG_MODULE=volt", "CG_NODEID=7",
                                                         "CG_NODE_TYPE=DM_TYPE_LC", "CG_ONLINE=1",
                                                         "CG_SERIAL=00e0", "CG_SLOTID=3", "CG_SSLOTID=0"}));
    stop(*runner);
}

TEST_F(ModuleRun, RequestsThatStandAreAnsweredToo)
{
    ask("3");
    const auto runner = start({}, "exit 0");
    EXPECT_EQ(take_answer("3")["ret"], 0);
    stop(*runner);
}

// The request says the same of both cards. The first command waits for the exchange.
TEST_F(ModuleRun, AVerdictOnOneCardIsNotWrittenForTheNextInItsSlot)
{
    cgctl({"card", "plug", "1/3", "--name", "old"});
    const auto runner =
        start({}, "echo $CG_CARD_NAME >>$1/seen; [ $CG_CARD_NAME = new ] && { echo no; exit 1; }; "
                  "until [ -e $1/go ]; do sleep 0.02; done");
    ask("3");
    EXPECT_TRUE(eventually([&] { return !lines_of("seen").empty(); }));
    cgctl({"card", "plug", "1/3", "--name", "new"});
    std::ofstream(folder_.path("go")) << "";
    EXPECT_EQ(take_answer("3")["reason"], "no");
    EXPECT_EQ(lines_of("seen"), (std::vector<std::string>{"old", "new"}));
    stop(*runner);
    EXPECT_NE(runner->err().find("1/3/0: another card was plugged meanwhile, and is examined\n"),
              std::string::npos)
        << runner->err();
}

TEST_F(ModuleRun, ACommandThatTakesTooLongDenies)
{
    const auto runner = start({"--timeout", "0.2"}, "echo $$ >$1/pid; exec sleep 1000");
    ask("3");
    EXPECT_EQ(take_answer("3"), (Json{{"ret", 1}, {"reason", "no verdict within 0.2 s"}, {"ret_flag", 0}}));
    EXPECT_TRUE(ends(pid_in("pid")));
    stop(*runner);
}

TEST_F(ModuleRun, ACommandThatCannotBeToldToEndIsKilled)
{
    const auto runner = start({"--timeout", "0.2"}, "trap '' TERM; echo hm; while :; do sleep 1000; done");
    ask("3");
    EXPECT_EQ(take_answer("3")["reason"], "no verdict within 0.2 s: hm");
    stop(*runner);
}

TEST_F(ModuleRun, ACommandThatDiesDenies)
{
    const auto runner = start({}, "kill -SEGV $$");
    ask("3");
    EXPECT_EQ(take_answer("3"),
              (Json{{"ret", 1}, {"reason", "ended by signal 11 (SIGSEGV)"}, {"ret_flag", 0}}));
    stop(*runner);
}

TEST_F(ModuleRun, AWithdrawnRequestEndsItsCommandAndIsNotAnswered)
{
    const auto runner =
        start({}, "echo $$ >$1/pid$CG_SLOTID; test $CG_SLOTID = 3 && exec sleep 1000; exit 0");
    ask("3");
    const pid_t pid = pid_in("pid3");
    withdraw("3");
    EXPECT_TRUE(ends(pid));
    ask("4"); // answered later than anything that 3 could still cause
    take_answer("4");
    EXPECT_EQ(Json::parse(cgctl({"get", "app_cg_card_check_ack", "--json"}))["records"].size(), 0U);
    stop(*runner);
    EXPECT_NE(runner->err().find("cgctl: 1/3/0: the request was withdrawn\n"), std::string::npos);
    EXPECT_EQ(runner->err().find("volt 1/3/0"), std::string::npos) << runner->err();
}

TEST_F(ModuleRun, TheSameRequestAgainDoesNotRunTwiceAndAnotherOneRunsAnew)
{
    const auto runner =
        start({}, "echo run >>$1/runs$CG_DEV_TYPE; while ! test -e $1/go; do sleep 0.01; done; exit 0");
    ask("3");
    ASSERT_TRUE(eventually([&] { return lines_of("runs1").size() == 1; }));
    ask("3");
    ask("3", "2"); // another card in the same slot: the command starts again
    ASSERT_TRUE(eventually([&] { return lines_of("runs2").size() == 1; }));
    std::ofstream(folder_.path("go")) << "go";
    take_answer("3");
    EXPECT_EQ(lines_of("runs1").size(), 1U);
    ask("3", "2"); // asked again after the answer: answered again
    take_answer("3");
    EXPECT_EQ(lines_of("runs2").size(), 2U);
    stop(*runner);
}

// As after an outage, which makes one of a deletion and the next request.
TEST_F(ModuleRun, ARepeatedRequestForAnotherCardEndsTheCommandAndStartsItAnew)
{
    cgctl({"card", "plug", "1/3", "--name", "old"});
    const auto runner =
        start({}, "[ $CG_CARD_NAME = new ] && { echo no; exit 1; }; echo $$ >$1/pid; exec sleep 1000");
    ask("3");
    const pid_t pid = pid_in("pid");
    cgctl({"card", "plug", "1/3", "--name", "new"});
    ask("3");
    EXPECT_EQ(take_answer("3")["reason"], "no");
    EXPECT_TRUE(ends(pid));
    stop(*runner);
}

TEST_F(ModuleRun, ACardThatWaitsForItsTurnMayLeave)
{
    const auto runner =
        start({"--parallel", "1"}, "echo $CG_CARD >>$1/seen; until [ -e $1/go ]; do sleep 0.01; done");
    ask("3");
    ASSERT_TRUE(eventually([&] { return lines_of("seen").size() == 1; }));
    ask("4");
    withdraw("4");
    ask("5");
    std::ofstream(folder_.path("go")) << "go";
    take_answer("3");
    take_answer("5");
    EXPECT_EQ(lines_of("seen"), (std::vector<std::string>{"1/3/0", "1/5/0"}));
    stop(*runner);
}

TEST_F(ModuleRun, CommandsRunBesideEachOtherUpToTheLimit)
{
    const auto runner =
        start({"--parallel", "2"},
              "touch $1/started$CG_SLOTID; while ! test -e $1/go$CG_SLOTID; do sleep 0.01; done");
    for (const char *slot : {"1", "2", "3"}) {
        ask(slot);
    }
    const auto started = [&](const char *slot) {
        return std::ifstream(folder_.path(std::string("started") + slot)).good();
    };
    ASSERT_TRUE(eventually([&] { return started("1") && started("2"); }));
    EXPECT_FALSE(started("3"));
    std::ofstream(folder_.path("go1")) << "go";
    EXPECT_TRUE(eventually([&] { return started("3"); }));
    take_answer("1");
    stop(*runner);
}

TEST_F(ModuleRun, ItsEndIsTheEndOfItsCommands)
{
    const auto runner = start({}, "echo $$ >$1/pid; exec sleep 1000");
    ask("3");
    const pid_t pid = pid_in("pid");
    stop(*runner);
    EXPECT_TRUE(ends(pid));
    EXPECT_EQ(Json::parse(cgctl({"get", "app_cg_card_check_ack", "--json"}))["records"].size(), 0U);
}

TEST_F(ModuleRun, AVerdictThatTheStoreRefusesIsWrittenWhenItCan)
{
    const auto runner = start({}, "until [ -e $1/go ]; do sleep 0.01; done; echo hot; exit 1");
    ask("3");
    (void)tell_server("CONFIG SET maxmemory 1\r\n");
    std::ofstream(folder_.path("go")) << "go";
    ASSERT_TRUE(runner->says("1/3/0 is not answered yet: the answer cannot be written: ")) << runner->err();
    (void)tell_server("CONFIG SET maxmemory 0\r\n");
    EXPECT_EQ(take_answer("3")["reason"], "hot");
    stop(*runner);
}

TEST_F(ModuleRun, ANameIsServedOnce)
{
    const auto first = start({}, "exit 0");
    const auto second = start_cgctl({"--json", "module", "run", "volt", "--", "true"});
    EXPECT_EQ(second->wait(), 1);
    EXPECT_NE(second->err().find("{\"error\":\"another module named volt runs (process " +
                                 std::to_string(first->pid()) + ")"),
              std::string::npos)
        << second->err();
    const auto other = start_cgctl({"module", "run", "amp", "--", "true"});
    EXPECT_TRUE(other->says("module amp waits for cards")) << other->err();
    stop(*other);
    stop(*first);
    stop(*start({}, "exit 0"));
}

TEST_F(ModuleRun, AServiceManagerHearsWhenItServes)
{
    const platform::Descriptor manager(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const std::string path = folder_.path("notify");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(manager.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    const auto runner = start({}, "exit 0");
    unsetenv("NOTIFY_SOCKET");
    std::string heard;
    EXPECT_TRUE(eventually([&] {
        std::array<char, 256> message{};
        const ssize_t length = recv(manager.get(), message.data(), message.size(), 0);
        heard.append(message.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
        return heard.find("READY=1") != std::string::npos;
    })) << heard;
    stop(*runner);
}

TEST_F(ModuleRun, AStoreThatIsNotThereIsToldAtOnce)
{
    stop_server();
    setenv("VX_MOM_DEADLINE_MS", "200", 1);
    const auto runner = start_cgctl({"module", "run", "volt", "--", "true"});
    unsetenv("VX_MOM_DEADLINE_MS");
    EXPECT_EQ(runner->wait(), 1);
    EXPECT_NE(runner->err().find("cannot be used, database 1"), std::string::npos) << runner->err();
}

TEST_F(ModuleRun, TheStoreMayGoAndReturn)
{
    const auto runner = start({}, "exit 0");
    ask("3");
    take_answer("3");
    stop_server();
    ASSERT_TRUE(runner->says("lost the store")) << runner->err();
    start_server();
    ASSERT_TRUE(runner->says("is back")) << runner->err();
    ask("4");
    EXPECT_EQ(take_answer("4")["ret"], 0);
    stop(*runner);
}

} // namespace cg
