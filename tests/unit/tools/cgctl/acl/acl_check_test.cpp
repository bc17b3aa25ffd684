// The printed list of users, the files of their passwords, and the check of a running server.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "acl/secrets.h"
#include "acl_fixture.h"
#include "store/codec/names.h"

namespace cg
{

namespace
{

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string contents(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// The folders, without a server.
class AclList : public testing::Test
{
protected:
    AclList()
    {
        std::filesystem::create_directory(modules);
        std::filesystem::create_directory(secrets);
    }
    void add_module(const std::string &name) const { std::ofstream(modules + '/' + name).put('\n'); }
    [[nodiscard]] Outcome acl(std::vector<std::string> more) const
    {
        more.insert(more.begin(), {"acl", "--modules", modules});
        return run_cgctl(more);
    }
    void write_secret(const std::string &user, const std::string &text, mode_t mode = 0600) const
    {
        std::ofstream(secrets + '/' + user) << text;
        ASSERT_EQ(chmod((secrets + '/' + user).c_str(), mode), 0);
    }

    Folder folder;
    std::string modules = folder.path("modules");
    std::string secrets = folder.path("secrets");
};

std::vector<std::string> users_of(const Outcome &outcome)
{
    std::vector<std::string> users;
    const Json list = outcome.json();
    for (const Json &user : list["users"]) {
        users.push_back(user["user"]);
    }
    return users;
}

} // namespace

TEST_F(AclList, WithoutSecretsEverybodyIsOffAndTheReasonIsSaid)
{
    add_module("m1");
    const Outcome outcome = acl({});
    EXPECT_EQ(outcome.status, 0);
    const std::vector<std::string> lines = lines_of(outcome.out);
    ASSERT_EQ(lines.size(), 5U);
    for (const std::string &line : lines) {
        EXPECT_THAT(line, AllOf(StartsWith("user "), HasSubstr(" reset off "), Not(HasSubstr(" on ")),
                                Not(HasSubstr("nopass"))));
    }
    EXPECT_THAT(outcome.err, HasSubstr("--secrets FOLDER --create"));
}

TEST_F(AclList, HasDaemonModulesWatcherAdministratorAndTheDefaultUserOff)
{
    add_module("m1");
    EXPECT_EQ(users_of(acl({"--json"})),
              (std::vector<std::string>{"app_cg", "module-m1", "app_cg-watch", "app_cg-admin", "default"}));
    const Json made = acl({"--json", "--secrets", secrets, "--create"}).json()["users"];
    for (const Json &user : made) {
        EXPECT_EQ(user["on"], user["user"] != "default") << user;
    }
    EXPECT_EQ(made[1]["role"], "module");
    EXPECT_EQ(made[1]["module"], "m1");
}

TEST_F(AclList, NamesAreCutWhereTheDaemonCutsThemAndOneUserStandsForTwoThatAreThenEqual)
{
    add_module("a-name-of-19-bytes-1");
    add_module("a-name-of-19-bytes-2");
    const Outcome outcome = acl({"--json"});
    EXPECT_EQ(users_of(outcome)[1], "module-a-name-of-19-by");
    EXPECT_EQ(users_of(outcome).size(), 5U);
    EXPECT_THAT(outcome.err, HasSubstr("shares a user"));
}

TEST_F(AclList, OnlySixteenEntriesGetAUser)
{
    for (int i = 0; i < 18; i++) {
        add_module("m" + std::to_string(i));
    }
    const Outcome outcome = acl({"--json"});
    EXPECT_EQ(users_of(outcome).size(), 4U + 16U);
    const std::vector<std::string> notices = lines_of(outcome.err);
    EXPECT_EQ(std::count_if(notices.begin(), notices.end(),
                            [](const std::string &line) {
                                return line.find("registers only 16 entries") != std::string::npos;
                            }),
              2);
}

TEST_F(AclList, AFolderOfModulesThatIsMissingIsAFailure)
{
    const Outcome outcome = run_cgctl({"acl", "--modules", folder.path("none")});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("No such file"), HasSubstr("--modules FOLDER")));
}

