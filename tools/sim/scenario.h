// A chassis' story, as its file has it: what is done, and what is expected to come of it.
//
// The language is one statement a line, in the words of those who plug cards; cg_scenario(5) describes it. It
// is a language of its own and not one of the general ones (YAML, a script in Python), because a file is to
// be parsed as a whole before the first card is touched, and a mistake is to be shown where it stands.
#ifndef SIM_SCENARIO_H
#define SIM_SCENARIO_H

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "admission/card_tracker.h"
#include "line.h"
#include "p_dev.pb-c.h"
#include "records/new_card.h"

namespace cg::scenario
{

struct SetRole {
    PDev__DmRoleE role;
};

enum class Manner {
    answers,
    silent, // hears each request, and says nothing
    away,   // does not listen; hears what still stands when it returns
};

// How a module behaves from here on: towards all cards, or towards some.
struct ModuleRule {
    std::string module;
    Manner manner = Manner::answers;
    bool pass = true;
    std::string reason{};               // of a denial
    std::optional<Position> position{}; // towards the card there
    std::optional<int32_t> type{};      // towards cards of this configured type
    Milliseconds after{0};              // between the request and the answer
};

struct Plug {
    NewCard card;
};

enum class Move { online, offline, pull };

struct Switch {
    Position position;
    Move move;
};

struct Wait {
    Milliseconds time;
};

struct Say {
    std::string text;
};

struct Expect {
    Position position{};
    std::string text{};                       // what is expected, as it was written: "denied by m1"
    std::optional<admission::State> state{};  // nothing: whether the card is marked as unable to start
    bool marked = false;                      // without a state
    std::vector<std::string> modules{};       // the decider; the silent ones; those waited for; empty: any
    std::optional<std::string> because{};     // what the reason holds
    std::optional<Milliseconds> within{};     // it becomes so
    std::optional<Milliseconds> throughout{}; // it is so and stays so
};

using What = std::variant<SetRole, ModuleRule, Plug, Switch, Wait, Say, Expect>;

struct Statement {
    std::size_t line; // counted from 1
    What what;
};

struct Problem {
    std::size_t line;
    std::size_t column;  // in characters; both are counted from 1
    std::string message; // one line: what is wrong, and what would be right
    std::string excerpt; // two lines: the one that is wrong, and a caret below its column
};

struct Scenario {
    std::string file; // its name, for messages
    std::vector<Statement> statements{};
    std::vector<Problem> problems{}; // in the order of the lines; with any, nothing is to be played
};

// Parses a whole text.
Scenario parse_scenario(const std::string &file, std::string_view text);

// Calls `each` for every statement of a kind, with its scenario and its line.
template <typename Kind, typename Each>
void for_each_statement(const std::vector<Scenario> &scenarios, const Each &each)
{
    for (const Scenario &scenario : scenarios) {
        for (const Statement &statement : scenario.statements) {
            if (const auto *what = std::get_if<Kind>(&statement.what)) {
                each(*what, scenario, statement.line);
            }
        }
    }
}

} // namespace cg::scenario

#endif
