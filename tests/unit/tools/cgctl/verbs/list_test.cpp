// card, list and show, on a real store.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <iostream>
#include <set>

#include "command_line/cli.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

class CardVerbs : public StoreTest
{
protected:
    Json list() { return Json::parse(cgctl({"list", "--json"}))["cards"]; }

    Json card_info(const std::string &slot)
    {
        return Json::parse(cgctl({"get", "card_info", "devid=1", "slotid=" + slot, "--json"}))["record"];
    }

    // What the daemon writes when a card is admitted or denied.
    void publish(const std::string &slot, const std::string &stat)
    {
        cgctl({"set", "app_cg_mom_deny_check_result", "card_tipc_nodeid=100" + slot, "stat=" + stat});
        cgctl({"set", "app_cg_card_deny_check_result", "devid=1", "slotid=" + slot, "stat=" + stat});
    }
};

} // namespace

TEST_F(CardVerbs, APluggedCardHasAllThatWasAskedFor)
{
    cgctl({"card", "plug", "1/3", "--type", "200", "--node-type", "sub_lc", "--nodeid", "7", "--tipc", "0x10",
           "--name", "line card", "--serial", "00e0fc", "--offline"});
    const Json card = card_info("3");
    EXPECT_EQ(card["config_dev_type"], 200);
    EXPECT_EQ(card["is_online"], false);
    EXPECT_EQ(card["name"], "line card");
    EXPECT_EQ(card["static_info"]["node_type"], "DM_TYPE_SUB_LC");
    EXPECT_EQ(card["static_info"]["index"]["type"], 200);
    EXPECT_EQ(card["card_nodeid"], 7);
    EXPECT_EQ(card["card_tipc_nodeid"], 16);
    EXPECT_EQ(card["serial"], "00e0fc");
}

TEST_F(CardVerbs, NodeTypesGoByShortNameByFullNameAndByNumber)
{
    for (const char *type : {"mb", "MB", "DM_TYPE_MB", "2"}) {
        cgctl({"card", "plug", "1/3", "--node-type", type});
        EXPECT_EQ(card_info("3")["static_info"]["node_type"], "DM_TYPE_MB") << type;
    }
}

TEST_F(CardVerbs, IdsDerivedFromThePositionAreUnique)
{
    std::set<int> nodes;
    std::set<int> tipc_nodes;
    for (const char *position : {"0/0/0", "1/0/0", "0/1/0", "0/0/1", "1/1/1", "127/255/255"}) {
        cgctl({"card", "plug", position});
    }
    const Json records = Json::parse(cgctl({"get", "card_info", "--json"}))["records"];
    for (const Json &record : records) {
        nodes.insert(record["record"]["card_nodeid"].get<int>());
        tipc_nodes.insert(record["record"]["card_tipc_nodeid"].get<int>());
    }
    EXPECT_EQ(nodes.size(), 6U);
    EXPECT_EQ(tipc_nodes.size(), 6U);
}

TEST_F(CardVerbs, OnlineAndOfflineChangeNothingElse)
{
    cgctl({"card", "plug", "1/3", "--name", "fan", "--serial", "01"});
    Json before = card_info("3");
    EXPECT_EQ(before["is_online"], true);
    cgctl({"card", "offline", "1/3/0"});
    Json after = card_info("3");
    EXPECT_EQ(after["is_online"], false);
    cgctl({"card", "online", "1/3/0"});
    EXPECT_EQ(card_info("3"), before);
}

TEST_F(CardVerbs, AnUnknownCardIsAFailureAndIsNotMade)
{
    for (const char *verb : {"online", "offline", "pull"}) {
        const Outcome outcome = run_cgctl({"card", verb, "1/3/0"});
        EXPECT_EQ(outcome.status, 1) << verb;
        EXPECT_EQ(outcome.err, "cgctl: no card at 1/3/0; `cgctl list` shows those that there are\n");
    }
    EXPECT_EQ(list().size(), 0U);
    EXPECT_EQ(run_cgctl({"show", "1/3/0"}).status, 1);
}

