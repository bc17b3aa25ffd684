// Lists of users where the databases are on several servers: one for each, for what it has.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "unit/builtin/store/scoped_setting.h"
#include "unit/builtin/store/sentinel_group.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

using store_test::ScopedSetting;
using store_test::SentinelGroup;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using Words = std::vector<std::string>;

// A line of a list as a command: what stands in parentheses is one word.
Words as_command(const std::string &line)
{
    Words words{"ACL", "SETUSER"};
    std::istringstream stream(line.substr(line.find(' ') + 1));
    for (std::string word; stream >> word;) {
        const bool is_inside = words.back().starts_with("(") && !words.back().ends_with(")");
        if (is_inside) {
            words.back() += ' ' + word;
        } else {
            words.push_back(word);
        }
    }
    return words;
}

// Database 1 is on `host`, the others on another server.
class AclOfServers : public testing::Test
{
protected:
    AclOfServers()
    {
        std::filesystem::create_directory(modules_);
        std::ofstream(modules_ + "/m1").put('\n');
        for (const char *name : {"host", "stack"}) {
            std::filesystem::create_directory(folder_.path(name));
            EXPECT_EQ(chmod(folder_.path(name).c_str(), 0700), 0);
        }
    }

    [[nodiscard]] Outcome acl(Words more) const
    {
        more.insert(more.begin(), {"acl", "--modules", modules_});
        return run_cgctl(more);
    }

    // Prints the list of a database's server, with passwords, and gives it to a server.
    void give_list(const std::string &database, const std::string &secrets,
                   const std::function<std::string(const Words &)> &run) const
    {
        const Outcome list = acl({"--database", database, "--secrets", folder_.path(secrets), "--create"});
        ASSERT_EQ(list.status, 0) << list.err;
        for (const std::string &line : lines_of(list.out)) {
            if (!line.starts_with("user default ")) { // who stays as he is, for the tests' own commands
                ASSERT_THAT(run(as_command(line)), StartsWith("OK")) << line;
            }
        }
    }

    // The findings but for those about the default user, as "USER at SERVER: PROBLEM".
    static Words findings(const Outcome &outcome)
    {
        Words found;
        const Json all = outcome.json()["findings"];
        for (const Json &finding : all) {
            if (finding["user"] != "default") {
                found.push_back((finding["user"].is_null() ? "nobody" : finding["user"].get<std::string>()) +
                                " at " + finding["server"].get<std::string>() + ": " +
                                finding["problem"].get<std::string>());
            }
        }
        return found;
    }

    Folder folder_;
    std::string modules_ = folder_.path("modules");
    StoreServer host_;
    ScopedSetting where_{"VX_MOM_ENDPOINT_1", host_.endpoint()};
};

class AclOfTwoServers : public AclOfServers
{
protected:
    StoreServer stack_;
    ScopedSetting elsewhere_{"VX_MOM_ENDPOINT", stack_.endpoint()};

    void give_lists()
    {
        give_list("1", "host", [this](const Words &command) { return host_.run(0, command); });
        give_list("33", "stack", [this](const Words &command) { return stack_.run(0, command); });
    }
    std::string password(const std::string &file) const
    {
        std::ifstream secret(folder_.path(file));
        std::string word;
        while (secret >> word && word != "password") {
        }
        secret >> word;
        return word;
    }
};

} // namespace

TEST_F(AclOfTwoServers, AServerHasToBeChosen)
{
    const std::string choice =
        "the databases are on 2 servers, each with users and passwords of its own: give "
        "--database 1 (" +
        host_.endpoint() + ") or --database 28 (" + stack_.endpoint() + ")";
    for (const Words &arguments : {Words{}, Words{"--secrets", folder_.path("host"), "--create"},
                                   Words{"--check", "--secrets", folder_.path("host")}}) {
        const Outcome outcome = acl(arguments);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, HasSubstr(choice));
    }
    EXPECT_EQ(acl({"--database", "28"}).out, acl({"--database", "33"}).out) << "one server, one list";
    EXPECT_EQ(acl({"--database", "2"}).status, 2);
}

TEST_F(AclOfTwoServers, TheListOfTheHostsServerKnowsNoGlobalTypes)
{
    const Outcome list = acl({"--database", "1"});
    ASSERT_EQ(list.status, 0) << list.err;
    ASSERT_EQ(lines_of(list.out).size(), 5U);
    EXPECT_THAT(lines_of(list.out)[0],
                AllOf(HasSubstr("~p_libpub.app_cg_mom_deny_check_result:*"), HasSubstr("~@health"),
                      Not(HasSubstr("p_libpub.app_cg_card_deny_check_result")),
                      Not(HasSubstr("dm_set_card_custom_st")), Not(HasSubstr("im_card_power_onoff")),
                      Not(HasSubstr("@chg:28:")), Not(HasSubstr("@chg:33:"))));
    EXPECT_THAT(lines_of(list.out)[1], StartsWith("user module-m1 "));
}

TEST_F(AclOfTwoServers, TheListOfTheStacksServerHasNoModules)
{
    const Outcome list = acl({"--database", "28"});
    ASSERT_EQ(list.status, 0) << list.err;
    const Words lines = lines_of(list.out);
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[0],
                AllOf(StartsWith("user app_cg "), HasSubstr("~p_libpub.app_cg_card_deny_check_result:*"),
                      HasSubstr("&@chg:28:"), HasSubstr("&@chg:33:"), Not(HasSubstr("@chg:1:")),
                      Not(HasSubstr("p_dev.card_info")), Not(HasSubstr("check_ack")),
                      Not(HasSubstr("@health")), Not(HasSubstr("()")), Not(HasSubstr("publish)"))));
    EXPECT_THAT(lines[1], StartsWith("user app_cg-watch "));
}

