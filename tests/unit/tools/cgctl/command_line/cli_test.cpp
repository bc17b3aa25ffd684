// What is refused before the store is asked. No test here has a store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "command_line/cli.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

// A setting of the environment for a while.
class Setting
{
public:
    Setting(const char *name, const std::string &value) : name_(name) { setenv(name, value.c_str(), 1); }
    ~Setting() { unsetenv(name_); }
    Setting(const Setting &) = delete;
    Setting &operator=(const Setting &) = delete;

private:
    const char *name_;
};

// The one line of a wrong usage; a failure of the test when it was none.
std::string refused(const std::vector<std::string> &arguments)
{
    setenv("VX_MOM_ENDPOINT", "unix:/nonexistent/never-asked", 1);
    const Outcome outcome = run_cgctl(arguments);
    EXPECT_EQ(outcome.status, 2) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    EXPECT_TRUE(outcome.err.starts_with("cgctl: ")) << outcome.err;
    return outcome.err.substr(std::min<std::size_t>(7, outcome.err.size()));
}

} // namespace

TEST(Usage, HelpAndVersionAreData)
{
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--help"},
                                                      {"list", "--help"},
                                                      {"show", "--help"},
                                                      {"card", "--help"},
                                                      {"card", "plug", "--help"},
                                                      {"card", "online", "--help"},
                                                      {"role", "--help"},
                                                      {"debug", "--help"},
                                                      {"get", "--help"},
                                                      {"set", "--help"},
                                                      {"del", "--help"},
                                                      {"watch", "--help"},
                                                      {"module", "--help"},
                                                      {"module", "run", "--help"}}) {
        const Outcome outcome = run_cgctl(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_NE(outcome.out.find("Examples:"), std::string::npos) << arguments.front();
        EXPECT_EQ(outcome.err, "");
    }
    const Outcome version = run_cgctl({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.starts_with("cgctl ")) << version.out;
}

TEST(Usage, UnknownVerbsGetTheNearestOnes)
{
    EXPECT_EQ(refused({"lits"}), "unknown verb \"lits\" of cgctl; nearest: list\n");
    EXPECT_EQ(refused({"card", "plugg", "1/3"}), "unknown verb \"plugg\" of cgctl card; nearest: plug\n");
    EXPECT_NE(refused({"module"}).find("requires a verb; one of: run"), std::string::npos);
}

TEST(Usage, WrongOptionsAndArgumentsAreNamed)
{
    EXPECT_NE(refused({"list", "--colour"}).find("--colour"), std::string::npos);
    EXPECT_EQ(refused({"list", "--color", "red"}), "--color: red not in {auto,always,never}\n");
    EXPECT_NE(refused({"list", "--state", "denide"}).find("--state: denide not in {waiting,denied,"),
              std::string::npos);
    EXPECT_NE(refused({"list", "--state", "waiting,x\ny"}).find("--state: x\\ny not in"), std::string::npos);
    EXPECT_NE(refused({"history", "--outcome", "denid"}).find("--outcome: denid not in {passed,"),
              std::string::npos);
    EXPECT_EQ(refused({"history", "--last", "0"}), "--last: Value 0 not in range 1 to 2147483647\n");
    EXPECT_NE(refused({"list", "1/x"}).find("\"1/x\" is not a position"), std::string::npos);
    EXPECT_NE(refused({"show", "1"}).find("\"1\" is not a card position"), std::string::npos);
    EXPECT_NE(refused({"show"}).find("POS"), std::string::npos);
    EXPECT_NE(refused({"show", "1/3/x"}).find("\"1/3/x\" is not a card position"), std::string::npos);
    EXPECT_EQ(refused({"role", "mastr"}), "ROLE: mastr not in {master,slave,candidate,none}\n");
    EXPECT_NE(refused({"list", "--", "sh"}).find("module run"), std::string::npos);
}

TEST(Usage, WrongSettingsOfTheStoreAreOneLineThatSaysWhatIsRight)
{
    EXPECT_EQ(refused({"--endpoint", "foo", "list"}),
              "endpoint 'foo' is none, use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port\n");
    EXPECT_EQ(
        refused({"--endpoint", "tcp:1", "list"}),
        "endpoint 'tcp:1' is none, use unix:/path, tcp:host:port or sentinel:NAME@host:port,host:port\n");
    {
        const Setting file("VX_MOM_AUTH_FILE", "/nonexistent");
        EXPECT_EQ(refused({"list"}), "VX_MOM_AUTH_FILE: /nonexistent: No such file or directory, use a file "
                                     "with the lines 'user NAME' and 'password SECRET', mode 0600\n");
    }
    const Setting deadline("VX_MOM_DEADLINE_MS", "abc");
    EXPECT_EQ(refused({"watch"}), "VX_MOM_DEADLINE_MS=abc: not a whole number from 1 to 3600000\n");
}

TEST(Usage, AnEndpointHoldsForEveryDatabase)
{
    const Setting deadline("VX_MOM_DEADLINE_MS", "50");
    {
        const Setting own("VX_MOM_ENDPOINT_1", "unix:/nonexistent/own");
        const Setting wrong("VX_MOM_ENDPOINT_28", "nonsense");
        EXPECT_TRUE(refused({"list"}).starts_with("VX_MOM_ENDPOINT_28: endpoint 'nonsense' is none"));
        EXPECT_THAT(run_cgctl({"--endpoint", "unix:/nonexistent/here", "list"}).err,
                    testing::HasSubstr("the store at unix:/nonexistent/here cannot be used, database 1 "));
    }
    const Setting own("VX_MOM_ENDPOINT_1", "unix:/nonexistent/own");
    EXPECT_THAT(run_cgctl({"list"}).err,
                testing::HasSubstr("the store at unix:/nonexistent/own cannot be used, database 1 "));
}

TEST(Usage, WrongCardsAreRefused)
{
    EXPECT_EQ(refused({"card", "plug", "1/3", "--node-type", "lx"}),
              "unknown node type \"lx\"; nearest: lc, box, mb, or a number\n");
    EXPECT_NE(refused({"card", "plug", "1/3", "--serial", "0"}).find("serial=0: not hexadecimal"),
              std::string::npos);
    EXPECT_NE(refused({"card", "plug", "1/3", "--tipc", "x"}).find("card_tipc_nodeid=x"), std::string::npos);
    EXPECT_NE(refused({"card", "plug", "1/300"}).find("give --nodeid and --tipc"), std::string::npos);
}

TEST(Usage, WrongRecordsAreRefused)
{
    EXPECT_NE(refused({"get", "card_inf"}).find("nearest: card_info"), std::string::npos);
    EXPECT_NE(refused({"get", "card_info", "name=x"}).find("name is not a key field of p_dev.card_info"),
              std::string::npos);
    EXPECT_NE(refused({"set", "card_info", "slotld=1"}).find("nearest: slotid"), std::string::npos);
    EXPECT_NE(refused({"set", "card_info", "devid=1", "devid=2"}).find("devid is given more than once"),
              std::string::npos);
    EXPECT_NE(refused({"set", "--fields", "card_info", "devid=1"}).find("--fields without a field"),
              std::string::npos);
    EXPECT_NE(refused({"set", "card_info"}).find("nothing given to write"), std::string::npos);
    EXPECT_NE(refused({"set", "card_static_info", "type=1"}).find("--db"), std::string::npos);
    EXPECT_EQ(refused({"get", "card_info", "--db", "-1"}), "--db: Value -1 not in range 0 to 1048576\n");
    EXPECT_NE(refused({"del", "card_info", "--keys", "5"}).find("0 to 4 for p_dev.card_info"),
              std::string::npos);
    EXPECT_NE(refused({"del", "card_info", "--keys", "-1"}).find("0 to 4 for"), std::string::npos);
    EXPECT_NE(refused({"del", "card_info", "--keys", "x"}).find("--keys = x"), std::string::npos);
    EXPECT_NE(refused({"watch", "card_inf"}).find("nearest: card_info"), std::string::npos);
    EXPECT_EQ(refused({"watch", "--count", "0"}), "--count: Value 0 not in range 1 to 2147483647\n");
    EXPECT_EQ(refused({"watch", "--count", "x"}), "--count: Value x not in range 1 to 2147483647\n");
}

TEST(Usage, WrongModulesAreRefused)
{
    EXPECT_NE(refused({"module", "run", "sixteen-letters-", "--", "true"}).find("1 to 15 characters"),
              std::string::npos);
    EXPECT_NE(refused({"module", "run", "a/b", "--", "true"}).find("is not a module name"),
              std::string::npos);
    EXPECT_NE(refused({"module", "run", ".", "--", "true"}).find("is not a module name"), std::string::npos);
    EXPECT_NE(refused({"module", "run", "..", "--", "true"}).find("is not a module name"), std::string::npos);
    EXPECT_NE(refused({"module", "run", "m1"}).find("cgctl module run m1 -- ./check"), std::string::npos);
    EXPECT_NE(refused({"module", "run", "m1", "--", "no-such-command-here"}).find("cannot be executed"),
              std::string::npos);
    EXPECT_NE(refused({"module", "run", "m1", "--parallel", "0", "--", "true"})
                  .find("--parallel: Value 0 not in range 1 to 256"),
              std::string::npos);
    for (const char *time : {"0", "-1", "x", "1s", "nan", "inf", ""}) {
        EXPECT_NE(refused({"module", "run", "m1", "--timeout", time, "--", "true"}).find("--timeout"),
                  std::string::npos)
            << time;
    }
}

TEST(Usage, ErrorsAreJsonWhereJsonWasAskedFor)
{
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"lits", "--json"},
                                                      {"list", "--json", "--colour"},
                                                      {"get", "card_inf", "--json"},
                                                      {"--json", "show", "x"},
                                                      {"--json", "--endpoint", "tcp:1", "list"}}) {
        const Outcome outcome = run_cgctl(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_TRUE(Json::parse(outcome.err).contains("error")) << outcome.err;
    }
}

