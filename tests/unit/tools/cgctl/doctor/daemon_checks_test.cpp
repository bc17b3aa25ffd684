// cgctl doctor on the daemon and on its work: cards, requests, answers.
#include <csignal>
#include <filesystem>
#include <fstream>

#include "doctor_fixture.h"
#include "history/writer.h"

namespace cg
{

namespace
{

using testing::HasSubstr;

constexpr std::chrono::seconds patience{20};
constexpr const char *request_key = "p_libpub.app_cg_card_check_info:0:1:3:0";

class DoctorOfTheDaemon : public DoctorTest
{
protected:
    void SetUp() override { start_installation(); }

    void cgctl(const std::vector<std::string> &arguments) const
    {
        const Outcome outcome = run_cgctl(arguments);
        ASSERT_EQ(outcome.status, 0) << outcome.err;
    }
    // As the recorder would note them.
    void note_modules(const std::vector<std::string> &names) const
    {
        setenv(history::path_setting, folder_.path("history").c_str(), 1);
        history::Writer(folder_.path("history"), std::chrono::system_clock::now(), {})
            .set_modules_note({names, ""});
    }
    void TearDown() override { unsetenv(history::path_setting); }
    // Sets how long ago the server takes a key to have been touched.
    void let_it_age(const std::string &key, int seconds) const
    {
        const std::string content = ask(1, {"DUMP", key}).text;
        ask(1, {"RESTORE", key, "0", content, "REPLACE", "IDLETIME", std::to_string(seconds)});
    }
};

} // namespace

TEST_F(DoctorOfTheDaemon, FindsNoRole)
{
    cgctl({"del", "dp_lib_grole"});
    expect_fixed("role", "fail", "no role was written");
    EXPECT_EQ(examine("role").found, "master");
}

TEST_F(DoctorOfTheDaemon, TakesAnotherRoleForWhatItIs)
{
    for (const char *role : {"slave", "candidate", "none"}) {
        cgctl({"role", role});
        const Diagnosis diagnosis = examine();
        EXPECT_EQ(diagnosis.checks.at("role").state, "ok") << role;
        EXPECT_THAT(diagnosis.checks.at("role").found, HasSubstr("not the master")) << role;
        EXPECT_EQ(diagnosis.status, 0) << role << diagnosis.complaints();
    }
}

TEST_F(DoctorOfTheDaemon, FindsARoleThatDoesNotDecode)
{
    ask(1, {"HSET", "p_dev.dp_lib_grole", "6", "master"});
    expect_fixed("role", "fail", "does not decode", 2);
}

TEST_F(DoctorOfTheDaemon, FindsNoDaemon)
{
    daemon_.reset();
    const Diagnosis diagnosis = examine();
    EXPECT_EQ(diagnosis.checks.at("daemon").state, "fail");
    EXPECT_THAT(diagnosis.checks.at("daemon").found, HasSubstr("no daemon"));
    EXPECT_THAT(diagnosis.checks.at("daemon").fix, HasSubstr("`systemctl start app_cg`"));
    for (const char *name : {"daemon-connections", "daemon-modules", "cards", "acknowledgements"}) {
        EXPECT_THAT(diagnosis.checks.at(name).found, HasSubstr("because of: daemon")) << name;
    }
    EXPECT_EQ(diagnosis.status, 1);
    start_daemon();
    EXPECT_EQ(examine().complaints(), "");
}

TEST_F(DoctorOfTheDaemon, FindsADaemonThatHangs)
{
    daemon_->send(SIGSTOP);
    const Told told = examine("daemon");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("does not respond"));
    EXPECT_THAT(told.fix, HasSubstr("`systemctl restart app_cg`"));
    daemon_->send(SIGCONT);
    EXPECT_EQ(examine("daemon").state, "ok");
}

