// The list with a history beside the store: who decided, who was silent, since when.
#include "cards/overview.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

#include "admission/card_text.h"
#include "history/writer.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

using namespace std::chrono_literals;
using admission::CardTracker;
using admission::Decision;
using Ended = admission::Outcome;
using admission::Time;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class OverviewTest : public StoreTest
{
protected:
    OverviewTest() : writer_(folder_.path("h"), now, [](const std::string &) {}) { writer_.alive(now); }

    // With a result that says nothing of its writer.
    void plug(int slot, const std::string &stat = "")
    {
        const std::string tipc = std::to_string(1000 + slot);
        cgctl({"card", "plug", "1/" + std::to_string(slot), "--tipc", tipc, "--name", "lc"});
        if (!stat.empty()) {
            cgctl({"set", "app_cg_mom_deny_check_result", "card_tipc_nodeid=" + tipc, "stat=" + stat});
            sign("p_libpub.app_cg_mom_deny_check_result:" + tipc, "unknown");
        }
    }
    void sign(const std::string &key, const std::string &origin) const
    {
        EXPECT_THAT(tell_server("SELECT 1\nHSET " + key + " by \"" + origin + "\"\n"), HasSubstr("0"));
    }
    // The daemon wrote the result, since the time was up, or for an answer of m1.
    void decide(int slot, const std::string &stat, bool by_timer = false)
    {
        plug(slot, stat);
        sign("p_libpub.app_cg_mom_deny_check_result:" + std::to_string(1000 + slot),
             text_of(origin_of(slot, by_timer)));
    }
    static store::Origin origin_of(int slot, bool by_timer)
    {
        const std::string answer = "p_libpub.app_cg_card_check_ack:1:" + std::to_string(slot) + ":0:m1";
        return {"daemon", static_cast<uint64_t>(slot),
                by_timer ? store::Cause{store::Cause::Kind::timer}
                         : store::Cause{store::Cause::Kind::record, 7, answer}};
    }
    void record(int slot, Ended outcome, bool admitted, const std::string &decider,
                const std::vector<std::string> &silent)
    {
        Decision decision;
        decision.card.position = {1, slot, 0};
        decision.card.name = "lc";
        decision.outcome = outcome;
        decision.admitted = admitted;
        decision.decider = decider;
        decision.silent = silent;
        decision.reason = outcome == Ended::denied ? "too hot" : "";
        decision.requested_at = now - 90s;
        decision.decided_at = now - 88s;
        decision.role = 1;
        decision.result.origin = origin_of(slot, outcome == Ended::silence);
        decision.answers.push_back(
            {"m1", outcome == Ended::denied ? 1 : 0, decision.reason, now - 88s, true, 2s});
        writer_.add(decision);
    }
    cg::Outcome list(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), {"--history", folder_.path("h"), "--socket", folder_.path("none")});
        return run_cgctl(arguments);
    }

    Time now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    history::Writer writer_;
};

} // namespace

TEST_F(OverviewTest, TheHistoryTellsWhoDecidedAndWhoWasSilent)
{
    decide(2, "APP_CG_CHECK_PASS", true);
    decide(3, "APP_CG_CHECK_DENY");
    record(2, Ended::silence, true, "", {"m2"});
    record(3, Ended::denied, false, "m1", {});
    const auto table = list({"list"});
    EXPECT_EQ(table.status, 0);
    EXPECT_THAT(table.out, HasSubstr("admitted by time-out of m2"));
    EXPECT_THAT(table.out, HasSubstr("denied by m1"));
    EXPECT_THAT(table.out, HasSubstr("too hot"));
    EXPECT_THAT(table.out, HasSubstr(" s ago)"));
    EXPECT_THAT(table.err,
                testing::StartsWith("cgctl: 2 cards: 1 admitted by time-out, 1 denied\n"
                                    "cgctl: the daemon does not answer, so cards that come now may "
                                    "start unchecked: "));
    const Json cards = list({"list", "--json"}).json()["cards"];
    EXPECT_EQ(cards[0]["state"], "silence");
    EXPECT_EQ(cards[0]["verdict"], "passed");
    EXPECT_EQ(cards[0]["decision"]["silent"], (Json{"m2"}));
    EXPECT_EQ(cards[0]["decider"], nullptr);
    EXPECT_EQ(cards[1]["decider"], "m1");
    EXPECT_EQ(cards[1]["decision"]["decider"], "m1");
    EXPECT_EQ(cards[1]["reason"], "too hot");
    EXPECT_EQ(cards[1]["since"], cards[1]["decision"]["decided_at"]);
}