TEST_F(CardVerbs, APulledCardIsGone)
{
    cgctl({"card", "plug", "1/3"});
    cgctl({"card", "pull", "1/3"});
    EXPECT_EQ(list().size(), 0U);
}

TEST_F(CardVerbs, VerdictsFollowWhatTheDaemonPublished)
{
    for (const char *slot : {"1", "2", "3", "4"}) {
        cgctl(
            {"card", "plug", std::string("1/") + slot, "--tipc", std::string("100") + slot, "--name", slot});
    }
    publish("1", "APP_CG_CHECK_PASS");
    publish("2", "APP_CG_CHECK_DENY");
    cgctl({"set", "dm_set_card_custom_st", "t_devid=1", "t_slotid=2", "t_mod_name=APP_CG",
           "t_reason=not compatible", "level=DM_CTM_APP_CG", "status=CANNOT_STARTUP"});
    cgctl({"set", "dm_set_card_custom_st", "t_devid=1", "t_slotid=2", "t_mod_name=ZZZ", "status=OFFLINE"});
    cgctl({"set", "im_card_power_onoff", "devid=1", "slotid=2", "mod_name=cap", "cause=not compatible"});
    cgctl(
        {"set", "app_cg_card_check_info", "devid=1", "slotid=2"}); // about to be withdrawn: the result counts
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=3"});
    cgctl({"set", "im_card_power_onoff", "devid=1", "slotid=4", "mod_name=cap", "updown=true"});
    const Json cards = list();
    ASSERT_EQ(cards.size(), 4U);
    EXPECT_EQ(cards[0]["verdict"], "passed");
    EXPECT_EQ(cards[0]["results"],
              (Json{{"by_tipc", "PASS"}, {"by_position", "PASS"}, {"custom_status", nullptr}}));
    EXPECT_EQ(cards[1],
              (Json{{"card", "1/2/0"},
                    {"devid", 1},
                    {"slotid", 2},
                    {"sslotid", 0},
                    {"name", "2"},
                    {"node_type", "DM_TYPE_LC"},
                    {"is_online", true},
                    {"verdict", "denied"},
                    {"results",
                     {{"by_tipc", "DENY"}, {"by_position", "DENY"}, {"custom_status", "CANNOT_STARTUP"}}},
                    {"request", true},
                    {"power_off", true},
                    {"state", "waiting"},
                    {"unseen", false},
                    {"denied", false},
                    {"decider", nullptr},
                    {"since", nullptr},
                    {"waiting_for", Json::array()},
                    {"any_will_do", false},
                    {"requested_at", nullptr},
                    {"time_left_s", nullptr},
                    {"answers", Json::array()},
                    {"decision", nullptr},
                    {"reason", nullptr}}));
    EXPECT_EQ(cards[2]["verdict"], "waiting");
    EXPECT_EQ(cards[2]["request"], true);
    EXPECT_EQ(cards[3]["verdict"], "none");
    EXPECT_EQ(cards[3]["power_off"], false);
}

TEST_F(CardVerbs, TheTableIsSortedByPositionAndCannotBeForged)
{
    cgctl({"card", "plug", "1/10", "--name", "a\nb"});
    cgctl({"card", "plug", "1/9", "--offline", "--name", "Lüfter"});
    const Outcome table = run_cgctl({"list"});
    EXPECT_EQ(table.out, "CARD    NAME    TYPE  STATE      SINCE  POWER  REASON\n"
                         "1/9/0   Lüfter  lc    offline           -\n"
                         "1/10/0  a\\nb    lc    undecided         -\n");
    EXPECT_TRUE(table.err.starts_with("cgctl: 2 cards: 1 undecided, 1 offline\n")) << table.err;
    EXPECT_EQ(run_cgctl({}).out, table.out) << "is the list";
}