TEST_F(DoctorOfTheDaemon, FindsTheModulesThatWereRegisteredBefore)
{
    note_modules({"m1", "m0"});
    EXPECT_EQ(examine("module-registry").found, "1 registered");
    std::filesystem::remove(modules() + "/m1");
    note_modules({});
    daemon_.reset();
    start_daemon({.subscriptions = {"p_dev.dp_lib_grole", "p_dev.card_info"}});
    const Told told = examine("module-registry");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found,
                HasSubstr("no module is registered, and every card is admitted without a check; before: "
                          "\"m0\", \"m1\""));
    EXPECT_THAT(told.fix, HasSubstr("`systemctl restart app_cg`"));
    carry_out(told.fix, 1);
    EXPECT_TRUE(std::filesystem::exists(modules() + "/m1"));
    daemon_.reset();
    start_daemon();
    EXPECT_EQ(examine("module-registry").state, "ok");
}

TEST_F(DoctorOfTheDaemon, FindsADaemonThatCouldNotReadItsModules)
{
    note_modules({"m1"});
    std::filesystem::remove(modules() + "/m1");
    daemon_.reset();
    start_daemon({.subscriptions = {"p_dev.dp_lib_grole", "p_dev.card_info"}});
    add_module("m1");
    const Told told = examine("module-registry");
    EXPECT_EQ(told.state, "fail");
    EXPECT_EQ(told.fix, "`systemctl restart app_cg`") << "the folder is as it should be";
}

TEST_F(DoctorOfTheDaemon, FindsNoLossWhereNoModuleEverWas)
{
    std::filesystem::remove(modules() + "/m1");
    daemon_.reset();
    start_daemon({.subscriptions = {"p_dev.dp_lib_grole", "p_dev.card_info"}});
    setenv(history::path_setting, folder_.path("history").c_str(), 1);
    EXPECT_EQ(examine("module-registry").state, "skipped");
    EXPECT_THAT(examine("module-registry").found, HasSubstr("no history at " + folder_.path("history")));
    note_modules({});
    EXPECT_EQ(examine("module-registry").state, "ok");
}

TEST_F(DoctorOfTheDaemon, FindsADaemonWithoutOneOfItsConnections)
{
    daemon_.reset();
    start_daemon({.databases = {1, 33}});
    const Told told = examine("daemon-connections");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("not connected to database 28"));
    EXPECT_THAT(examine("cards").found, HasSubstr("because of: daemon-connections"));
    daemon_.reset();
    start_daemon();
    EXPECT_TRUE(eventually([&] { return examine("daemon-connections").state == "ok"; }));
}

TEST_F(DoctorOfTheDaemon, FindsADaemonThatDoesNotListen)
{
    const std::string role = "p_dev.dp_lib_grole";
    const std::string cards = "p_dev.card_info";
    const std::string answers = "p_libpub.app_cg_card_check_ack";
    for (const std::vector<std::string> &heard : {std::vector{role}, {cards}, {cards, answers}}) {
        daemon_.reset();
        start_daemon({.subscriptions = heard});
        EXPECT_EQ(examine("daemon-connections").state, "fail") << heard.front();
        EXPECT_THAT(examine("daemon-connections").found, HasSubstr("has not subscribed")) << heard.front();
    }
    daemon_.reset();
    start_daemon({.subscriptions = {role, cards}});
    EXPECT_EQ(examine("daemon-connections").state, "fail") << "the answers of m1 are not heard";
    std::filesystem::remove(modules() + "/m1");
    daemon_.reset();
    start_daemon({.subscriptions = {role, cards}});
    EXPECT_EQ(examine("daemon-connections").state, "ok") << "there are no answers to hear";
}

TEST_F(DoctorOfTheDaemon, FindsADaemonOfAnotherOpinionAboutTheModules)
{
    EXPECT_EQ(examine("daemon-modules").state, "ok"); // it has told what it read at its start
    add_module("m2");
    const Told told = examine("daemon-modules");
    EXPECT_EQ(told.state, "warn");
    EXPECT_THAT(told.found, HasSubstr("asks \"m1\", the folder names \"m1\", \"m2\""));
    EXPECT_THAT(told.fix, HasSubstr("`systemctl restart app_cg`"));
    daemon_.reset();
    start_daemon();
    EXPECT_EQ(examine("daemon-modules").state, "ok");
}

