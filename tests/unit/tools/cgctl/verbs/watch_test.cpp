// cgctl watch, as a process of its own on a real store.
#include <gtest/gtest.h>

#include <csignal>
#include <iostream>
#include <regex>
#include <sstream>

#include "access/store.h"
#include "base/output.h"
#include "p_dev.pb-c.h"
#include "p_libpub.pb-c.h"
#include "records/record_types.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

class WatchVerb : public StoreTest
{
protected:
    static std::vector<Json> objects(const std::string &text)
    {
        std::vector<Json> result;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            result.push_back(Json::parse(line));
        }
        return result;
    }

    // Plays the daemon: writes a record because of the one of another type that is in the store, so that the
    // write's cause names that one.
    static void write_because_of(const ProtobufCMessageDescriptor &cause, const char *type_name,
                                 const Json &fields)
    {
        const Output output{std::cout, std::cerr};
        Store store(output);
        const RecordType &type = record_type(type_name);
        const MessagePtr record = from_json(*type.descriptor, fields);
        const auto causes = store.client().subscribe(1, cause, [&](const store::Change &change) {
            if (change.record != nullptr) {
                EXPECT_TRUE(store.client().set(type.db, *record));
                store.loop().stop();
            }
        });
        ASSERT_TRUE(causes) << causes.reason;
        store.loop().run();
    }
};

} // namespace

TEST_F(WatchVerb, TellsEveryChangeInOrderWithItsContent)
{
    const auto watch = start_cgctl({"watch", "card_info", "--json", "--count", "3"});
    ASSERT_TRUE(watch->prints("\"subscribed\"")) << watch->err();
    cgctl({"card", "plug", "1/3", "--name", "fan"});
    cgctl({"card", "offline", "1/3"});
    cgctl({"card", "pull", "1/3"});
    EXPECT_EQ(watch->wait(), 0) << watch->err();
    const std::vector<Json> lines = objects(watch->out());
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0]["cmd"], "subscribed");
    EXPECT_EQ(lines[0]["type"], "p_dev.card_info");
    EXPECT_EQ(lines[1]["cmd"], "set");
    EXPECT_EQ(lines[1]["db"], 1);
    EXPECT_EQ(lines[1]["key"], (Json{{"t_mod", 0}, {"devid", 1}, {"slotid", 3}, {"sslotid", 0}}));
    EXPECT_EQ(lines[1]["record"]["is_online"], true);
    EXPECT_EQ(lines[2]["cmd"], "fields");
    EXPECT_EQ(lines[2]["record"]["is_online"], false);
    EXPECT_EQ(lines[2]["record"]["name"], "fan");
    EXPECT_EQ(lines[3]["cmd"], "deleted");
    EXPECT_EQ(lines[3]["record"]["name"], "fan");
    EXPECT_TRUE(std::regex_match(lines[1]["time"].get<std::string>(),
                                 std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)")));
}

TEST_F(WatchVerb, TellsOfExistingRecordsOnlyWhenAsked)
{
    cgctl({"card", "plug", "1/3"});
    const auto with = start_cgctl({"watch", "card_info", "--json", "--existing", "--count", "1"});
    EXPECT_EQ(with->wait(), 0);
    EXPECT_EQ(objects(with->out())[0]["key"]["slotid"], 3);
    const auto without = start_cgctl({"watch", "card_info", "--json", "--count", "1"});
    ASSERT_TRUE(without->prints("\"subscribed\""));
    cgctl({"card", "plug", "1/4"});
    EXPECT_EQ(without->wait(), 0);
    const std::vector<Json> lines = objects(without->out());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1]["key"]["slotid"], 4);
}

TEST_F(WatchVerb, WatchesEveryTypeInItsOwnDatabase)
{
    const auto watch = start_cgctl({"watch", "--records", "--json", "--count", "3"});
    ASSERT_TRUE(eventually([&] { return objects(watch->out()).size() == 9; })) << watch->out();
    cgctl({"set", "im_card_power_onoff", "devid=1", "mod_name=cap"});
    ASSERT_TRUE(watch->prints("s_dev.im_card_power_onoff\",\"key"));
    cgctl({"set", "app_cg_card_deny_check_result", "devid=1"});
    ASSERT_TRUE(watch->prints("app_cg_card_deny_check_result\",\"key"));
    cgctl({"role", "master"});
    EXPECT_EQ(watch->wait(), 0);
    const std::vector<Json> lines = objects(watch->out());
    EXPECT_EQ(lines[9]["db"], 33);
    EXPECT_EQ(lines[10]["db"], 28);
    EXPECT_EQ(lines[11]["key"], Json::object());
}

TEST_F(WatchVerb, TextShowsWhatIsSetAndWhatFellBackToItsDefault)
{
    const auto watch = start_cgctl({"watch", "card_info", "--count", "2"});
    ASSERT_TRUE(watch->says("cgctl: subscribed to p_dev.card_info in database 1\n"));
    cgctl({"set", "card_info", "devid=1", "is_online=1", "name=a\nb"});
    cgctl({"set", "--fields", "card_info", "devid=1", "is_online=0"});
    EXPECT_EQ(watch->wait(), 0);
    const std::string key = " p_dev.card_info t_mod=0 devid=1 slotid=0 sslotid=0: ";
    EXPECT_NE(watch->out().find("Z set" + key + "is_online=true name=\"a\\nb\"\n"), std::string::npos)
        << watch->out();
    EXPECT_NE(watch->out().find("Z fields" + key + "is_online=false name=\"a\\nb\"\n"), std::string::npos)
        << watch->out();
}

