// cgctl doctor on the folder of the check modules, and on who may do what.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "doctor_fixture.h"
#include "modules/module_folder.h"

namespace cg
{

namespace
{

using testing::HasSubstr;
using testing::Not;

class DoctorOfTheModules : public DoctorTest
{
protected:
    void SetUp() override { start_installation(); }

    void remove_module(const std::string &name) const { std::filesystem::remove(modules() + '/' + name); }
};

} // namespace

TEST_F(DoctorOfTheModules, FindsAFolderThatIsNotThere)
{
    remove_module("m1");
    std::filesystem::remove(modules());
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("module-folder").state, "fail");
    EXPECT_THAT(diagnosis.checks.at("module-folder").found, HasSubstr(modules()));
    for (const char *name :
         {"module-count", "module-names", "module-duplicates", "rights", "daemon-modules"}) {
        EXPECT_THAT(diagnosis.checks.at(name).found, HasSubstr("because of: module-folder")) << name;
    }
    carry_out(diagnosis.checks.at("module-folder").fix, 2);
    EXPECT_EQ(examine("module-folder").state, "warn") << "it is there, and empty";
}

TEST_F(DoctorOfTheModules, FindsAFolderWithoutModules)
{
    remove_module("m1");
    expect_fixed("module-folder", "warn", "every card is admitted without a check");
    EXPECT_TRUE(std::filesystem::exists(modules() + "/NAME"));
}

TEST_F(DoctorOfTheModules, FindsTheEntriesThatTheDaemonIgnores)
{
    for (int i = 2; i <= 18; ++i) {
        add_module('m' + std::to_string(i));
    }
    const Told told = examine("module-count");
    EXPECT_THAT(told.found, HasSubstr("18 entries, of which the daemon ignores \""));
    const std::vector<ModuleEntry> entries = read_module_folder(modules()).entries;
    EXPECT_THAT(told.found, HasSubstr('"' + entries[16].name + "\", \"" + entries[17].name + '"'));
    expect_fixed("module-count", "fail", "18 entries");
    EXPECT_FALSE(std::filesystem::exists(modules() + '/' + entries[16].file_name));
    EXPECT_EQ(examine("module-count").found, "16 of at most 16");
    add_module("one-too-many");
    EXPECT_EQ(examine("module-count").state, "fail");
}

TEST_F(DoctorOfTheModules, FindsANameThatTheDaemonCuts)
{
    add_module("fifteen-letters");
    EXPECT_EQ(examine("module-names").state, "ok");
    add_module("sixteen-letters!");
    expect_fixed("module-names", "fail", "\"sixteen-letters!\" is cut to \"sixteen-letters\"");
    EXPECT_TRUE(std::filesystem::exists(modules() + "/sixteen-letters"));
}

TEST_F(DoctorOfTheModules, FindsTwoNamesThatAreOneToTheDaemon)
{
    add_module("power-supply-left");
    EXPECT_EQ(examine("module-duplicates").state, "ok");
    add_module("power-supply-le");
    EXPECT_THAT(examine("module-duplicates").found, HasSubstr("\"power-supply-left\""));
    expect_fixed("module-duplicates", "fail", "\"power-supply-le\" to the daemon");
}

TEST_F(DoctorOfTheModules, FindsNamesThatNoModuleCanHave)
{
    for (const std::string &name :
         {std::string("bell\a"), std::string("latin\xe9"), std::string("fourteen-bytes\xc3\xa9")}) {
        add_module(name);
        const Told told = examine("module-names");
        EXPECT_EQ(told.state, "fail") << name;
        EXPECT_THAT(told.found, HasSubstr("no module can have the name")) << name;
        EXPECT_THAT(told.fix, HasSubstr("`ls -b "));
        remove_module(name);
        EXPECT_EQ(examine("module-names").state, "ok");
    }
}

TEST_F(DoctorOfTheModules, FindsAModuleThatIsNotConnected)
{
    module_clients_.clear();
    ASSERT_TRUE(eventually([&] { return examine("module-clients").state != "ok"; }));
    const Told told = examine("module-clients");
    EXPECT_EQ(told.state, "warn");
    EXPECT_THAT(told.found, HasSubstr("m1"));
    EXPECT_THAT(told.fix, HasSubstr("as the user module-m1"));
    connect_module("m1");
    EXPECT_EQ(examine("module-clients").state, "ok");
}