TEST_F(DoctorOfTheDaemon, FindsCardsThatAreLeftAlone)
{
    cgctl({"card", "plug", "1/3/0"});
    cgctl({"card", "plug", "1/4/0", "--offline"});
    cgctl({"card", "plug", "1/5/0", "--node-type", "mb"});
    cgctl({"card", "plug", "1/6/0"});
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=6"});
    cgctl({"card", "plug", "1/7/0", "--tipc", "77"});
    cgctl({"set", "app_cg_mom_deny_check_result", "card_tipc_nodeid=77", "stat=APP_CG_CHECK_DENY"});
    const Told told = examine("cards");
    EXPECT_EQ(told.state, "fail");
    EXPECT_EQ(told.found, "online with neither a request nor a verdict: 1/3/0");
    EXPECT_THAT(told.fix, HasSubstr("`systemctl restart app_cg`"));
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=3"}); // as the daemon does it
    EXPECT_EQ(examine("cards").state, "ok");
}

TEST_F(DoctorOfTheDaemon, GivesTheDaemonAMomentForACard)
{
    cgctl({"card", "plug", "1/3/0"});
    store::Inspection monitor(0, patience);
    ASSERT_TRUE(monitor.ask({"MONITOR"}, patience));
    const auto doctor = start_cgctl({"doctor", "--json", "--modules", modules()});
    // The records are all read once before; the first look at the cards reads the requests before these.
    for (int looks = 0; looks < 2;) {
        const auto command = monitor.next(patience);
        ASSERT_TRUE(command) << monitor.problem();
        const std::string results = "\"SSCAN\" \"@idx:p_libpub.app_cg_mom_deny_check_result\"";
        looks += command->text.find(results) != std::string::npos ? 1 : 0;
    }
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=3"}); // as the daemon does it
    EXPECT_EQ(doctor->wait(), 0) << doctor->out();
}

TEST_F(DoctorOfTheDaemon, FindsChecksThatDoNotEnd)
{
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=3"});
    let_it_age(request_key, 299);
    EXPECT_EQ(examine("open-checks").state, "ok");
    let_it_age(request_key, 400);
    const Told told = examine("open-checks");
    EXPECT_EQ(told.state, "fail");
    EXPECT_EQ(told.found, "checks open for more than 310 s: 1/3/0");
    cgctl({"del", "app_cg_card_check_info", "devid=1", "slotid=3"});
    EXPECT_EQ(examine("open-checks").state, "ok");
}

TEST_F(DoctorOfTheDaemon, FindsAnswersOfModulesThatAreNone)
{
    cgctl({"card", "plug", "1/4/0", "--offline"});
    cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=4", "mod_name=m9", "ret=1"});
    expect_fixed("acknowledgements", "warn", "1/4/0: \"m9\" is not a module of the folder");
}

TEST_F(DoctorOfTheDaemon, FindsAnswersForCardsThatAreNotThere)
{
    cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=4", "mod_name=m1"});
    expect_fixed("acknowledgements", "warn", "1/4/0: \"m1\" answered for a card that is not there");
}

TEST_F(DoctorOfTheDaemon, FindsAnswersThatTheDaemonDoesNotTake)
{
    cgctl({"card", "plug", "1/4/0", "--offline"});
    cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=4", "mod_name=m1"});
    const Told told = examine("acknowledgements");
    EXPECT_EQ(told.state, "fail");
    EXPECT_THAT(told.found, HasSubstr("has not handled: 1/4/0 by \"m1\""));
    cgctl({"del", "app_cg_card_check_ack", "devid=1", "slotid=4", "mod_name=m1"}); // as the daemon does it
    EXPECT_EQ(examine("acknowledgements").state, "ok");
}

TEST_F(DoctorOfTheDaemon, FindsRecordsThatDoNotDecode)
{
    cgctl({"card", "plug", "1/4/0", "--offline"});
    ask(1, {"HSET", "p_dev.card_info:0:1:4:0", "6", "many"});
    expect_fixed("records", "fail", "p_dev.card_info:0:1:4:0");
}

} // namespace cg
