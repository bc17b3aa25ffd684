// cgctl module replay: recorded cards against a module of the examples, with tables that are edited
// meanwhile.
#include <chrono>
#include <fstream>

#include "history/writer.h"
#include "unit/tools/cgctl/run_cgctl.h"

namespace kit_test
{

namespace
{

using cg::Json;
using cg::Outcome;
using history::Decision;
using namespace std::chrono_literals;

constexpr history::Time noon = history::Time{} + 1'700'000'000s;

class Replay : public testing::Test
{
protected:
    Replay() { write_table("*: 0-255\n"); }

    // A card of a type in a slot that was examined; `said` is what compat answered, nothing when it was
    // silent.
    Decision card(int slot, int type, std::optional<int32_t> said)
    {
        Decision decision;
        decision.card = {
            {1, slot, 0}, "card " + std::to_string(slot), "0a0b", 3, type, 100 + slot, 1000 + slot, true};
        decision.decided_at = noon + slot * 1min;
        decision.requested_at = decision.decided_at - 1s;
        decision.outcome = !said        ? history::Outcome::silence
                           : *said == 0 ? history::Outcome::passed
                                        : history::Outcome::denied;
        decision.admitted = decision.outcome != history::Outcome::denied;
        if (said) {
            decision.answers = {
                {"other", 0, "", decision.decided_at, true, 5ms},
                {"compat", *said, *said == 0 ? "" : "of old", decision.decided_at, true, 9ms}};
        } else {
            decision.silent = {"compat"};
        }
        return decision;
    }
    void record(const std::vector<Decision> &decisions)
    {
        history::Writer writer(folder_.path("history"), noon, {});
        for (const Decision &decision : decisions) {
            writer.add(decision);
        }
    }
    void write_table(const std::string &lines) { std::ofstream(folder_.path("table")) << lines; }
    Outcome replay(std::vector<std::string> options = {})
    {
        std::vector<std::string> arguments{"module", "replay", "--from", folder_.path("history")};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--", COMPATIBILITY_PATH, "compat", folder_.path("table")});
        return cg::run_cgctl(arguments);
    }

    cg::Folder folder_;
};

} // namespace

TEST_F(Replay, TheSameVerdictsAreNoDifference)
{
    write_table("1: 3,5\n2: none\n");
    record({card(3, 1, 0), card(4, 2, 1), card(5, 1, std::nullopt)});
    const Outcome outcome = replay();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "3 cards, 0 with another verdict; compat had answered for 2\n");
}

TEST_F(Replay, AnotherVerdictIsShownWithWhatWasDecided)
{
    write_table("1: 5\n2: 0-255\n3: none\n");
    record({card(3, 1, 0), card(4, 2, 1), card(5, 1, 0), card(6, 3, std::nullopt)});
    const Outcome outcome = replay();
    EXPECT_EQ(outcome.status, 1) << outcome.err;
    EXPECT_EQ(outcome.out,
              "1/3/0 card 3, type 1, 2023-11-14T22:16:20.000Z: then PASS (passed), now DENY: card type 1 "
              "does not go "
              "into slot 3; its slots: 5\n"
              "1/4/0 card 4, type 2, 2023-11-14T22:17:20.000Z: then DENY: of old (denied), now PASS\n"
              "1/6/0 card 6, type 3, 2023-11-14T22:19:20.000Z: then silent (admitted by time-out), now DENY: "
              "card type 3 "
              "does not go into slot 6; its slots: none\n"
              "4 cards, 3 with another verdict; compat had answered for 3\n");
}

TEST_F(Replay, AModuleThatWasNotThereIsHeldAgainstTheDecision)
{
    Decision admitted = card(3, 1, 0);
    Decision denied = card(4, 1, 1);
    admitted.answers.pop_back();
    denied.answers.pop_back();
    record({admitted, denied});
    EXPECT_EQ(replay().status, 0); // that others denied the second one is no affair of this module
    write_table("1: 4\n");
    const Outcome outcome = replay();
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("then no answer (passed), now DENY"), std::string::npos) << outcome.out;
    EXPECT_NE(outcome.out.find("2 cards, 1 with another verdict; compat had answered for 0"),
              std::string::npos);
}

TEST_F(Replay, MachinesReadEveryCard)
{
    write_table("1: 5\n");
    Decision withdrawn = card(7, 1, 0);
    withdrawn.outcome = history::Outcome::withdrawn;
    record({card(3, 1, 0), card(5, 1, std::nullopt), withdrawn});
    const Outcome outcome = replay({"--json"});
    EXPECT_EQ(outcome.status, 1) << outcome.err;
    const Json told = outcome.json();
    EXPECT_EQ(told["version"], 1);
    EXPECT_EQ(told["module"], "compat");
    EXPECT_EQ(told["replayed"], 2);
    EXPECT_EQ(told["answered_then"], 1);
    EXPECT_EQ(told["differing"], 1);
    EXPECT_EQ(told["cards"][0]["then"], (Json{{"verdict", "PASS"}, {"reason", ""}}));
    EXPECT_EQ(told["cards"][0]["now"]["verdict"], "DENY");
    EXPECT_EQ(told["cards"][0]["differs"], true);
    EXPECT_EQ(told["cards"][0]["decider"], "");
    EXPECT_EQ(told["cards"][1]["then"], nullptr);
    EXPECT_EQ(told["cards"][1]["was_silent"], true);
    EXPECT_EQ(told["cards"][1]["outcome"], "silence");
    EXPECT_EQ(told["cards"][1]["differs"], false);
}

TEST_F(Replay, AnotherNameIsNoModuleOfTheHistory)
{
    record({card(3, 1, 0)});
    const Outcome outcome = replay({"--name", "volt"});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.err.find("answers as \"compat\" and not as \"volt\""), std::string::npos)
        << outcome.err;
}

TEST_F(Replay, AHistoryThatCannotBeReadOrHoldsNothingIsAnError)
{
    const Outcome missing = replay();
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find(folder_.path("history")), std::string::npos) << missing.err;
    record({});
    const Outcome empty = replay();
    EXPECT_EQ(empty.status, 1);
    EXPECT_NE(empty.err.find("no check that was decided"), std::string::npos) << empty.err;
}

TEST_F(Replay, AModuleThatEndsOrStaysSilentEndsIt)
{
    record({card(3, 1, 0), card(4, 1, 0), card(5, 1, 0), card(6, 1, 0)});
    write_table("");
    const Outcome ended = replay();
    EXPECT_EQ(ended.status, 1);
    EXPECT_NE(ended.err.find("the module ended at 1/3/0: exit status 2; it printed: compatibility: "),
              std::string::npos)
        << ended.err;
    const Outcome silent = cg::run_cgctl(
        {"module", "replay", "--from", folder_.path("history"), "--timeout", "0.1", "--", "sleep", "100"});
    EXPECT_EQ(silent.status, 1);
    EXPECT_NE(silent.err.find("answered none of the first 3 cards"), std::string::npos) << silent.err;
}

TEST_F(Replay, TheFileAndACommandMustBeNamed)
{
    EXPECT_EQ(cg::run_cgctl({"module", "replay", "--", "true"}).status, 2);
    EXPECT_EQ(cg::run_cgctl({"module", "replay", "--from", "x"}).status, 2);
}

} // namespace kit_test