TEST(Usage, SettingsAreNamedInJsonToo)
{
    const Setting deadline("VX_MOM_DEADLINE_MS", "abc");
    const Outcome outcome = run_cgctl({"list", "--json", "--endpoint", "unix:/nonexistent/store"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, R"({"error":"VX_MOM_DEADLINE_MS=abc: not a whole number from 1 to 3600000"})"
                           "\n");
}

TEST(Usage, AMistakeInTheSettingsFileIsANoticeInTheFormAskedFor)
{
    const Folder folder;
    std::ofstream(folder.path("conf")) << "nonsense\n";
    const Setting file("VX_PLATFORM_CONF", folder.path("conf"));
    const Setting deadline("VX_MOM_DEADLINE_MS", "50");
    const Outcome outcome = run_cgctl({"list", "--json", "--endpoint", "unix:/nonexistent/store"});
    std::istringstream lines(outcome.err);
    std::string first;
    std::getline(lines, first);
    EXPECT_NE(Json::parse(first)["notice"].get<std::string>().find("NAME=VALUE"), std::string::npos) << first;
}

TEST(NoStore, IsAFailureThatNamesTheStore)
{
    setenv("VX_MOM_DEADLINE_MS", "50", 1);
    const Outcome text = run_cgctl({"list", "--endpoint", "unix:/nonexistent/store"});
    EXPECT_EQ(text.status, 1);
    EXPECT_EQ(std::count(text.err.begin(), text.err.end(), '\n'), 1) << text.err;
    EXPECT_NE(text.err.find("No such file or directory"), std::string::npos) << text.err;
    EXPECT_NE(text.err.find("cgctl: the store at unix:/nonexistent/store cannot be used"), std::string::npos)
        << text.err;
    const Outcome json = run_cgctl({"list", "--json", "--endpoint", "unix:/nonexistent/store"});
    EXPECT_EQ(json.status, 1);
    EXPECT_TRUE(Json::parse(json.err).contains("error")) << json.err;
    unsetenv("VX_MOM_DEADLINE_MS");
}

} // namespace cg