TEST_F(DoctorOfTheModules, NamesEveryModuleThatIsNotConnected)
{
    add_module("m2");
    add_module("power-supply-left"); // cut to power-supply-le
    add_module("power-supply-lean"); // and this
    carry_out(examine("rights").fix, 4);
    // Some servers end all connections when they read the rights again, others those of users whose rights
    // changed.
    module_clients_.clear();
    connect_module("m2");
    ASSERT_TRUE(eventually([&] { return examine("module-clients").found.find("m1") != std::string::npos; }));
    const Told told = examine("module-clients");
    EXPECT_THAT(told.found, HasSubstr("modules "));
    EXPECT_THAT(told.found, HasSubstr("power-supply-le"));
    EXPECT_THAT(told.found, Not(HasSubstr("m2")));
    for (const char *user : {"module-m1", "module-power-supply-le"}) {
        const std::size_t place = told.fix.find(user);
        EXPECT_NE(place, std::string::npos) << told.fix;
        EXPECT_EQ(told.fix.find(user, place + 1), std::string::npos) << "named once: " << told.fix;
    }
    EXPECT_THAT(told.fix, Not(HasSubstr("m2")));
    carry_out(told.fix, 1);
    EXPECT_FALSE(std::filesystem::exists(modules() + "/power-supply-left"));
    EXPECT_FALSE(std::filesystem::exists(modules() + "/power-supply-lean"));
    EXPECT_EQ(examine("module-clients").state, "ok");
}

TEST_F(DoctorOfTheModules, FindsAModuleWithTooManyRights)
{
    ask(0, {"ACL", "SETUSER", "module-m1", "~*", "+@all"});
    expect_fixed("rights", "fail", "module-m1 must be refused", 4);
}

TEST_F(DoctorOfTheModules, FindsAModuleWithTooFewRights)
{
    ask(0, {"ACL", "SETUSER", "module-m1", "clearselectors", "resetkeys", "nocommands"});
    expect_fixed("rights", "fail", "module-m1 must be permitted", 4);
}

TEST_F(DoctorOfTheModules, FindsAModuleWithoutAUser)
{
    add_module("m2");
    expect_fixed("rights", "fail", "module-m2 does not exist", 4);
    connect_module("m1"); // the server has ended the connections of those whose rights it read again
    connect_module("m2");
    EXPECT_EQ(examine("module-clients").state, "ok");
}

TEST_F(DoctorOfTheModules, FindsThatNoModuleHasAUser)
{
    ask(0, {"ACL", "DELUSER", "module-m1"});
    expect_fixed("rights", "fail", "module-m1 does not exist", 4);
}

TEST_F(DoctorOfTheModules, DoesNotMindAnAllPowerfulUserWhoIsSwitchedOff)
{
    ask(0, {"ACL", "SETUSER", "default", "off", "nopass", "~*", "&*", "+@all"});
    EXPECT_EQ(examine("users").state, "ok");
    ask(0, {"ACL", "SETUSER", "default", "on"});
    EXPECT_EQ(examine("users").state, "warn");
}

TEST_F(DoctorOfTheModules, KnowsTheUserOfAModuleWithAnUnusualName)
{
    add_module("a b:*");
    carry_out(examine("rights").fix, 4);
    connect_module("m1");
    EXPECT_EQ(examine("rights").state, "ok");
    EXPECT_THAT(examine("module-clients").found, HasSubstr("the module a b:*"));
    connect_module("a%20b%3A%2A");
    EXPECT_EQ(examine("module-clients").state, "ok");
}

TEST_F(DoctorOfTheModules, SaysThatItMayNotAskAboutUsers)
{
    setenv("VX_MOM_AUTH_FILE", folder_.path("secrets/app_cg").c_str(), 1);
    for (const char *name : {"rights", "module-clients"}) {
        EXPECT_EQ(examine(name).state, "skipped");
        EXPECT_EQ(examine(name).found, "the server does not report its users");
    }
}

// A server whose only user is the one who may do everything.

TEST_F(DoctorTest, FindsAServerThatIsOpenToAnybody)
{
    add_module("m1");
    start_server();
    EXPECT_EQ(run_cgctl({"role", "master"}).status, 0);
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("users").state, "warn");
    EXPECT_THAT(diagnosis.checks.at("users").found, HasSubstr("anyone who reaches the store"));
    EXPECT_EQ(diagnosis.checks.at("rights").state, "skipped");
    EXPECT_EQ(diagnosis.checks.at("module-clients").state, "skipped");
    EXPECT_EQ(diagnosis.status, 1);
}

TEST_F(DoctorTest, FindsAServerWithOnePasswordForAll)
{
    const std::string file = folder_.path("secrets/everybody");
    std::filesystem::create_directory(folder_.path("secrets"));
    ASSERT_EQ(chmod(folder_.path("secrets").c_str(), 0700), 0);
    std::ofstream(file) << "user default\npassword one-for-all\n";
    ASSERT_EQ(chmod(file.c_str(), 0600), 0);
    setenv("VX_MOM_AUTH_FILE", file.c_str(), 1);
    std::ofstream(folder_.path("users.acl")) << "user default on >one-for-all ~* &* +@all\n";
    start_server({"--aclfile", folder_.path("users.acl")});
    add_module("m1");
    const Told told = examine("users");
    EXPECT_EQ(told.state, "warn");
    EXPECT_THAT(told.found, HasSubstr("anyone who knows the store's one password"));
    carry_out(told.fix, 4);
    setenv("VX_MOM_AUTH_FILE", folder_.path("secrets/app_cg-admin").c_str(), 1);
    EXPECT_EQ(examine("users").state, "ok");
    EXPECT_EQ(examine("rights").state, "ok");
}

} // namespace cg
