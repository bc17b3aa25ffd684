// What the lines of a scenario say together.
#include <gmock/gmock.h>

#include "scenario.h"

namespace cg::scenario
{

namespace
{

using testing::HasSubstr;

const std::string modules = "module m1 answers pass\nmodule m2 silent\nmodule m3 answers deny \"no\"\n";

// The only mistake of the text that follows `modules`, as "line: message", the first of those lines being 1;
// empty when there is none.
std::string mistake(const std::string &text)
{
    const Scenario scenario = read_scenario("file", modules + text);
    EXPECT_LE(scenario.problems.size(), 1U) << scenario.problems[1].message;
    return scenario.problems.empty()
               ? ""
               : std::to_string(scenario.problems[0].place.line - 3) + ": " + scenario.problems[0].message;
}

} // namespace

TEST(ScenarioCheck, ACardIsPluggedBeforeAnythingElse)
{
    EXPECT_EQ(mistake("online 1/3"), "1: no card was plugged at 1/3/0; `plug 1/3/0 lc` goes before it");
    EXPECT_THAT(mistake("pull 1/3"), HasSubstr("no card was plugged"));
    EXPECT_THAT(mistake("expect 1/3 passed"), HasSubstr("no card was plugged"));
    EXPECT_THAT(mistake("expect 1/3 absent"), HasSubstr("no card was plugged"));
    EXPECT_EQ(mistake("plug 1/3\npull 1/3\noffline 1/3"),
              "3: the card at 1/3/0 was pulled in line 5; `plug 1/3/0 lc` goes before it");
    EXPECT_THAT(mistake("plug 1/3\npull 1/3\nexpect 1/3 passed"), HasSubstr("was pulled in line 5"));
    EXPECT_EQ(mistake("plug 1/3\npull 1/3\nplug 1/3\nexpect 1/3 passed"), "");
}

TEST(ScenarioCheck, AnExpectationAgreesWithWhatWasDone)
{
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 absent"), HasSubstr("2: 1/3/0 can't be absent"));
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 offline"), HasSubstr("2: 1/3/0 is on line since line 4"));
    EXPECT_EQ(mistake("plug 1/3 offline\nexpect 1/3 denied"),
              "2: 1/3/0 is off line since line 4, and can't be denied; `online 1/3/0` goes before it");
    EXPECT_THAT(mistake("plug 1/3\noffline 1/3\nexpect 1/3 waiting"),
                HasSubstr("3: 1/3/0 is off line since line 5"));
    EXPECT_EQ(mistake("plug 1/3\noffline 1/3\nexpect 1/3 offline\nonline 1/3\nexpect 1/3 waiting"), "");
    EXPECT_EQ(mistake("plug 1/3 offline\nexpect 1/3 unmarked"), "");
}

TEST(ScenarioCheck, ABoardCardIsExemptAndNothingElse)
{
    EXPECT_THAT(mistake("plug 1/1 mb\nexpect 1/1 passed"), HasSubstr("never passed; expect exempt"));
    EXPECT_THAT(mistake("plug 1/1 DM_TYPE_MB\nexpect 1/1 denied"), HasSubstr("never denied"));
    EXPECT_THAT(mistake("plug 1/1\nexpect 1/1 exempt"), HasSubstr("plug it as mb"));
    EXPECT_EQ(mistake("plug 1/1 mb offline\nexpect 1/1 exempt"), "");
    EXPECT_THAT(mistake("plug 1/1 mb offline\nexpect 1/1 offline"), HasSubstr("exempt on line or off"));
}

TEST(ScenarioCheck, ModulesOfAnExpectationAreDefinedAndBehaveSo)
{
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 denied by m4"),
              "2: no statement says how module \"m4\" behaves; nearest: m1, m2, m3");
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 denied by m1"), HasSubstr("m1 was not said to deny"));
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 passed by m3"), HasSubstr("m3 was not said to pass"));
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 passed by silence of m1 within 310s"),
                HasSubstr("m1 was not said to be silent"));
    EXPECT_EQ(mistake("plug 1/3\nmodule m1 away\nexpect 1/3 passed by silence of m1, m2 within 310s"), "");
    EXPECT_EQ(mistake("plug 1/3\nmodule m1 answers pass after 301s\nexpect 1/3 passed by silence of m1"), "");
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 waiting for m1, m2, m3"), "");
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 unasked"), HasSubstr("can't be unasked"));
}

TEST(ScenarioCheck, SilenceTakesItsTime)
{
    EXPECT_EQ(
        mistake("plug 1/3\nwait 5s\nexpect 1/3 passed by silence within 90s"),
        "3: 1/3/0 can't be passed by silence yet: silence is told after 300s, and 95s at most are over then; "
        "within 310s");
    EXPECT_EQ(mistake("plug 1/3\nwait 290s\nexpect 1/3 passed by silence within 10s"), "");
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 passed by silence"), "");
    EXPECT_THAT(mistake("plug 1/3 offline\nwait 290s\nonline 1/3\nexpect 1/3 passed by silence within 10s"),
                HasSubstr("10s at most are over"));
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 waiting\nexpect 1/3 passed by silence within 1s"), "")
        << "the first one waits on another clock, so nobody knows";
}

TEST(ScenarioCheck, ThereAreNoMoreModulesThanTheDaemonTakes)
{
    std::string text;
    for (int i = 4; i <= 16; ++i) {
        text += "module m" + std::to_string(i) + " silent\n";
    }
    EXPECT_EQ(mistake(text + "module m1 away\n"), "");
    EXPECT_EQ(mistake(text + "module m17 silent\nmodule m17 away\n"),
              "14: a module too many; the daemon asks 16 at most");
}

TEST(ScenarioCheck, MistakesComeInTheOrderOfTheLines)
{
    const Scenario scenario = read_scenario("file", "pull 1/3\nplgu\npull 1/4\n");
    ASSERT_EQ(scenario.problems.size(), 3U);
    EXPECT_EQ(scenario.problems[1].place.line, 2U);
}

} // namespace cg::scenario
