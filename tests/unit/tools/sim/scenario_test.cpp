// The scenario language, line by line.
#include <gmock/gmock.h>

#include <fstream>
#include <iterator>

#include "admission/words.h"
#include "scenario.h"

namespace cg::scenario
{

namespace
{

using namespace std::chrono_literals;
using testing::HasSubstr;

// What one line says; the line must be right.
template <typename Kind>
Kind read(const std::string &line)
{
    const Scenario scenario = parse_scenario("file", line);
    const auto *what =
        scenario.statements.size() == 1 ? std::get_if<Kind>(&scenario.statements[0].what) : nullptr;
    EXPECT_NE(what, nullptr) << line << ": "
                             << (scenario.problems.empty() ? "" : scenario.problems[0].message);
    return what == nullptr ? Kind{} : *what;
}

// "LINE:COLUMN: message" of the only mistake in a text.
std::string mistake(const std::string &text)
{
    const Scenario scenario = parse_scenario("file", text);
    EXPECT_EQ(scenario.problems.size(), 1U) << text;
    if (scenario.problems.empty()) {
        return "";
    }
    const Problem &problem = scenario.problems.front();
    return std::to_string(problem.line) + ':' + std::to_string(problem.column) + ": " + problem.message;
}

} // namespace

TEST(Scenario, BlankLinesAndCommentsSayNothing)
{
    for (const char *text : {"", "\n\n", "  \t ", "# a comment", "   # another", "\r\n# windows\r\n"}) {
        const Scenario scenario = parse_scenario("file", text);
        EXPECT_TRUE(scenario.statements.empty() && scenario.problems.empty()) << text;
    }
}

TEST(Scenario, AStatementKnowsItsPlace)
{
    const Scenario scenario = parse_scenario("file", "\n  wait 3s   # and on\r\nsay \"a # b\"#c");
    ASSERT_EQ(scenario.statements.size(), 1U);
    EXPECT_EQ(scenario.statements[0].line, 2U);
    ASSERT_EQ(scenario.problems.size(), 1U);
    EXPECT_THAT(scenario.problems[0].message, HasSubstr("a blank goes behind"));
}

TEST(Scenario, Role)
{
    EXPECT_EQ(read<SetRole>("role none").role, P_DEV__DM_ROLE_E__DM_ROLE_NONE);
    EXPECT_EQ(read<SetRole>("role master").role, P_DEV__DM_ROLE_E__DM_ROLE_MASTER);
    EXPECT_EQ(read<SetRole>("role slave").role, P_DEV__DM_ROLE_E__DM_ROLE_SLAVE);
    EXPECT_EQ(read<SetRole>("role candidate").role, P_DEV__DM_ROLE_E__DM_ROLE_CANDIDATE);
    EXPECT_EQ(mistake("role mastr"), "1:6: \"mastr\" is not a role; nearest: master");
    EXPECT_EQ(mistake("role"), "1:6: a role is missing here");
    EXPECT_THAT(mistake("role master now"),
                HasSubstr("1:13: \"now\" is not expected here; role none|master"));
}

TEST(Scenario, ModulesThatAnswer)
{
    const auto pass = read<ModuleRule>("module m1 answers pass after 2s");
    EXPECT_EQ(pass.module, "m1");
    EXPECT_EQ(pass.manner, Manner::answers);
    EXPECT_TRUE(pass.pass);
    EXPECT_EQ(pass.after, 2s);
    EXPECT_FALSE(pass.position || pass.type);
    const auto deny = read<ModuleRule>(R"(module m1 answers deny "too \"warm\"" for 1/3/0 after 1.5s)");
    EXPECT_FALSE(deny.pass);
    EXPECT_EQ(deny.reason, "too \"warm\"");
    EXPECT_EQ(deny.position, (Position{1, 3, 0}));
    EXPECT_EQ(deny.after, 1500ms);
    const auto mute = read<ModuleRule>("module m1 answers deny after 0s for type 210");
    EXPECT_EQ(mute.reason, "");
    EXPECT_EQ(mute.type, 210);
    EXPECT_EQ(mute.after, 0s);
}

TEST(Scenario, ModulesThatDoNotAnswer)
{
    EXPECT_EQ(read<ModuleRule>("module m2 silent").manner, Manner::silent);
    EXPECT_EQ(read<ModuleRule>("module m2 silent for 1/3").position, (Position{1, 3, 0}));
    EXPECT_EQ(read<ModuleRule>("module m2 away").manner, Manner::away);
    EXPECT_EQ(read<ModuleRule>("module \"two words\" away").module, "two words");
}

TEST(Scenario, WrongModules)
{
    EXPECT_EQ(mistake("module"), "1:8: a module's name is missing here");
    EXPECT_EQ(mistake("module m1"), "1:11: a behaviour of a module is missing here");
    EXPECT_EQ(mistake("module m1 silnt"), "1:11: \"silnt\" is not a behaviour of a module; nearest: silent");
    EXPECT_EQ(mistake("module m1 answers psas"), "1:19: \"psas\" is not an answer; nearest: pass");
    EXPECT_THAT(mistake("module sixteen-letters- silent"),
                HasSubstr("1:8: \"sixteen-letters-\" is not a module name"));
    EXPECT_THAT(mistake("module m1 answers pass for 1/2 for 1/3"), HasSubstr("1:32: a second \"for\""));
    EXPECT_THAT(mistake("module m1 answers pass for type x"), HasSubstr("1:33: \"x\" is not a card type"));
    EXPECT_THAT(mistake("module m1 silent after 2s"), HasSubstr("1:18: \"after\" is not expected here"));
    EXPECT_THAT(mistake("module m1 away for 1/3"), HasSubstr("1:16: \"for\" is not expected here"));
    EXPECT_THAT(mistake("module m1 answers pass \"why\""), HasSubstr("1:24: \"why\" is not expected here"));
}

TEST(Scenario, Plug)
{
    const NewCard card =
        read<Plug>("plug 1/3/0 mb name=\"lc 48\" serial=00e0 type=17 nodeid=5 tipc=6 offline").card;
    EXPECT_EQ(card.position, (Position{1, 3, 0}));
    EXPECT_EQ(card.node_type, "mb");
    EXPECT_EQ(card.name, "lc 48");
    EXPECT_EQ(card.serial, "00e0");
    EXPECT_EQ(card.type, "17");
    EXPECT_EQ(card.nodeid, "5");
    EXPECT_EQ(card.tipc, "6");
    EXPECT_TRUE(card.offline);
    const NewCard plain = read<Plug>("plug 1/3").card;
    EXPECT_EQ(plain.node_type, "lc");
    EXPECT_FALSE(plain.offline || plain.name);
}

TEST(Scenario, WrongPlugs)
{
    EXPECT_THAT(mistake("plug 1"), HasSubstr("1:6: \"1\" is not a card position"));
    EXPECT_EQ(mistake("plug 1/3 lx"), "1:10: unknown node type \"lx\"; nearest: lc, box, mb, or a number");
    EXPECT_EQ(mistake("plug 1/3 lc nam=x"), "1:13: unknown field \"nam\" of a card; nearest: name");
    EXPECT_EQ(mistake("plug 1/3 lc serial=0"),
              "1:13: serial=0: not hexadecimal; two digits for each byte, as in 00e0fc01");
    EXPECT_THAT(mistake("plug 1/3 lc type=many"),
                HasSubstr("1:13: config_dev_type=many: not a whole number"));
    EXPECT_EQ(mistake("plug 1/3 lc name=a name=b"), "1:20: name is given more than once");
    EXPECT_EQ(mistake("plug 1/3 lc onlin"), "1:13: \"onlin\" is not expected here; NAME=VALUE or offline");
    EXPECT_THAT(mistake("plug 1/300"), HasSubstr("1:6: no ids can be made for 1/300/0"));
    EXPECT_EQ(read<Plug>("plug 1/300 nodeid=1 tipc=2").card.position.slotid, 300);
}

TEST(Scenario, UnknownStatementsGetTheNearestOnes)
{
    EXPECT_EQ(mistake("plgu 1/3"), "1:1: \"plgu\" is not a statement; nearest: plug");
    EXPECT_THAT(mistake("\"plug\" 1/3"), HasSubstr("1:1: \"plug\" is not a statement"));
}

TEST(Scenario, SeveralMistakesAreToldAtOnce)
{
    const Scenario scenario = parse_scenario("file", "plgu 1/3\nwait\nrole master\nwait 5\n");
    ASSERT_EQ(scenario.problems.size(), 3U);
    EXPECT_EQ(scenario.problems[2].line, 4U);
}

TEST(Scenario, AMistakeIsShownWhereItStands)
{
    const auto excerpt = [](const std::string &text) {
        const Scenario scenario = parse_scenario("file", text);
        return std::to_string(scenario.problems.at(0).column) + '\n' + scenario.problems.at(0).excerpt;
    };
    EXPECT_EQ(excerpt("\tplug 1/3 \xc3\xa4 lx"), "11\n     plug 1/3 \xc3\xa4 lx\n              ^");
    EXPECT_EQ(excerpt("\tplug 1/3 name=\xe7\x8c\xab lx"),
              "18\n     plug 1/3 name=\xe7\x8c\xab lx\n                      ^")
        << "a wide character";
    EXPECT_EQ(excerpt("wait"), "6\n    wait\n         ^");
    EXPECT_EQ(excerpt("wait  # for what"), "6\n    wait  # for what\n         ^");
    EXPECT_EQ(excerpt("a\x1b b"), "2\n    a\\x1B b\n     ^");
}

TEST(Scenario, Expectations)
{
    const auto expect = read<Expect>("expect 1/3 passed by m1 within 5s");
    EXPECT_EQ(expect.state, admission::State::passed);
    EXPECT_EQ(expect.modules, std::vector<std::string>{"m1"});
    EXPECT_EQ(expect.within, 5s);
    EXPECT_FALSE(expect.throughout || expect.because);
    EXPECT_EQ(read<Expect>("expect 1/3 no module registered throughout 2s").throughout, 2s);
    const auto silence = read<Expect>("expect 1/3 admitted by time-out of m1, m2");
    EXPECT_EQ(silence.state, admission::State::silence);
    EXPECT_EQ(silence.modules, (std::vector<std::string>{"m1", "m2"}));
    const auto marked = read<Expect>("expect 1/3 marked");
    EXPECT_TRUE(marked.marked && !marked.state);
}

TEST(Scenario, ExpectationsAreSaidBackAsTheyWereWritten)
{
    for (const char *line : {"1/3/0 passed", "1/3/0 passed by m1", "1/3/0 admitted by time-out",
                             "1/3/0 admitted by time-out of m1, m2", "1/3/0 denied", "1/3/0 denied by m1",
                             "1/3/0 denied because \"no\"", "1/3/0 denied by m1 because \"a \\\"b\\\"\"",
                             "1/3/0 waiting", "1/3/0 waiting for m1, m2", "1/3/0 marked", "1/3/0 unmarked",
                             "1/4/0 offline", "1/5/0 exempt", "1/6/0 absent", "1/6/0 no module registered"}) {
        const auto expect = read<Expect>(std::string("expect ") + line);
        EXPECT_EQ(expect.position.text() + ' ' + expect.text, line);
    }
}

TEST(Scenario, EarlierWordsOfStatesAreStillUnderstood)
{
    EXPECT_EQ(read<Expect>("expect 1/3 passed by silence").state, admission::State::silence);
    EXPECT_EQ(read<Expect>("expect 1/3 passed by silence of m1").modules, std::vector<std::string>{"m1"});
    EXPECT_EQ(read<Expect>("expect 1/3 unasked within 2s").state, admission::State::unasked);
}

// Each state in the words that every view has for it.
TEST(Scenario, ThePageNamesTheStatesThatCanBeExpected)
{
    std::ifstream file(PROJECT_SOURCE "/docs/cg_scenario.5");
    const std::string page((std::istreambuf_iterator<char>(file)), {});
    for (const admission::State state : admission::all_states()) {
        const std::string text = text_of(state);
        const bool can_be_expected = parse_scenario("file", "expect 1/3 " + text).problems.empty();
        EXPECT_EQ(can_be_expected, state != admission::State::undecided) << text;
        EXPECT_EQ(page.find("\n.It Cm " + text) != std::string::npos, can_be_expected) << text;
    }
}

TEST(Scenario, WrongExpectations)
{
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 admitted"), "2:21: the state's next word is missing here");
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 admitted by timeout"),
              "2:24: \"timeout\" is not the state's next word; nearest: time-out");
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 no modules registered"),
              "2:15: \"modules\" is not the state's next word; nearest: module");
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 pased"), "2:12: \"pased\" is not a state; nearest: passed");
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3"), "2:12: a state is missing here");
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 passed withn 5s"),
                HasSubstr("2:19: \"withn\" is not expected here"));
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 denied because no"),
                HasSubstr("a reason stands in quotes: \"no\""));
    EXPECT_THAT(mistake("plug 1/3\nexpect 1/3 passed within 2s throughout 3s"),
                HasSubstr("2:29: \"throughout\""));
    EXPECT_EQ(mistake("plug 1/3\nexpect 1/3 waiting for m1,"), "2:28: a module's name is missing here");
}

} // namespace cg::scenario
