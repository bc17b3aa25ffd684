// What each user can do with the rights of the printed list: his whole work, and, of a hostile module, what
// is left to do.
#include <gmock/gmock.h>

#include <csignal>

#include "acl_attacks.h"
#include "store/codec/names.h"
#include "store/functions.h"
#include "unit/tools/cgctl/used_store.h"

namespace cg
{

namespace
{

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::vector<std::string> own_books{own, counter, ack_index};

class Module : public UsedStore
{
protected:
    std::string tell(const Command &command, int database = 1) const
    {
        return run_as("module-m1", database, command);
    }
    static std::string card_key() { return "p_dev.card_info:0:1:3:0"; }
    std::string revision() const { return run_as_admin(1, {"GET", counter}); }
};

using Daemon = UsedStore;
using Watcher = UsedStore;
using WhoDoesNotLogIn = UsedStore;

} // namespace

TEST_F(Module, AnswersUnderItsOwnNameAndIsHeard)
{
    start_used();
    Listener listener = listen();
    EXPECT_EQ(tell(call("set", own_books, {prefix, "mark", "6", "1", "7", "too hot"})), "3");
    EXPECT_EQ(tell(call("hmset", own_books, {prefix, "", "2", "8", "4", "6"})), "4");
    EXPECT_THAT(listener.heard(), ElementsAre(prefix + own + " 1:31:41:31:61:11:77:too hot2:by4:mark",
                                              prefix + own + " 1:41:61:21:77:too hot1:81:4"));
    EXPECT_EQ(run_as_admin(1, {"HGET", own, "7"}), "too hot");
    EXPECT_EQ(run_as_admin(1, {"SISMEMBER", ack_index, own}), "1");
    EXPECT_EQ(revision(), "4");
}

TEST_F(Module, DoesItsWorkThroughTheCommand)
{
    start_used();
    become("module-m1");
    const auto module = start_cgctl({"module", "run", "m1", "--", "sh", "-c", "echo no; false"});
    ASSERT_TRUE(module->says("waits for cards")) << module->err();
    become("app_cg");
    EXPECT_EQ(run_cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=7", "type=5"}).err, "");
    EXPECT_TRUE(eventually([&] {
        return run_as_admin(1, {"HGET", ack + ":1:7:0:m1", "7"}) == "no";
    })) << module->err();
    module->send(SIGTERM);
    EXPECT_EQ(module->wait(), 0) << module->err();
}

TEST_F(Module, CannotAnswerUnderAnotherNameThroughTheCommand)
{
    start_used();
    become("module-m1");
    EXPECT_EQ(run_cgctl({"set", "app_cg_card_check_ack", "devid=1", "mod_name=m1", "ret=1"}).status, 0);
    const std::string before = state();
    const Outcome outcome = run_cgctl({"set", "app_cg_card_check_ack", "devid=1", "mod_name=m2", "ret=1"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err,
                AllOf(HasSubstr("NOPERM"),
                      HasSubstr("VX_MOM_AUTH_FILE names the file of credentials: app_cg-watch")));
    for (const std::vector<std::string> &verb :
         std::vector<std::vector<std::string>>{{"card", "plug", "1/3"},
                                               {"card", "pull", "0/1/3"},
                                               {"role", "master"},
                                               {"set", "app_cg_card_check_info", "devid=1"},
                                               {"set", "app_cg_mom_deny_check_result", "card_tipc_nodeid=1"},
                                               {"set", "app_cg_card_deny_check_result", "devid=1"}}) {
        EXPECT_EQ(run_cgctl(verb).status, 1) << testing::PrintToString(verb);
    }
    EXPECT_EQ(run_cgctl({"del", "app_cg_card_check_ack", "--keys", "0"}).status, 1);
    EXPECT_EQ(state(), before);
}

TEST_F(Module, ReadsWhatItMust)
{
    start_used();
    become("module-m1");
    for (const char *type : {"card_info", "app_cg_card_check_info", "dp_lib_grole"}) {
        EXPECT_EQ(run_cgctl({"get", type}).status, 0) << type;
    }
    for (const char *type : {"app_cg_card_check_ack", "app_cg_mom_deny_check_result"}) {
        EXPECT_EQ(run_cgctl({"get", type}).status, 1) << type;
    }
}

// The channel is a text before the record's key, so a module can make it longer, but not another's: what
// comes out is no key.
TEST_F(Module, CanMakeNoChannelThatIsAnothers)
{
    start_used();
    become("app_cg");
    const auto watch = start_cgctl({"watch", "app_cg_card_check_ack"});
    ASSERT_TRUE(watch->says("subscribed")) << watch->err();
    Listener listener = listen();
    EXPECT_EQ(tell(call("set", own_books, {prefix + other + ":", "", "6", "1"})), "3");
    EXPECT_THAT(listener.heard(), ElementsAre(StartsWith(prefix + other + ":" + own)));
    EXPECT_EQ(run_as("module-m2", 1, call("set", {other, counter, ack_index}, {prefix, "", "7", "late"})),
              "4");
    EXPECT_TRUE(watch->prints("late")) << watch->out() << watch->err();
    EXPECT_THAT(watch->out(), AllOf(Not(HasSubstr("m1")), HasSubstr("mod_name=\"m2\"")));
    EXPECT_THAT(watch->err(), HasSubstr("does not decode"));
    EXPECT_EQ(run_as_admin(1, {"HGET", other, "6"}), "(nil)") << "as m2 wrote it";
}

// Field 5 of an answer is its index, of which the key alone tells.
TEST_F(Module, CannotNameAnotherInItsAnswer)
{
    start_used();
    become("app_cg");
    const auto watch = start_cgctl({"watch", "app_cg_card_check_ack"});
    ASSERT_TRUE(watch->says("subscribed")) << watch->err();
    const std::string index_of_m2("\x10\x01\x18\x03\x22\x02m2");
    EXPECT_EQ(tell(call("set", own_books, {prefix, "", "7", "forged", "5", index_of_m2, "index", "m2"})),
              "3");
    EXPECT_TRUE(watch->prints("forged")) << watch->err();
    EXPECT_THAT(watch->out(), AllOf(HasSubstr("mod_name=\"m1\""), Not(HasSubstr("m2"))));
    EXPECT_THAT(run_cgctl({"get", "app_cg_card_check_ack", "slotid=1", "t_sslotid=3", "mod_name=m2"}).out,
                Not(HasSubstr("forged")));
}

// Everything that a hostile module is permitted besides its work; and then another module answers.
TEST_F(Module, CanDisturbButNotForgeWhatTheDaemonHears)
{
    start_used();
    become("app_cg");
    const auto watch = start_cgctl({"watch", "app_cg_card_check_ack"});
    ASSERT_TRUE(watch->says("subscribed")) << watch->err();
    EXPECT_EQ(tell({"INCR", counter}), "3");
    EXPECT_EQ(tell({"SADD", ack_index, "garbage", card_key(), ack + ":0:9:9:m2"}), "3");
    EXPECT_EQ(tell({"HSET", own, "rev", "999", "6", "nonsense"}), "0");
    EXPECT_EQ(tell({"PUBLISH", prefix + own, "1:91:31:0"}), "1");
    EXPECT_EQ(tell({"PUBLISH", prefix + own, "garbage"}), "1");
    EXPECT_EQ(tell({"PUBLISH", prefix + ack + ":x:m1", "1:41:41:0"}), "1");
    EXPECT_EQ(tell(call("set", own_books, {prefix, "", "by"})).substr(0, 7), "(error)");
    EXPECT_EQ(run_as("module-m2", 1, call("set", {other, counter, ack_index}, {prefix, "", "7", "late"}))
                  .find("(error)"),
              std::string::npos);
    EXPECT_TRUE(watch->prints("late")) << watch->out() << watch->err();
    EXPECT_THAT(watch->out(), Not(HasSubstr("slotid=9")));
    EXPECT_EQ(run_cgctl({"del", "app_cg_card_check_ack", "--keys", "0"}).status, 0)
        << "the daemon still can clear the answers away";
    EXPECT_EQ(run_as_admin(1, {"EXISTS", other, card_key()}), "1") << "the card is there, the answer is not";
}

TEST_F(Module, HasTheSameRightsInEveryDatabase)
{
    start_used();
    Listener listener = listen();
    EXPECT_EQ(tell({"HSET", own, "9", "x"}, 28), "1") << "nobody reads answers there";
    EXPECT_THAT(listener.heard(), IsEmpty());
}

// On a server without functions, so that loading them and registering the run is part of it.
TEST_F(Daemon, DoesAWholeCardsWorkWithItsRights)
{
    start({"m1"});
    become("app_cg");
    ASSERT_EQ(run_cgctl({"get", "card_info"}).err, "") << "loads the functions";
    become("module-m1");
    ASSERT_EQ(run_cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=3", "mod_name=m1"}).status, 0);
    become("app_cg-admin");
    ASSERT_EQ(run_cgctl({"role", "master"}).status, 0);
    ASSERT_EQ(run_cgctl({"card", "plug", "1/3"}).status, 0);
    ASSERT_EQ(run_cgctl({"set", "app_cg_card_bak_info", "devid=1", "slotid=3"}).status, 0);
    become("app_cg");
    const auto watch =
        start_cgctl({"watch", "card_info", "dp_lib_grole", "app_cg_card_check_ack", "--existing"});
    const std::vector<std::vector<std::string>> work{
        {"get", "dp_lib_grole"},
        {"get", "card_info"},
        {"set", "app_cg_card_check_info", "devid=1", "slotid=3", "type=1", "--fields"},
        {"set", "app_cg_mom_deny_check_result", "card_tipc_nodeid=9", "stat=APP_CG_CHECK_DENY"},
        {"set", "app_cg_card_deny_check_result", "devid=1", "stat=APP_CG_CHECK_DENY", "--fields"},
        {"set", "dm_set_card_custom_st", "t_devid=1", "t_mod_name=APP_CG", "status=CANNOT_STARTUP"},
        {"set", "im_card_power_onoff", "devid=1", "mod_name=cap"},
        {"del", "app_cg_card_check_info", "devid=1", "slotid=3"},
        {"del", "app_cg_card_check_ack", "devid=1", "slotid=3", "mod_name=m1"},
        {"del", "app_cg_card_check_ack", "devid=1", "slotid=3", "--keys", "3"},
        {"del", "app_cg_mom_deny_check_result", "card_tipc_nodeid=9"},
        {"del", "app_cg_card_deny_check_result", "devid=1"},
        {"del", "dm_set_card_custom_st", "t_devid=1", "t_mod_name=APP_CG"},
        {"get", "app_cg_card_bak_info"},
        {"del", "app_cg_card_bak_info", "devid=1", "slotid=3"},
    };
    for (const std::vector<std::string> &verb : work) {
        const Outcome outcome = run_cgctl(verb);
        EXPECT_EQ(outcome.status, 0) << testing::PrintToString(verb) << outcome.err;
        EXPECT_EQ(outcome.err, "") << testing::PrintToString(verb);
    }
    EXPECT_THAT(run_as_admin(1, {"HGET", "@runs", "library"}), store::library_digest());
    become("module-m1");
    EXPECT_EQ(run_cgctl({"set", "app_cg_card_check_ack", "devid=1", "mod_name=m1"}).status, 0);
    EXPECT_TRUE(watch->prints("mod_name=\"m1\"")) << watch->err();
}

TEST_F(Daemon, WritesNothingThatIsNotItsOwn)
{
    start_used();
    become("app_cg");
    ASSERT_EQ(run_cgctl({"get", "card_info"}).status, 0) << "registers the run of the server";
    const std::string before = state();
    for (const std::vector<std::string> &verb :
         std::vector<std::vector<std::string>>{{"set", "card_info", "devid=1"},
                                               {"card", "pull", "0/1/3"},
                                               {"role", "master"},
                                               {"set", "app_cg_card_check_ack", "devid=1", "mod_name=m1"},
                                               {"set", "app_cg_card_bak_info", "devid=1"}}) {
        EXPECT_EQ(run_cgctl(verb).status, 1) << testing::PrintToString(verb);
    }
    EXPECT_EQ(state(), before);
}

TEST_F(Watcher, SeesEverythingThroughTheCommand)
{
    start_used();
    become("app_cg-watch");
    for (const auto &record : foreign_records()) {
        const std::string type = record.second.substr(0, record.second.find(':'));
        const Outcome outcome = run_cgctl({"get", type, "--json"});
        EXPECT_EQ(outcome.status, 0) << type << outcome.err;
    }
    EXPECT_EQ(run_cgctl({"list"}).status, 0);
    const auto watch = start_cgctl({"watch", "--records"});
    ASSERT_TRUE(watch->says("app_cg_card_check_ack")) << watch->err();
    ASSERT_EQ(run_as("module-m1", 1, call("set", own_books, {prefix, "", "7", "seen"})), "3");
    EXPECT_TRUE(watch->prints("seen")) << watch->err();
}

TEST_F(WhoDoesNotLogIn, CanDoNothing)
{
    start_used();
    const std::string before = state();
    unsetenv("VX_MOM_AUTH_FILE");
    store::Inspection nobody(1, std::chrono::seconds(20));
    EXPECT_FALSE(nobody.is_open());
    EXPECT_THAT(nobody.problem(), HasSubstr("NOAUTH"));
    EXPECT_EQ(run_cgctl({"list"}).status, 1);
    EXPECT_EQ(state(), before);
}

} // namespace cg
