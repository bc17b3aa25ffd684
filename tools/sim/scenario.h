// A chassis' story, as its file tells it: what is done, and what is expected to come of it.
//
// The language is one statement a line, in the words of those who plug cards; cg_scenario(5) describes it. It
// is a language of its own and not one of the general ones (YAML, a script in Python), because a file is to
// be checked as a whole before the first card is touched, and a mistake is to be shown where it stands.
#ifndef SIM_SCENARIO_H
#define SIM_SCENARIO_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "modules/contract.h"
#include "records/new_card.h"

namespace cg::scenario
{

using Milliseconds = std::chrono::milliseconds;

// Where something stands, counted from 1, columns in characters.
struct Place {
    std::size_t line = 0;
    std::size_t column = 0;
};

struct SetRole {
    std::string role; // "master", ...
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

enum class Wanted { passed, silence, denied, waiting, exempt, unasked, offline, absent, marked, unmarked };

struct Expect {
    Position position{};
    Wanted wanted = Wanted::passed;
    std::vector<std::string> modules{};       // the decider; the silent ones; those waited for; empty: any
    std::optional<std::string> because{};     // what the reason holds
    std::optional<Milliseconds> within{};     // it becomes so
    std::optional<Milliseconds> throughout{}; // it is so and stays so
};

using What = std::variant<SetRole, ModuleRule, Plug, Switch, Wait, Say, Expect>;

struct Statement {
    Place place;      // of its first word
    std::string text; // as it stands in the file, without a comment
    What what;
};

struct Problem {
    Place place;
    std::string message; // one line: what is wrong, and what would be right
};

struct Scenario {
    std::string file; // its name, for messages
    std::vector<Statement> statements{};
    std::vector<Problem>
        problems{}; // in the order of the lines; with any, the statements are not to be played
};

// Reads and checks a whole text.
Scenario read_scenario(const std::string &file, std::string_view text);

// The mistakes that a line alone does not show: a card that is not there, a module that nobody plays, an
// expectation that can't come true. Adds to the problems.
void check_scenario(Scenario &scenario);

// "FILE:LINE:COLUMN: message", the line, and a caret below its column.
std::string shown(const Scenario &scenario, std::string_view text, const Problem &problem);

// "300s", "1.5s", "20ms".
std::string text_of(Milliseconds time);
// "passed by silence", "denied", ...
const char *text_of(Wanted wanted);
// What is expected, without position and time: "denied by m1 because \"too warm\"".
std::string text_of(const Expect &expect);

// How long a check takes whose modules do not all answer.
inline constexpr std::chrono::seconds check_time = check_timeout;

} // namespace cg::scenario

#endif
