// cgctl history and cgctl modules, on a file as the recorder writes it.
#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "base/failure.h"
#include "history/writer.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace cg
{

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::SizeIs;

constexpr admission::Time noon = admission::Time{} + 1'700'049'600s; // 2023-11-15 12:00 UTC

class HistoryVerbs : public testing::Test
{
protected:
    HistoryVerbs()
    {
        setenv("TZ", "UTC", 1);
        tzset();
        history::Writer writer(file_, noon, [](const std::string &) {});
        add(writer, "1", admission::Outcome::denied, noon + 2s);
        add(writer, "2", admission::Outcome::silence, noon + 400s);
        writer.add_gap({noon + 10s, noon + 20s, "the store was away"});
        writer.add_life({noon + 5s, false, 0, "exited", "77"}, "first");
        writer.add_life({noon + 6s, true, 42, "", ""}, "second");
        writer.alive(noon + 500s);
        std::filesystem::create_directory(modules_);
        for (const char *name : {"m1", "m2", "m3"}) {
            std::ofstream(modules_ + '/' + name) << "";
        }
    }

    static void add(history::Writer &writer, const std::string &slot, admission::Outcome outcome,
                    admission::Time at)
    {
        history::Decision decision;
        decision.card = {{1, std::stoi(slot), 0}, "fan\n" + slot, "0a", 3, 17, 259, 1259, true};
        decision.outcome = outcome;
        decision.decided_at = at;
        decision.requested_at = at - 2s;
        decision.role = 1;
        if (outcome == admission::Outcome::denied) {
            decision.decider = "m1";
            decision.reason = "too hot";
            decision.answers = {{"m1", -1, "too hot", at, true, 1500ms}, {"m9", 0, "", at, false, 10ms}};
        } else {
            decision.silent = {"m2"};
            decision.complete = false;
        }
        writer.add(decision);
    }
    Outcome history(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "history");
        arguments.insert(arguments.end(), {"--history", file_});
        return run_cgctl(arguments);
    }

    Folder folder_;
    std::string file_ = folder_.path("history.sqlite");
    std::string modules_ = folder_.path("modules");
};

} // namespace