TEST_F(AclOfTwoServers, OneServerHasOneListHoweverItIsNamed)
{
    const std::string before = [&] {
        const ScopedSetting same("VX_MOM_ENDPOINT", host_.endpoint());
        return acl({}).out;
    }();
    ASSERT_EQ(lines_of(before).size(), 5U);
    EXPECT_THAT(before, AllOf(HasSubstr("@chg:1:"), HasSubstr("@chg:28:"), HasSubstr("@chg:33:")));
    setenv("VX_MOM_ENDPOINT", stack_.endpoint().c_str(), 1); // which the end of its life took away
    EXPECT_EQ(acl({"--endpoint", host_.endpoint()}).out, before);
}

TEST_F(AclOfTwoServers, EachServerIsChecked)
{
    give_lists();
    EXPECT_THAT(findings(acl({"--check", "--json"})), IsEmpty());
    ASSERT_EQ(stack_.run(0, {"ACL", "SETUSER", "app_cg", "(+hset ~p_dev.card_info:*)"}), "OK");
    ASSERT_EQ(stack_.run(0, {"ACL", "SETUSER", "module-m1", "on", ">x", "+ping"}), "OK");
    const Outcome outcome = acl({"--check"});
    EXPECT_EQ(outcome.status, 1);
    const std::string at = " at " + stack_.endpoint() + ": ";
    EXPECT_THAT(outcome.out, HasSubstr("app_cg" + at + "must be refused HSET p_dev.card_info:"));
    EXPECT_THAT(outcome.out, HasSubstr("module-m1" + at +
                                       "exists, but modules have no business on a server "
                                       "without database 1; `cgctl acl --database 28 "));
    EXPECT_THAT(outcome.out, Not(HasSubstr("app_cg at " + host_.endpoint())));
    EXPECT_THAT(findings(acl({"--check", "--json", "--database", "1"})), IsEmpty());
    EXPECT_EQ(findings(acl({"--check", "--json", "--database", "33"})).size(), 2U);
}

TEST_F(AclOfTwoServers, AUserOfOneIsNobodyAtTheOther)
{
    give_lists();
    for (StoreServer *server : {&host_, &stack_}) {
        ASSERT_EQ(server->run(0, {"ACL", "SETUSER", "default", "off"}), "OK");
    }
    EXPECT_THAT(stack_.run_as("app_cg", password("stack/app_cg"), {"PING"}), HasSubstr("PONG"));
    EXPECT_THAT(stack_.run_as("app_cg", password("host/app_cg"), {"PING"}), HasSubstr("NOAUTH"));
    EXPECT_THAT(host_.run_as("module-m1", password("host/module-m1"), {"PING"}), HasSubstr("PONG"));
    EXPECT_THAT(stack_.run_as("module-m1", password("host/module-m1"), {"PING"}), HasSubstr("NOAUTH"));
}

TEST_F(AclOfTwoServers, OneThatIsAwayIsAFindingAndTheOtherIsChecked)
{
    give_lists();
    ASSERT_EQ(host_.run(0, {"ACL", "SETUSER", "app_cg", "off"}), "OK");
    stack_.kill();
    const Outcome outcome = acl({"--check", "--json"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(findings(outcome), ElementsAre("app_cg at " + host_.endpoint() + ": is switched off",
                                               AllOf(StartsWith("nobody at " + stack_.endpoint() +
                                                                ": its users cannot be checked: "),
                                                     HasSubstr(stack_.endpoint()))));
    const Outcome alone = acl({"--check", "--database", "28"});
    EXPECT_EQ(alone.status, 1);
    EXPECT_EQ(alone.out, "");
    EXPECT_THAT(alone.err, HasSubstr(stack_.endpoint()));
}

using AclOfAGroup = AclOfServers;

TEST_F(AclOfAGroup, EachServerOfTheGroupIsChecked)
{
    SentinelGroup::Options options;
    options.down_after = std::chrono::seconds(60);
    SentinelGroup group(options);
    const ScopedSetting elsewhere("VX_MOM_ENDPOINT", group.endpoint());
    for (size_t server = 0; server < 3; server++) {
        give_list("28", "stack", [&](const Words &command) { return group.run(server, command); });
    }
    const Words check{"--check", "--json", "--database", "28"};
    EXPECT_THAT(findings(acl(check)), IsEmpty());
    ASSERT_THAT(group.run(2, {"ACL", "SETUSER", "app_cg-watch", "off"}), StartsWith("OK"));
    EXPECT_THAT(findings(acl(check)),
                ElementsAre("app_cg-watch at tcp:" + group.server_address(2) + ": is switched off"));
    group.freeze_server(1);
    const ScopedSetting patience("VX_MOM_DEADLINE_MS", "300");
    EXPECT_THAT(
        findings(acl(check)),
        testing::UnorderedElementsAre(
            "app_cg-watch at tcp:" + group.server_address(2) + ": is switched off",
            HasSubstr("nobody at tcp:" + group.server_address(1) + ": its users cannot be checked: ")));
    group.thaw_server(1);
}

} // namespace cg