TEST_F(CardVerbs, FiltersGoByPositionAndByState)
{
    cgctl({"card", "plug", "1/3", "--offline"});
    cgctl({"card", "plug", "1/3/1"});
    cgctl({"card", "plug", "1/4"});
    cgctl({"card", "plug", "2/3"});
    const auto found = [](const std::vector<std::string> &arguments) {
        std::vector<std::string> all{"list", "--json"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        std::string positions;
        const Json listed = run_cgctl(all).json();
        for (const Json &card : listed["cards"]) {
            positions += card["card"].get<std::string>() + ' ';
        }
        return positions;
    };
    EXPECT_EQ(found({"1"}), "1/3/0 1/3/1 1/4/0 ");
    EXPECT_EQ(found({"1/3"}), "1/3/0 1/3/1 ");
    EXPECT_EQ(found({"1/3/1", "2"}), "1/3/1 2/3/0 ");
    EXPECT_EQ(found({"--state", "offline"}), "1/3/0 ");
    EXPECT_EQ(found({"--state", "offline,undecided", "1/3"}), "1/3/0 1/3/1 ");
    EXPECT_EQ(found({"--state", "waiting"}), "");
}

TEST_F(CardVerbs, NothingFoundIsAFailureAndAnEmptyChassisIsNone)
{
    const Outcome empty = run_cgctl({"list"});
    EXPECT_EQ(empty.status, 0);
    EXPECT_EQ(empty.out, "");
    EXPECT_NE(empty.err.find("cgctl: no cards\n"), std::string::npos) << empty.err;
    const Outcome none = run_cgctl({"list", "1/9", "--state", "denied,waiting"});
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.err.find("cgctl: no card at 1/9 is denied or waiting; `cgctl list` shows"),
              std::string::npos)
        << none.err;
    const Outcome json = run_cgctl({"list", "1/9", "--json"});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(json.json()["cards"], Json::array());
}