TEST_F(HistoryVerbs, ALineForEachDecisionWithWhatLiesBetween)
{
    const Outcome outcome = history({"--answers"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(
        outcome.out,
        "2023-11-15 12:00:02  1/1/0  fan\\n1 (serial 0a)  denied by m1: too hot  after 2 s  as master\n"
        "    m1 DENY after 1.5 s: too hot\n"
        "    m9 PASS after 0.01 s (not registered: its answers are ignored)\n"
        "2023-11-15 12:00:05  the daemon ended: exited 77\n"
        "2023-11-15 12:00:06  the daemon started, process 42\n"
        "2023-11-15 12:00:10 to 2023-11-15 12:00:20  the store was away: decisions may be missing\n"
        "2023-11-15 12:06:40  1/2/0  fan\\n2 (serial 0a)  admitted by time-out of m2  after 2 s  as master"
        "  (not known in full)\n");
    EXPECT_EQ(outcome.err,
              "cgctl: nothing has been recorded since 2023-11-15 12:08:20; is cg_recorderd running?\n");
}

TEST_F(HistoryVerbs, FiltersAndNotFound)
{
    EXPECT_THAT(history({"1/2"}).out, HasSubstr("time-out of m2"));
    EXPECT_THAT(history({"1/2"}).out, testing::Not(HasSubstr("1/1/0")));
    EXPECT_EQ(history({"--outcome", "silence", "--json"}).json()["decisions"].size(), 1U);
    EXPECT_EQ(history({"--module", "m9", "--json"}).json()["decisions"][0]["card"], "1/1/0");
    EXPECT_EQ(history({"--since", "2023-11-15T12:01", "--until", "2023-11-16", "--json"})
                  .json()["decisions"]
                  .size(),
              1U);
    const Json last = history({"--last", "1", "--json"}).json();
    EXPECT_EQ(last["decisions"][0]["card"], "1/2/0");
    EXPECT_TRUE(last["gaps"].empty()); // it was before
    const Outcome none = history({"1/9"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.err, HasSubstr("no decision on 1/9/0 is recorded\n"));
    const Outcome exempt = history({"--outcome", "exempt", "--module", "m1", "--since", "2023-11-15"});
    EXPECT_EQ(exempt.status, 1);
    EXPECT_THAT(exempt.err,
                HasSubstr("no decision with outcome exempt and module m1 is recorded for that time\n"));
    const Outcome typing_error = history({"--module", "m11"});
    EXPECT_EQ(typing_error.status, 1);
    EXPECT_THAT(typing_error.err,
                HasSubstr("no decision with module m11 is recorded; no module of that name is "
                          "known; nearest: m1"));
    const Outcome quiet = history({"--since", "1h"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_THAT(quiet.err, HasSubstr("no decision is recorded for that time\n"));
}

TEST_F(HistoryVerbs, WrongUseSaysWhatIsRight)
{
    EXPECT_EQ(history({"--outcome", "dennied"}).err,
              "cgctl: --outcome: dennied not in {passed,silence,denied,exempt,unasked,withdrawn,unseen}\n");
    for (const std::vector<std::string> &wrong :
         std::vector<std::vector<std::string>>{{"--since", "noon"},
                                               {"--since", ""},
                                               {"--last", "0"},
                                               {"--since", "1h", "--until", "2h"},
                                               {"x/y"}}) {
        EXPECT_EQ(history(wrong).status, 2) << wrong.front();
    }
}

TEST_F(HistoryVerbs, TheJsonFormHoldsEveryPart)
{
    const Json json = history({"--json"}).json();
    EXPECT_EQ(json["version"], 1);
    EXPECT_EQ(json["file"], file_);
    EXPECT_EQ(json["begun_at"], "2023-11-15T12:00:00.000Z");
    EXPECT_EQ(json["recorded_until"], "2023-11-15T12:08:20.000Z");
    const Json &denied = json["decisions"][0];
    EXPECT_EQ(denied["name"], "fan\n1");
    EXPECT_EQ(denied["serial"], "0a");
    EXPECT_EQ(denied["node_type"], "lc");
    EXPECT_EQ(denied["outcome"], "denied");
    EXPECT_EQ(denied["decider"], "m1");
    EXPECT_EQ(denied["role"], "master");
    EXPECT_EQ(denied["took_s"], 2.0);
    EXPECT_EQ(denied["answers"][1]["registered"], false);
    EXPECT_EQ(json["gaps"][0]["until"], "2023-11-15T12:00:20.000Z");
    EXPECT_EQ(json["daemon"][0]["status"], "77");
    EXPECT_EQ(json["daemon"][1]["pid"], 42);
}

TEST_F(HistoryVerbs, ACutOffCheckAndAClockThatWasSetBack)
{
    history::Decision decision;
    decision.card.position = {1, 3, 0};
    decision.outcome = admission::Outcome::withdrawn;
    decision.reason = admission::daemon_restarted;
    decision.silent = {"m2", "m3"};
    decision.requested_at = noon + 900s;
    decision.decided_at = noon + 600s;
    history::Writer(file_, noon, [](const std::string &) {}).add(decision);
    EXPECT_THAT(history({"1/3"}).out,
                HasSubstr("2023-11-15 12:10:00  1/3/0  -  withdrawn while waiting for m2, m3: the daemon was "
                          "restarted\n"));
    const Json told = history({"1/3", "--json"}).json()["decisions"][0];
    EXPECT_EQ(told["outcome"], "withdrawn");
    EXPECT_EQ(told["reason"], "the daemon was restarted");
    EXPECT_EQ(told["silent"], (Json{"m2", "m3"}));
    EXPECT_EQ(told["admitted"], nullptr);
    EXPECT_EQ(told["took_s"], nullptr);
    const Json modules =
        run_cgctl({"modules", "--modules", modules_, "--history", file_, "--json"}).json()["modules"];
    EXPECT_EQ(modules[1]["silences"], 1); // of the other check
    EXPECT_EQ(modules[2]["silences"], 0);
}

TEST_F(HistoryVerbs, ChartAndPicture)
{
    const std::string picture = folder_.path("week.svg");
    const Outcome outcome = history(
        {"--chart", "--svg", picture, "--since", "2023-11-15T12:00Z", "--until", "2023-11-15T12:10Z"});
    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, HasSubstr("2023-11-15 12:06 |T"));
    EXPECT_THAT(outcome.out, HasSubstr("(the store was away)"));
    EXPECT_GT(std::filesystem::file_size(picture), 1000U);
    EXPECT_EQ(history({"--svg", folder_.path("no/folder.svg")}).status, 1);
}

TEST_F(HistoryVerbs, AMissingFileIsNoEmptyHistory)
{
    const Outcome none = run_cgctl({"history", "--history", folder_.path("none")});
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "cgctl: no history at " + folder_.path("none") + "; cg_recorderd writes it\n");
    EXPECT_EQ(run_cgctl({"modules", "--modules", modules_, "--history", folder_.path("none")}).status, 1);
}

TEST_F(HistoryVerbs, ModulesThatNeverAnswerAndStrangersAreMarked)
{
    const std::vector<std::string> arguments{"modules", "--modules", modules_, "--history", file_};
    const Outcome outcome = run_cgctl(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    const std::map<std::string, std::string> notes{{"m2 ", "NEVER ANSWERED: every card waits 300 s for it"},
                                                   {"m3 ", "has not been waited for yet"}};
    for (const auto &[module, note] : notes) {
        const std::size_t line = outcome.out.find("\n" + module);
        ASSERT_NE(line, std::string::npos) << outcome.out;
        const std::string text = outcome.out.substr(line + 1, outcome.out.find('\n', line + 1) - line - 1);
        EXPECT_THAT(text, HasSubstr(note));
    }
    EXPECT_THAT(outcome.out, HasSubstr("not registered: its answers are ignored"));
    std::vector<std::string> as_json = arguments;
    as_json.emplace_back("--json");
    const Json modules = run_cgctl(as_json).json()["modules"];
    ASSERT_THAT(modules, SizeIs(4));
    EXPECT_EQ(modules[0]["name"], "m1");
    EXPECT_EQ(modules[0]["denials"], 1);
    EXPECT_EQ(modules[0]["median_s"], 1.5);
    EXPECT_EQ(modules[0]["never_answered"], false);
    EXPECT_EQ(modules[1]["silences"], 1);
    EXPECT_EQ(modules[1]["never_answered"], true);
    EXPECT_EQ(modules[3]["registered"], false);
    EXPECT_EQ(modules[3]["unregistered_answers"], 1);
    EXPECT_EQ(run_cgctl({"modules", "--modules", folder_.path("no"), "--history", file_}).status, 1);
}

TEST_F(HistoryVerbs, AModuleWhoseFirstCheckStandsMayYetAnswer)
{
    const std::vector<std::string> arguments{"modules", "--modules", modules_, "--history", file_};
    {
        history::Writer writer(file_, noon, [](const std::string &) {});
        history::OpenCheck check;
        check.card.position = {1, 1, 0};
        check.waiting_for = {"m2", "m3"};
        writer.set_open(check);
    }
    const std::string out = run_cgctl(arguments).out;
    EXPECT_THAT(out, testing::ContainsRegex("\nm3 .*first asked: waited for by 1 card\n"));
    EXPECT_THAT(out, testing::ContainsRegex("\nm2 .*NEVER ANSWERED")) << "it was silent once";
    std::vector<std::string> as_json = arguments;
    as_json.emplace_back("--json");
    EXPECT_EQ(run_cgctl(as_json).json()["modules"][2]["never_answered"], true);
    history::Writer writer(file_, noon, [](const std::string &) {});
    writer.close_open({1, 1, 0});
    add(writer, "1", admission::Outcome::denied, noon + 500s);
    EXPECT_THAT(run_cgctl(arguments).out, HasSubstr("has not been waited for yet"));
}

TEST_F(HistoryVerbs, AModuleThatFellSilentIsMarked)
{
    {
        history::Writer writer(file_, noon, [](const std::string &) {});
        for (const auto at : {noon + 700s, noon + 1200s}) {
            history::Decision decision;
            decision.card.position = {1, 1, 0};
            decision.outcome = admission::Outcome::silence;
            decision.decided_at = at;
            decision.silent = {"m1"};
            writer.add(decision);
        }
    }
    const Outcome outcome = run_cgctl({"modules", "--modules", modules_, "--history", file_});
    EXPECT_THAT(outcome.out, HasSubstr("2023-11-15 12:00:02 DENY  SILENT SINCE 2023-11-15 12:00:02: 2 checks "
                                       "ended without it, every card waits 300 s for it\n"));
    EXPECT_THAT(outcome.err, HasSubstr("is cg_recorderd running?\n"));
    const Json json = run_cgctl({"modules", "--modules", modules_, "--history", file_, "--json"}).json();
    EXPECT_EQ(json["modules"][0]["silences_since_answer"], 2);
    EXPECT_TRUE(json.contains("recorded_until"));
}

TEST_F(HistoryVerbs, ModulesOfARecorderAtWorkGetNoNotice)
{
    const auto now = std::chrono::system_clock::now();
    history::Writer writer(file_, now, [](const std::string &) {});
    writer.alive(now);
    EXPECT_EQ(run_cgctl({"modules", "--modules", modules_, "--history", file_}).err, "");
}

} // namespace cg