TEST_F(OverviewTest, TheStoreAloneTellsWhoDecidedAndThatTheTimeWasUp)
{
    decide(2, "APP_CG_CHECK_PASS", true);
    decide(3, "APP_CG_CHECK_DENY");
    decide(4, "APP_CG_CHECK_PASS");
    const Json cards =
        run_cgctl({"list", "--json", "--history", folder_.path("none"), "--socket", folder_.path("none")})
            .json()["cards"];
    EXPECT_EQ(cards[0]["state"], "silence");
    EXPECT_EQ(cards[0]["decider"], nullptr);
    EXPECT_EQ(cards[1]["state"], "denied");
    EXPECT_EQ(cards[1]["decider"], "m1");
    EXPECT_EQ(cards[2]["state"], "passed");
    EXPECT_EQ(cards[2]["decider"], "m1");
    EXPECT_EQ(cards[2]["unseen"], false);
    EXPECT_EQ(cards[2]["decision"], nullptr);
    EXPECT_THAT(list({"list"}).out, HasSubstr("denied by m1"));
    EXPECT_THAT(list({"show", "1/4"}).out, HasSubstr("  decided   passed by m1\n"));
}

TEST_F(OverviewTest, APassWhoseWriterSaysNotHowIsNamed)
{
    decide(2, "APP_CG_CHECK_PASS");
    plug(3, "APP_CG_CHECK_PASS");
    plug(4, "APP_CG_CHECK_PASS");
    const auto table = list({"list", "--color", "always"});
    EXPECT_THAT(table.out, HasSubstr("\033[1;33mpassed (cause unknown)\033[0m"));
    EXPECT_THAT(table.err, HasSubstr("cgctl: 3 cards: 3 passed\n"));
    EXPECT_THAT(list({"list", "1/2"}).out, Not(HasSubstr("cause unknown")));
    EXPECT_THAT(list({"show", "1/4"}).out,
                HasSubstr("  state     passed (cause unknown)\n            the result does not say"));
    const Json cards = list({"list", "--json"}).json()["cards"];
    EXPECT_EQ(cards[0]["unseen"], false);
    EXPECT_EQ(cards[1]["unseen"], true);
    EXPECT_EQ(cards[2]["unseen"], true);
    EXPECT_EQ(cards[2]["state"], "passed");
}

TEST_F(OverviewTest, WithoutAHistoryOneMessageSaysWhatIsNotKnown)
{
    decide(2, "APP_CG_CHECK_PASS");
    const auto table =
        run_cgctl({"list", "--history", folder_.path("gone"), "--socket", folder_.path("none")});
    EXPECT_THAT(table.out, HasSubstr("passed"));
    EXPECT_THAT(table.err, HasSubstr("no history at "));
    EXPECT_THAT(table.err, HasSubstr(": times, answers and reasons are not known\n"));
    EXPECT_THAT(table.err, Not(HasSubstr("cause unknown")));
}