TEST_F(CardVerbs, APositionThatOnlyARequestNamesIsAbsent)
{
    cgctl({"set", "im_card_power_onoff", "devid=1", "slotid=2", "mod_name=cap"});
    const Outcome table = run_cgctl({"list"});
    EXPECT_NE(table.out.find("\n1/2/0  -     -     absent         off\n"), std::string::npos) << table.out;
    EXPECT_EQ(list()[0]["state"], "absent");
    const std::string shown = cgctl({"show", "1/2/0"});
    EXPECT_NE(shown.find("a request to power it off stands\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("s_dev.im_card_power_onoff"), std::string::npos) << shown;
}

TEST_F(CardVerbs, WhatIsNotAvailableIsSaidOnceAndIsNoError)
{
    cgctl({"card", "plug", "1/2"});
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=2"});
    const Outcome table = run_cgctl({"--socket", "/nonexistent", "list", "--history", "/nonexistent/h"});
    EXPECT_EQ(table.status, 0);
    EXPECT_NE(table.out.find(" waiting "), std::string::npos) << table.out;
    EXPECT_EQ(std::count(table.err.begin(), table.err.end(), '\n'), 3) << table.err;
    EXPECT_NE(table.err.find("the daemon does not answer, so cards that come now may start unchecked: "),
              std::string::npos)
        << table.err;
    const Json json = run_cgctl({"--socket", "/nonexistent", "list", "--json"}).json();
    EXPECT_EQ(json["version"], 1);
    EXPECT_TRUE(json["sources"]["daemon"]["problem"].is_string()) << json["sources"];
}

TEST_F(CardVerbs, ACardWithoutStaticPartIsShownToo)
{
    cgctl({"set", "card_info", "devid=1", "slotid=3"});
    EXPECT_EQ(list()[0]["node_type"], "DM_TYPE_UNKNOWN");
    cgctl({"set", "card_info", "devid=1", "slotid=3", "static_info.node_type=99"});
    EXPECT_EQ(list()[0]["node_type"], "99");
}

TEST_F(CardVerbs, ARecordThatDoesNotDecodeIsNotHidden)
{
    cgctl({"card", "plug", "1/3"});
    cgctl({"card", "plug", "1/4"});
    ASSERT_EQ(tell_server("SELECT 1\r\nHSET p_dev.card_info:0:1:3:0 6 junk\r\n"), "+OK\r\n:0\r\n+OK\r\n");
    const Outcome shown = run_cgctl({"show", "1/3/0"});
    EXPECT_EQ(shown.status, 1);
    EXPECT_TRUE(shown.err.starts_with("cgctl: the record does not decode: record p_dev.card_info:0:1:3:0"))
        << shown.err;
    EXPECT_EQ(std::count(shown.err.begin(), shown.err.end(), '\n'), 1) << shown.err;
    EXPECT_EQ(run_cgctl({"show", "1/4/0"}).status, 0) << "is another card";

    const Outcome text = run_cgctl({"list"});
    EXPECT_EQ(text.status, 1);
    EXPECT_NE(text.out.find("\n1/4/0 "), std::string::npos) << text.out;
    EXPECT_NE(text.err.find("cgctl: 1 record that does not decode is left out\n"), std::string::npos)
        << text.err;
    for (const auto &[verb, member] : {std::pair{std::vector<std::string>{"list", "--json"}, "cards"},
                                       {{"get", "card_info", "--json"}, "records"}}) {
        const Outcome outcome = run_cgctl(verb);
        EXPECT_EQ(outcome.status, 1) << member;
        EXPECT_EQ(outcome.json()[member].size(), 1U) << outcome.out;
        EXPECT_EQ(outcome.json()["left_out"], (Json{"p_dev.card_info:0:1:3:0"}));
    }
}

TEST_F(CardVerbs, AServerWithTooFewDatabasesIsNamedInOneLine)
{
    const Outcome outcome = run_cgctl({"get", "card_info", "--db", "70", "--json"});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_NE(Json::parse(outcome.err)["error"].get<std::string>().find("'databases 71'"), std::string::npos)
        << outcome.err;
    const Outcome text = run_cgctl({"get", "card_info", "--db", "70"});
    EXPECT_EQ(text.status, 2);
    EXPECT_EQ(std::count(text.err.begin(), text.err.end(), '\n'), 1) << text.err;
}

TEST_F(CardVerbs, AReaderThatGoesAwayIsNoError)
{
    cgctl({"card", "plug", "1/3"});
    Child child([] {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
            return 99;
        }
        close(ends[0]);
        close(ends[1]);
        (void)signal(SIGPIPE, SIG_IGN);
        return run({"show", "1/3"}, std::cout, std::cerr);
    });
    EXPECT_EQ(child.wait(), 1);
    EXPECT_EQ(child.err(), "");
}

TEST_F(CardVerbs, WithoutTheServerOfOtherDatabasesTheCardsAreShownAllTheSame)
{
    GlobalStore global;
    cgctl({"card", "plug", "1/2", "--tipc", "1002"});
    publish("2", "APP_CG_CHECK_PASS");
    EXPECT_EQ(list()[0]["power_off"], false);
    global.kill();
    setenv("VX_MOM_DEADLINE_MS", "200", 1);
    const std::string named =
        "the store at " + global.endpoint() + " cannot be used, databases 28 and 33 (-110: ";
    const std::string missing = "; results by position, custom status and power-off requests are not shown\n";

    const Outcome table = run_cgctl({"list"});
    EXPECT_EQ(table.status, 1);
    EXPECT_NE(table.out.find("\n1/2/0  card 1/2/0  lc    passed (cause unknown)         ?\n"),
              std::string::npos)
        << table.out;
    EXPECT_NE(table.err.find("cgctl: " + named), std::string::npos) << table.err;
    EXPECT_TRUE(table.err.ends_with(missing)) << table.err;

    const Outcome listed = run_cgctl({"list", "--json"});
    EXPECT_EQ(listed.status, 1);
    const Json card = listed.json()["cards"][0];
    EXPECT_EQ(card["verdict"], "passed");
    EXPECT_EQ(card["results"],
              (Json{{"by_tipc", "PASS"}, {"by_position", nullptr}, {"custom_status", nullptr}}));
    EXPECT_EQ(card["power_off"], nullptr);
    const Json away = listed.json()["away"];
    ASSERT_EQ(away.size(), 1U) << away;
    EXPECT_EQ(away[0]["databases"], (Json{28, 33}));
    EXPECT_EQ(away[0]["server"], global.endpoint());
    EXPECT_TRUE(away[0]["problem"].is_string());
    EXPECT_NE(listed.err.find("{\"error\":\"" + named), std::string::npos) << listed.err;

    const Outcome shown = run_cgctl({"show", "1/2", "--json"});
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.json()["away"], away);
    EXPECT_EQ(shown.json()["power_off"], nullptr);
    EXPECT_EQ(shown.json()["records"].size(), 2U) << "those of database 1";
    EXPECT_TRUE(run_cgctl({"show", "1/2"}).err.ends_with(missing));
    unsetenv("VX_MOM_DEADLINE_MS");
    global.start();
    const Outcome again = run_cgctl({"list", "--json"});
    EXPECT_EQ(again.status, 0);
    EXPECT_FALSE(again.json().contains("away"));
}