TEST_F(AclList, SecretsAreMadeOnceForTheOwnerAloneAndNeverReplaced)
{
    add_module("m1");
    const Outcome first = acl({"--secrets", secrets, "--create"});
    ASSERT_EQ(first.status, 0) << first.err;
    std::set<std::string> passwords;
    for (const char *user : {"app_cg", "module-m1", "app_cg-watch", "app_cg-admin"}) {
        const std::string path = secrets + '/' + user;
        struct stat status {
        };
        ASSERT_EQ(stat(path.c_str(), &status), 0) << path;
        EXPECT_EQ(status.st_mode & 07777U, 0600U) << path;
        const std::vector<std::string> lines = lines_of(contents(path));
        ASSERT_EQ(lines.size(), 2U) << path;
        EXPECT_EQ(lines[0], std::string("user ") + user);
        EXPECT_TRUE(passwords.insert(lines[1]).second) << "two users with one password";
        const std::string password = lines[1].substr(std::string("password ").size());
        EXPECT_EQ(password.size(), 64U);
        EXPECT_EQ(password.find_first_not_of("0123456789abcdef"), std::string::npos);
        EXPECT_THAT(first.out,
                    HasSubstr(std::string("user ") + user + " reset on #" + sha256_hex(password) + " "));
        EXPECT_THAT(first.out + first.err, Not(HasSubstr(password)));
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(secrets), {}), 4) << "nothing is left behind";
    add_module("m2");
    const Outcome second = acl({"--secrets", secrets, "--create"});
    EXPECT_EQ(lines_of(second.err).size(), 1U) << second.err;
    for (const std::string &line : lines_of(first.out)) {
        EXPECT_THAT(second.out, HasSubstr(line));
    }
}

TEST_F(AclList, AMissingSecretIsAFailureThatNamesTheWayOut)
{
    const Outcome outcome = acl({"--secrets", secrets});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr(secrets + "/app_cg: "), HasSubstr("--create")));
    const Outcome no_folder = acl({"--secrets", folder.path("none"), "--create"});
    EXPECT_EQ(no_folder.status, 1);
    EXPECT_THAT(no_folder.err, AllOf(HasSubstr("No such file"),
                                     HasSubstr("`install -d -m 0711 " + folder.path("none") + '`')));
}

TEST_F(AclList, ASecretThatOthersMayReadOrThatIsAnothersIsRefused)
{
    ASSERT_EQ(acl({"--secrets", secrets, "--create"}).status, 0);
    write_secret("app_cg", "user app_cg\npassword x\n", 0604);
    EXPECT_THAT(acl({"--secrets", secrets}).err, HasSubstr("others have rights"));
    write_secret("app_cg", "user app_cg-admin\npassword x\n");
    EXPECT_THAT(acl({"--secrets", secrets}).err, HasSubstr("not the credentials of app_cg;"));
    write_secret("app_cg", "");
    const Outcome empty = acl({"--secrets", secrets, "--create"});
    EXPECT_EQ(empty.status, 1);
    EXPECT_EQ(contents(secrets + "/app_cg"), "") << "what exists is never replaced";
    std::filesystem::remove(secrets + "/app_cg");
    std::filesystem::create_symlink("nowhere", secrets + "/app_cg");
    EXPECT_EQ(acl({"--secrets", secrets, "--create"}).status, 1);
    EXPECT_FALSE(std::filesystem::exists(secrets + "/nowhere")) << "a link is not followed";
}

TEST_F(AclList, CreateWantsAFolderAndDoesNotGoWithCheck)
{
    EXPECT_EQ(acl({"--create"}).status, 2);
    EXPECT_EQ(acl({"--check", "--create", "--secrets", secrets}).status, 2);
}