TEST_F(OverviewTest, ADeniedCardIsStillToldOfWhenItsPowerIsOff)
{
    decide(3, "APP_CG_CHECK_DENY");
    plug(4);
    record(3, Ended::denied, false, "m1", {});
    cgctl({"card", "offline", "1/3"});
    cgctl({"card", "offline", "1/4"});
    const auto table = list({"list", "--state", "denied"});
    EXPECT_EQ(table.status, 0);
    EXPECT_THAT(table.out, HasSubstr("offline, denied by m1"));
    EXPECT_THAT(table.err, HasSubstr("cgctl: 1 card: 1 denied\n"));
    EXPECT_THAT(table.out, HasSubstr("too hot"));
    const Json cards = list({"list", "--json"}).json()["cards"];
    EXPECT_EQ(cards[0]["state"], "offline");
    EXPECT_EQ(cards[0]["denied"], true);
    EXPECT_EQ(cards[0]["reason"], "too hot");
    EXPECT_EQ(cards[1]["denied"], false);
    EXPECT_EQ(cards[1]["reason"], nullptr);
}

TEST_F(OverviewTest, ADecisionThatTheStoreContradictsDoesNotCount)
{
    plug(2, "APP_CG_CHECK_PASS");
    record(2, Ended::denied, false, "m1", {});
    const Json card = list({"list", "--json"}).json()["cards"][0];
    EXPECT_EQ(card["state"], "passed");
    EXPECT_EQ(card["since"], nullptr);
    EXPECT_EQ(card["reason"], nullptr);
}

TEST_F(OverviewTest, AnOpenCheckTellsWhomAndHowLong)
{
    plug(2);
    cgctl({"set", "app_cg_card_check_info", "devid=1", "slotid=2"});
    sign("p_libpub.app_cg_card_check_info:0:1:2:0", "daemon.7 4 p_dev.card_info:0:1:2:0");
    history::OpenCheck open;
    open.request.origin = {"daemon", 7, {store::Cause::Kind::record, 4, "p_dev.card_info:0:1:2:0"}};
    open.card.position = {1, 2, 0};
    open.requested_at = now - 88s;
    open.waiting_for = {"m1", "m3"};
    open.answers.push_back({"m2", 0, "", now - 80s, true, 8s});
    writer_.set_open(open);
    const auto table = list({"list"});
    EXPECT_THAT(table.out, HasSubstr("waiting for m1, m3 (2"));
    EXPECT_THAT(table.out, HasSubstr(" s left)"));
    const auto shown = list({"show", "1/2"});
    EXPECT_THAT(shown.out, HasSubstr("answers   m2 PASS after 8 s\n            m1 has not answered\n"));
    const Json card = list({"show", "1/2", "--json"}).json();
    EXPECT_LE(card["time_left_s"], 212);
    EXPECT_GE(card["time_left_s"], 150);
    EXPECT_EQ(card["answers"][0]["took_s"], 8);
}

TEST_F(OverviewTest, ShowTellsTheLastCheckInFull)
{
    decide(3, "APP_CG_CHECK_DENY");
    record(3, Ended::denied, false, "m1", {});
    const auto shown = list({"show", "1/3"});
    EXPECT_THAT(shown.out, HasSubstr("  state     denied by m1\n"));
    EXPECT_THAT(shown.out, HasSubstr("  decided   denied by m1: too hot, "));
    EXPECT_THAT(shown.out, HasSubstr("  answers   m1 DENY after 2 s: too hot\n"));
    EXPECT_THAT(shown.out, HasSubstr("  role      master\n"));
}

TEST_F(OverviewTest, APositionThatIsOnlyRememberedIsShownToWhoAsks)
{
    record(5, Ended::withdrawn, false, "", {});
    EXPECT_THAT(list({"list"}).err, HasSubstr("no cards"));
    EXPECT_THAT(list({"list", "--state", "absent"}).out, HasSubstr("1/5/0  -     -     absent"));
    EXPECT_EQ(list({"show", "1/5"}).status, 0);
    EXPECT_EQ(list({"show", "1/6"}).status, 1);
}

TEST_F(OverviewTest, ARecorderThatIsAwayIsNamed)
{
    plug(2);
    writer_.alive(now - 10min);
    EXPECT_THAT(list({"list"}).err,
                HasSubstr("has written nothing for 10 min: what happened since then is not in it"));
}