TEST_F(CardVerbs, WithoutTheServerOfTheCardsThereIsNothingToShow)
{
    const GlobalStore global;
    stop_server();
    setenv("VX_MOM_DEADLINE_MS", "200", 1);
    for (const std::vector<std::string> &verb : {std::vector<std::string>{"list"}, {"show", "1/2"}}) {
        const Outcome outcome = run_cgctl(verb);
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.out, "");
        EXPECT_TRUE(outcome.err.starts_with("cgctl: the store at " + server_.endpoint() +
                                            " cannot be used, database 1 (-110: "))
            << outcome.err;
    }
    unsetenv("VX_MOM_DEADLINE_MS");
}

TEST_F(CardVerbs, ShowGathersEveryRecordOfTheCardAndOfNoOther)
{
    cgctl({"card", "plug", "1/3", "--tipc", "1003"});
    cgctl({"card", "plug", "1/4", "--tipc", "1004"});
    publish("3", "APP_CG_CHECK_PASS");
    publish("4", "APP_CG_CHECK_PASS");
    cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=3", "mod_name=m1", "reason=x"});
    cgctl({"set", "app_cg_card_bak_info", "devid=1", "slotid=3", "node_type=DM_TYPE_LC"});
    const Json shown = Json::parse(cgctl({"show", "1/3", "--json"}));
    EXPECT_EQ(shown["verdict"], "passed");
    std::set<std::string> types;
    for (const Json &record : shown["records"]) {
        EXPECT_TRUE(types.insert(record["type"]).second) << "twice: " << record["type"];
    }
    EXPECT_EQ(types,
              (std::set<std::string>{"p_dev.card_info", "p_libpub.app_cg_mom_deny_check_result",
                                     "p_libpub.app_cg_card_deny_check_result",
                                     "p_libpub.app_cg_card_check_ack", "p_libpub.app_cg_card_bak_info"}));
    const std::string text = cgctl({"show", "1/3/0"});
    EXPECT_TRUE(text.starts_with("card 1/3/0\n  name      card 1/3/0\n  type      lc, configured as 1\n"
                                 "  state     passed (cause unknown)\n"))
        << text;
    EXPECT_NE(text.find("p_libpub.app_cg_card_deny_check_result (database 28)\n"), std::string::npos) << text;
    EXPECT_NE(text.find("  index.card_tipc_nodeid=1003\n"), std::string::npos) << text;
}

} // namespace cg