TEST(Secrets, TheDigestIsTheOneThatEverybodyComputes)
{
    EXPECT_EQ(sha256_hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(sha256_hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

namespace
{

class AclCheck : public AclTest
{
protected:
    Outcome check(std::vector<std::string> more = {})
    {
        become("app_cg-admin");
        more.insert(more.begin(), {"acl", "--check", "--modules", modules()});
        return run_cgctl(more);
    }
    // Changes a user and expects findings about that one alone, one of them with this text.
    void expect_found(const std::vector<std::string> &change, const std::string &user,
                      const std::string &text)
    {
        std::vector<std::string> command{"ACL", "SETUSER", user};
        command.insert(command.end(), change.begin(), change.end());
        ASSERT_EQ(run_as_admin(0, command), "OK");
        const Outcome outcome = check();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.out, HasSubstr(text));
        for (const std::string &line : lines_of(outcome.out)) {
            EXPECT_THAT(line, StartsWith(user + ": "));
            EXPECT_THAT(line, HasSubstr("`cgctl acl --modules " + modules() +
                                        " --secrets FOLDER --create > users.acl && cp users.acl " +
                                        users_file() + "` (with users of your own added again), and `ACL " +
                                        "LOAD` on the server"));
        }
        ASSERT_EQ(run_as_admin(0, {"ACL", "LOAD"}), "OK");
        EXPECT_EQ(check().out, "");
    }
};

} // namespace

TEST_F(AclCheck, FindsNothingWrongWithTheListThatIsPrinted)
{
    start({"m1", "m2"});
    const Outcome outcome = check({"--secrets", secrets()});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(check({"--json"}).json(), (Json{{"version", 2}, {"ok", true}, {"findings", Json::array()}}));
}

// Older servers, and settings kept from them, give every new user and selector all channels.
TEST_F(AclCheck, FindsNothingWhereNewUsersGetAllChannels)
{
    start({"m1"});
    stop_server();
    start_server({"--acl-pubsub-default", "allchannels"});
    EXPECT_EQ(check({"--secrets", secrets()}).out, "");
}

TEST_F(AclCheck, HoldsForEveryNameThatAFileCanHave)
{
    start({"a b", "x*y", "(p", "p)", "#h", "%R~x", "~k", "&c", "a:b", "-m", ">w", "\xc3\xbc", "q'\"q", "n\nl",
           "[a-z]", "back\\slash"});
    EXPECT_EQ(check({"--secrets", secrets()}).out, "");
    // Each can log in and answer under its own name, and under no other.
    for (const char *name : {"a b", "x*y", "(p", "%R~x", "a:b", "\xc3\xbc", "n\nl", "[a-z]", "back\\slash"}) {
        const std::string part = store::key_part(name);
        const std::string key = "p_libpub.app_cg_card_check_ack:0:1:3:";
        EXPECT_EQ(run_as("module-" + part, 1, {"HSET", key + part, "6", "0"}), "1") << name;
        EXPECT_THAT(run_as("module-" + part, 1, {"HSET", key + "a", "6", "0"}), HasSubstr("NOPERM")) << name;
        EXPECT_THAT(run_as("module-" + part, 1, {"HSET", key + "xay", "6", "0"}), HasSubstr("NOPERM"))
            << name;
    }
}

TEST_F(AclCheck, FindsUsersThatAreMissingOffOrWithoutAPassword)
{
    start({"m1"});
    expect_found({"off"}, "app_cg", "app_cg: is switched off");
    expect_found({"nopass"}, "module-m1", "module-m1: needs no password");
    expect_found({"resetpass"}, "app_cg-watch", "app_cg-watch: has no password");
    ASSERT_EQ(run_as_admin(0, {"ACL", "DELUSER", "module-m1"}), "1");
    EXPECT_THAT(check().out, StartsWith("module-m1: does not exist"));
}

TEST_F(AclCheck, ComparesPasswordsWhereItKnowsThem)
{
    start({"m1"});
    ASSERT_EQ(run_as_admin(0, {"ACL", "SETUSER", "module-m1", "resetpass", ">other"}), "OK");
    EXPECT_EQ(check().out, "") << "without the folder it cannot know";
    EXPECT_THAT(check({"--secrets", secrets()}).out, StartsWith("module-m1: has another password"));
}

TEST_F(AclCheck, FindsEachRightTooMany)
{
    start({"m1"});
    for (const char *rule : {"+@all", "allkeys", "+eval", "+eval_ro", "+config|set", "+flushall", "+failover",
                             "+slaveof", "+psync", "+module|load", "+client|list", "+acl|getuser"}) {
        expect_found({rule}, "module-m1", "module-m1: must be refused ");
    }
    expect_found({"(+srem ~@idx:p_libpub.app_cg_card_check_ack)"}, "module-m1", "must be refused SREM @idx:");
    expect_found({"(+incrby ~@rev:*)"}, "module-m1", "must be refused INCRBY @rev:");
    for (const char *forging : {"hincrby", "hsetnx", "append", "getdel"}) {
        expect_found({std::string("(+") + forging + " ~p_dev.card_info:*)"}, "module-m1", "p_dev.card_info:");
    }
    expect_found({"(+setrange ~@rev:*)"}, "module-m1", "must be refused SETRANGE @rev:");
    expect_found({"(+getdel ~@set)"}, "module-m1", "must be refused GETDEL @set");
    expect_found({"(+publish &@chg:1:*)"}, "module-m1",
                 "must be refused PUBLISH @chg:1:p_libpub.app_cg_card_check_ack:0:1:3:m1x");
    expect_found({"+publish"}, "app_cg-watch", "must be refused PUBLISH");
    expect_found({"+acl"}, "app_cg", "must be refused ACL SETUSER");
    expect_found({"(+hset ~p_dev.card_info:*)"}, "app_cg", "must be refused HSET p_dev.card_info:");
}

TEST_F(AclCheck, FindsEachRightThatIsMissing)
{
    start({"m1"});
    for (const char *user : {"app_cg", "module-m1"}) {
        const std::string name = user;
        expect_found({"clearselectors"}, name, name + ": must be permitted FCALL vx_mom2_set");
        expect_found({"-info"}, name, name + ": must be permitted INFO server");
        expect_found({"-sscan"}, name, name + ": must be permitted SSCAN");
    }
    expect_found({"-function|load"}, "app_cg", "must be permitted FUNCTION LOAD");
    expect_found({"resetchannels"}, "app_cg-watch", "must be permitted PSUBSCRIBE");
}

TEST_F(AclCheck, FindsModulesOfYesterday)
{
    start({"m1", "old"});
    std::filesystem::remove(modules() + "/old");
    const Outcome outcome = check({"--json"});
    EXPECT_EQ(outcome.status, 1);
    const Json findings = outcome.json()["findings"];
    ASSERT_EQ(findings.size(), 1U) << findings;
    EXPECT_EQ(findings[0]["user"], "module-old");
    EXPECT_THAT(findings[0]["problem"].get<std::string>(), HasSubstr("no module of the folder"));
    EXPECT_FALSE(outcome.json()["ok"].get<bool>());
    print_list();
    ASSERT_EQ(run_as_admin(0, {"ACL", "LOAD"}), "OK");
    EXPECT_EQ(check().status, 0) << "the fix fixes";
}

TEST_F(AclCheck, FindsAStrangerWhoNeedsNoPasswordAndLeavesOthersAlone)
{
    start({"m1"});
    ASSERT_EQ("OK", run_as_admin(0, {"ACL", "SETUSER", "chassis", "on", ">secret", "+@all", "~p_dev.*",
                                     "~s_dev.*", "~@rev:p_dev.*", "~@idx:p_dev.*", "&@chg:*:p_dev.*",
                                     "%R~p_libpub.*", "%R~@idx:*"}));
    ASSERT_EQ("OK", run_as_admin(0, {"ACL", "SETUSER", "gone", "off", "nopass", "+@all", "~*"}));
    EXPECT_EQ(check({}).status, 0);
    ASSERT_EQ("OK", run_as_admin(0, {"ACL", "SETUSER", "open", "on", "nopass", "+ping"}));
    const Outcome outcome = check({});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out,
                StartsWith("open: is not in this list, is switched on, and needs no password; `cgctl acl"));
}

TEST_F(AclCheck, FindsAStrangerWhoMayDecideOnCards)
{
    start({"m1"});
    const auto expect_decider = [this](const std::vector<std::string> &rights, const std::string &what) {
        std::vector<std::string> command{"ACL", "SETUSER", "chassis", "reset", "on", ">secret"};
        command.insert(command.end(), rights.begin(), rights.end());
        ASSERT_EQ(run_as_admin(0, command), "OK");
        const Outcome outcome = check();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_THAT(outcome.out, StartsWith("chassis: is not in this list, and may decide on cards: it is "
                                            "permitted " +
                                            what));
        EXPECT_THAT(
            outcome.out,
            HasSubstr("; give it no right to the keys and channels of p_libpub.app_cg_*; `cgctl acl "));
        EXPECT_EQ(lines_of(outcome.out).size(), 1U);
    };
    expect_decider({"+@all", "~*", "&*"}, "FCALL vx_mom2_set 3 p_libpub.app_cg_card_check_info:");
    expect_decider({"+hset", "~p_libpub.app_cg_card_check_ack:*"}, "HSET p_libpub.app_cg_card_check_ack:");
    expect_decider({"+del", "~*result:*"}, "DEL p_libpub.app_cg_mom_deny_check_result:1 and 1 more; ");
    expect_decider({"+publish", "&@chg:1:p_libpub.app_cg_card_check_ack:*"}, "PUBLISH @chg:1:");
    ASSERT_EQ(run_as_admin(0, {"ACL", "SETUSER", "chassis", "off"}), "OK");
    EXPECT_EQ(check().out, "");
}

TEST_F(AclCheck, FindsADefaultUserWhoMayDoWhatMatters)
{
    start({"m1"});
    expect_found({"on", "nopass", "+@all", "~*", "&*"}, "default", "default: is switched on, and permitted ");
    expect_found({"on", "+get", "%R~*"}, "default", "default: is switched on, and permitted GET ");
    ASSERT_EQ(run_as_admin(0, {"ACL", "SETUSER", "default", "on", "nopass", "+ping"}), "OK");
    EXPECT_EQ(check().out, "") << "who may only ping does no harm";
}

using AclCheckOfAFreshServer = StoreTest;

TEST_F(AclCheckOfAFreshServer, FindsEveryUserAndTheMendTellsOfTheSetting)
{
    std::filesystem::create_directory(folder_.path("modules"));
    const Outcome outcome = run_cgctl({"acl", "--check", "--modules", folder_.path("modules")});
    EXPECT_EQ(outcome.status, 1);
    const std::vector<std::string> lines = lines_of(outcome.out);
    ASSERT_EQ(lines.size(), 4U) << outcome.out;
    EXPECT_THAT(lines[0], StartsWith("app_cg: does not exist"));
    EXPECT_THAT(lines[1], StartsWith("app_cg-watch: does not exist"));
    EXPECT_THAT(lines[2], StartsWith("app_cg-admin: does not exist"));
    EXPECT_THAT(lines[3], StartsWith("default: is switched on"));
    for (const std::string &line : lines) {
        EXPECT_THAT(line, HasSubstr("`aclfile /etc/redis/users.acl` in the server's configuration"));
    }
}

TEST_F(AclCheck, WhoMayNotAskIsToldWhoMay)
{
    start({"m1"});
    become("module-m1");
    const Outcome outcome = run_cgctl({"acl", "--check", "--modules", modules()});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(HasSubstr("NOPERM"), HasSubstr("VX_MOM_AUTH_FILE")));
    const Outcome nowhere =
        run_cgctl({"acl", "--check", "--modules", modules(), "--endpoint", "unix:/nonexistent/store"});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_THAT(nowhere.err, HasSubstr("/nonexistent/store"));
    EXPECT_EQ(run_cgctl({"acl", "--check", "--modules", modules(), "--endpoint", "x"}).status, 2);
}

} // namespace cg