TEST_F(WatchVerb, WithoutTypesItTellsWhatHappensToCards)
{
    cgctl({"card", "plug", "1/9"}); // was there before
    const auto watch = start_cgctl({"--socket", folder_.path("none"), "watch", "--json", "--count", "8"});
    ASSERT_TRUE(watch->prints("\"listening\"")) << watch->err();
    cgctl({"role", "slave"});
    ASSERT_TRUE(watch->prints("\"slave\""));
    cgctl({"card", "plug", "1/3", "--tipc", "1003", "--name", "fan"});
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=3"});
    cgctl({"set", "app_cg_card_check_ack", "devid=1", "slotid=3", "mod_name=m1", "ret=7", "reason=hot"});
    write_because_of(p_libpub__app_cg_card_check_ack__descriptor, "app_cg_mom_deny_check_result",
                     {{"index", {{"card_tipc_nodeid", 1003}}}, {"stat", "APP_CG_CHECK_DENY"}});
    ASSERT_TRUE(watch->prints("\"decision\""));
    cgctl({"set", "im_card_power_onoff", "devid=1", "slotid=3", "mod_name=cap"});
    ASSERT_TRUE(watch->prints("\"power\""));
    cgctl({"card", "offline", "1/3"});
    cgctl({"card", "pull", "1/3"});
    EXPECT_EQ(watch->wait(), 0) << watch->err();
    std::string kinds;
    for (const Json &event : objects(watch->out())) {
        EXPECT_EQ(event["version"], 1);
        kinds += event["event"].get<std::string>() + ' ';
    }
    EXPECT_EQ(kinds, "listening role plugged asked answer decision power offline pulled ");
    const std::vector<Json> events = objects(watch->out());
    EXPECT_EQ(events[2]["card"], "1/3/0");
    EXPECT_EQ(events[2]["name"], "fan");
    EXPECT_EQ(events[4]["answer"]["ret"], 7);
    EXPECT_EQ(events[5]["decision"]["outcome"], "denied");
    EXPECT_EQ(events[5]["decision"]["decider"], "m1");
    EXPECT_EQ(events[5]["decision"]["reason"], "hot");
}

// A request that another life of the daemon makes again is two events of one change: the end of a check, and
// the beginning of the next.
TEST_F(WatchVerb, NoLineIsPrintedBeyondTheCount)
{
    const auto watch = start_cgctl({"--socket", folder_.path("none"), "watch", "--count", "3"});
    ASSERT_TRUE(watch->says("cgctl: listening\n")) << watch->err();
    cgctl({"card", "plug", "1/3"});
    ASSERT_TRUE(watch->prints(": plugged")) << watch->out();
    for (int life = 1; life <= 2; ++life) {
        write_because_of(p_dev__card_info__descriptor, "app_cg_card_check_info",
                         {{"index", {{"devid", 1}, {"slotid", 3}, {"sslotid", 0}}}});
        ASSERT_TRUE(watch->prints(": check requested\n")) << watch->out();
    }
    EXPECT_EQ(watch->wait(), 0) << watch->err();
    const std::string lines = watch->out();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 3) << lines;
}

TEST_F(WatchVerb, EventsAreLinesForPeopleToo)
{
    const auto watch = start_cgctl({"--socket", folder_.path("none"), "watch"});
    ASSERT_TRUE(watch->says("cgctl: listening\n")) << watch->err();
    cgctl({"card", "plug", "1/3", "--name", "a\nb", "--node-type", "mb"});
    ASSERT_TRUE(watch->prints(" 1/3/0 a\\nb: plugged, mb, online\n")) << watch->out();
    stop_server();
    ASSERT_TRUE(watch->prints("lost the store, database 1: ")) << watch->out();
    start_server(); // empty, so the card is gone
    ASSERT_TRUE(watch->prints("the store is back, database 1, with other data than before\n"))
        << watch->out();
    ASSERT_TRUE(watch->prints(": pulled")) << watch->out();
    watch->send(SIGTERM);
    EXPECT_EQ(watch->wait(), 0);
}

TEST_F(WatchVerb, EndsWellWhenToldTo)
{
    for (const int signal_number : {SIGTERM, SIGINT}) {
        const auto watch = start_cgctl({"watch", "card_info", "--json"});
        ASSERT_TRUE(watch->prints("\"subscribed\""));
        watch->send(signal_number);
        EXPECT_EQ(watch->wait(), 0);
    }
}

TEST_F(WatchVerb, ResumesWhenTheStoreReturnsAndTellsOnlyOfWhatChanged)
{
    cgctl({"card", "plug", "1/3"});
    const auto watch = start_cgctl({"watch", "card_info", "--json"});
    ASSERT_TRUE(watch->prints("\"subscribed\""));
    stop_server();
    ASSERT_TRUE(watch->says("lost the store")) << watch->err();
    start_server(); // empty, so the card is gone
    ASSERT_TRUE(watch->says("the store is back")) << watch->err();
    ASSERT_TRUE(watch->prints("\"deleted\"")) << watch->out();
    cgctl({"card", "plug", "1/4"});
    ASSERT_TRUE(watch->prints("\"slotid\":4")) << watch->out();
    watch->send(SIGTERM);
    EXPECT_EQ(watch->wait(), 0);
    for (const Json &notice : objects(watch->err())) {
        EXPECT_TRUE(notice.contains("notice")) << notice;
    }
}

} // namespace cg