TEST_F(OverviewTest, WatchSaysAtOnceWhoIsAwayAndTellsOfAReturn)
{
    writer_.alive(now - 10min);
    const auto watch =
        start_cgctl({"--socket", folder_.path("none"), "watch", "--lines", "--history", folder_.path("h")});
    EXPECT_TRUE(
        watch->says("cgctl: the daemon does not answer, so cards that come now may start unchecked: "))
        << watch->err();
    EXPECT_TRUE(watch->says("has written nothing for 10 min")) << watch->err();
    writer_.alive(std::chrono::system_clock::now());
    EXPECT_TRUE(watch->prints(" cg_recorderd is running again\n")) << watch->out();
    watch->send(SIGTERM);
    EXPECT_EQ(watch->wait(), 0);
}

TEST_F(OverviewTest, WatchMissesAHistoryThatGoesAndFindsItAgain)
{
    const auto watch =
        start_cgctl({"--socket", folder_.path("none"), "watch", "--lines", "--history", folder_.path("h")});
    EXPECT_TRUE(watch->says("listening")) << watch->err();
    std::filesystem::rename(folder_.path("h"), folder_.path("aside"));
    EXPECT_TRUE(watch->prints(" whether cg_recorderd is running is not known: no history at " +
                              folder_.path("h") + "; cg_recorderd writes it\n"))
        << watch->out();
    std::filesystem::rename(folder_.path("aside"), folder_.path("h"));
    EXPECT_TRUE(watch->prints(" the history can be read again\n")) << watch->out();
    watch->send(SIGTERM);
    EXPECT_EQ(watch->wait(), 0);
}

TEST(Prime, TheDaemonKnowsBetterWhomACardWaitsFor)
{
    const Time now = Time{} + 1000000s;
    DaemonView daemon;
    daemon.modules = {"m1", "m2", "m3"};
    daemon.cards[{1, 3, 0}] = {{"m3"}, true, ""};
    daemon.cards[{1, 4, 0}] = {{}, false, ""};
    Past past;
    for (const int slot : {3, 4, 5}) {
        history::OpenCheck open;
        open.card.position = {1, slot, 0};
        open.requested_at = now - 10s;
        open.waiting_for = {"m1", "m2"};
        open.request = {0, {"daemon", slot == 5 ? 1U : 9U, {}}}; // of 5 the recorder missed the end
        past.open.push_back(open);
    }
    CardTracker tracker;
    prime(tracker, daemon, past, {{1, 3, 0}, {1, 4, 0}, {1, 5, 0}}, now);
    for (const int slot : {3, 4, 5}) {
        tracker.card_written({{1, slot, 0}, "", "", 3, 0, 0, slot, true}, {now, true});
        tracker.request_written({1, slot, 0}, {now, true, {0, {"daemon", 9, {}}}});
    }
    EXPECT_THAT(tracker.find({1, 3, 0})->waiting_for, ElementsAre("m3"));
    EXPECT_EQ(tracker.find({1, 3, 0})->since, now - 10s);
    EXPECT_THAT(tracker.find({1, 4, 0})->waiting_for, ElementsAre("m1", "m2"));
    EXPECT_EQ(tracker.find({1, 5, 0})->since, std::nullopt);
}

TEST(Prime, TheHistoryAloneKnowsWhetherAnyWillDo)
{
    DaemonView daemon;
    daemon.modules = {"m1", "m2"}; // of the cards it says nothing
    Past past;
    const Time now = std::chrono::system_clock::now();
    history::OpenCheck open;
    open.card.position = {1, 3, 0};
    open.requested_at = now - 10s;
    open.waiting_for = {"m1", "m2"};
    open.any_will_do = true;
    open.request = {0, {"daemon", 9, {}}};
    past.open.push_back(open);
    CardTracker tracker;
    prime(tracker, daemon, past, {{1, 3, 0}}, now);
    tracker.card_written({{1, 3, 0}, "", "", 3, 0, 0, 3, true}, {now, true});
    tracker.request_written({1, 3, 0}, {now, true, {0, {"daemon", 9, {}}}});
    EXPECT_EQ(state_text(*tracker.find({1, 3, 0})), "waiting for any of m1, m2");
}

} // namespace cg
