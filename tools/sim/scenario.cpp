// From the text of a scenario to its statements.
#include "scenario.h"

#include <algorithm>
#include <array>
#include <set>

#include "admission/words.h"
#include "base/failure.h"
#include "base/text.h"

namespace cg::scenario
{

namespace
{

using admission::State;

constexpr Milliseconds shortest{1};

// States that are expected by their name alone.
constexpr std::array plain_states{State::exempt, State::unasked, State::offline, State::absent};

What read_role(Line &line)
{
    // In the enumeration's order.
    return SetRole{
        static_cast<PDev__DmRoleE>(line.choice("a role", {"none", "master", "slave", "candidate"}))};
}

// "for 1/3/0", "for type 210" and "after 2s", in any order.
void read_conditions(Line &line, ModuleRule &rule)
{
    for (bool more = true; more;) {
        const std::size_t column = line.column();
        if (line.accept("for")) {
            if (rule.position || rule.type) {
                throw Mistake{column, "a second \"for\"; a line of its own says it of other cards"};
            }
            if (line.accept("type")) {
                rule.type = line.number("a card type, a number");
            } else {
                rule.position = line.position();
            }
        } else if (rule.manner == Manner::answers && line.accept("after")) {
            rule.after = line.time(Milliseconds{0});
        } else {
            more = false;
        }
    }
}

What read_module(Line &line)
{
    ModuleRule rule{line.module()};
    rule.manner = static_cast<Manner>(line.choice("a behaviour of a module", {"answers", "silent", "away"}));
    if (rule.manner == Manner::away) {
        return rule;
    }
    if (rule.manner == Manner::answers) {
        rule.pass = line.choice("an answer", {"pass", "deny"}) == 0;
        if (!rule.pass && line.at_quoted()) {
            rule.reason = line.quoted("a reason");
        }
    }
    read_conditions(line, rule);
    return rule;
}

void read_field(const Word &word, std::size_t equals, NewCard &card)
{
    const std::string name = word.text.substr(0, equals);
    const std::string value = word.text.substr(equals + 1);
    const bool is_number = name == "type" || name == "nodeid" || name == "tipc";
    if (is_number && !to_number(value, INT32_MIN, INT32_MAX)) {
        throw Mistake{word.column, visible(word.text) + ": not a whole number of 32 bits"};
    }
    if (name == "serial" && !from_hex(value)) {
        throw Mistake{word.column, visible(word.text) + ": not hexadecimal; two digits a byte"};
    }
    if (name == "name") {
        card.name = value;
    } else if (name == "serial") {
        card.serial = value;
    } else if (name == "type") {
        card.type = value;
    } else if (name == "nodeid") {
        card.nodeid = value;
    } else if (name == "tipc") {
        card.tipc = value;
    } else {
        throw Mistake{word.column, "unknown field " + in_quotes(name) + " of a card; " +
                                       suggestion(name, {"name", "serial", "type", "nodeid", "tipc"})};
    }
}

void read_kind(const Word &word, NewCard &card)
{
    try {
        node_type_value(word.text);
    } catch (const Failure &failure) {
        throw Mistake{word.column, failure.what()};
    }
    card.node_type = word.text;
}

What read_plug(Line &line)
{
    const std::size_t column = line.column();
    Plug plug{{line.position()}};
    std::set<std::string> given;
    for (bool first = true; !line.at_end(); first = false) {
        if (line.accept("offline")) {
            plug.card.offline = true;
            continue;
        }
        const Word word = line.word("a field");
        const std::size_t equals = word.quoted ? std::string::npos : word.text.find('=');
        if (equals == std::string::npos && !first) {
            throw Mistake{word.column, in_quotes(word.text) + " is not expected here; NAME=VALUE or offline"};
        }
        if (equals == std::string::npos) {
            read_kind(word, plug.card);
            continue;
        }
        if (!given.insert(word.text.substr(0, equals)).second) {
            throw Mistake{word.column, visible(word.text.substr(0, equals)) + " is given twice"};
        }
        read_field(word, equals, plug.card);
    }
    if ((!plug.card.nodeid || !plug.card.tipc) && !has_derived_ids(plug.card.position)) {
        throw Mistake{column, "no ids can be made for " + plug.card.position.text() +
                                  ", only up to 127/255/255; give nodeid= and tipc="};
    }
    return plug;
}

template <Move move>
What read_switch(Line &line)
{
    return Switch{line.position(), move};
}

What read_wait(Line &line)
{
    return Wait{line.time(shortest)};
}

What read_say(Line &line)
{
    return Say{line.quoted("what is said")};
}

void read_passed(Line &line, Expect &expect)
{
    if (!line.accept("by")) {
        return;
    }
    if (!line.accept("silence")) {
        expect.modules = {line.module()};
        return;
    }
    expect.state = State::silence;
    if (line.accept("of")) {
        expect.modules = line.modules();
    }
}

void read_denied(Line &line, Expect &expect)
{
    if (line.accept("by")) {
        expect.modules = {line.module()};
    }
    if (line.accept("because")) {
        expect.because = line.quoted("a reason");
    }
}

void read_wanted(Line &line, Expect &expect)
{
    std::vector<std::string> words{"passed", "denied", "waiting", "unmarked", "marked"};
    for (const State state : plain_states) {
        words.emplace_back(word_of(state));
    }
    const std::size_t choice = line.choice("a state", words);
    switch (choice) {
    case 0:
        expect.state = State::passed;
        return read_passed(line, expect);
    case 1:
        expect.state = State::denied;
        return read_denied(line, expect);
    case 2:
        expect.state = State::waiting;
        if (line.accept("for")) {
            expect.modules = line.modules();
        }
        return;
    case 3:
    case 4:
        expect.marked = choice == 4;
        return;
    default:
        expect.state = plain_states.at(choice - 5);
    }
}

What read_expect(Line &line)
{
    Expect expect;
    expect.position = line.position();
    read_wanted(line, expect);
    if (line.accept("within")) {
        expect.within = line.time(shortest);
    } else if (line.accept("throughout")) {
        expect.throughout = line.time(shortest);
    }
    return expect;
}

struct Form {
    const char *verb;
    const char *usage;
    What (*read)(Line &line);
};

constexpr std::array forms{
    Form{"role", "role none|master|slave|candidate", read_role},
    Form{"module",
         "module NAME answers pass|deny [\"REASON\"] [for POSITION|for type N] [after TIME], "
         "or module NAME silent|away",
         read_module},
    Form{"plug", "plug POSITION [KIND] [NAME=VALUE ...] [offline]", read_plug},
    Form{"online", "online POSITION", read_switch<Move::online>},
    Form{"offline", "offline POSITION", read_switch<Move::offline>},
    Form{"pull", "pull POSITION", read_switch<Move::pull>},
    Form{"wait", "wait TIME", read_wait},
    Form{"say", "say \"TEXT\"", read_say},
    Form{"expect", "expect POSITION STATE [within TIME|throughout TIME]", read_expect},
};

const Form &form_of(Line &line)
{
    static const std::vector<std::string> verbs = [] {
        std::vector<std::string> names;
        std::transform(forms.begin(), forms.end(), std::back_inserter(names),
                       [](const Form &form) { return form.verb; });
        return names;
    }();
    return forms.at(line.choice("a statement", verbs));
}

// The lines, without the carriage returns of files from elsewhere.
std::vector<std::string> lines_of(std::string_view text)
{
    std::vector<std::string> lines = split(text, '\n');
    for (std::string &line : lines) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
    }
    return lines;
}

void read_line(Scenario &scenario, std::string_view text, std::size_t number)
{
    try {
        Line line(text);
        if (line.at_end()) {
            return;
        }
        const Form &form = form_of(line);
        What what = form.read(line);
        line.end(form.usage);
        scenario.statements.push_back({number, line.text(), std::move(what)});
    } catch (const Mistake &mistake) {
        scenario.problems.push_back({number, mistake.column, mistake.message});
    }
}

} // namespace

Scenario read_scenario(const std::string &file, std::string_view text)
{
    Scenario scenario{file};
    std::size_t number = 0;
    for (const std::string &line : lines_of(text)) {
        read_line(scenario, line, ++number);
    }
    return scenario;
}

std::string shown(const Scenario &scenario, std::string_view text, const Problem &problem)
{
    std::string line = lines_of(text).at(problem.line - 1);
    std::replace(line.begin(), line.end(), '\t', ' ');
    std::size_t end = 0; // of what stands before the column
    while (end < line.size() && characters_in(std::string_view(line).substr(0, end + 1)) < problem.column) {
        ++end;
    }
    const std::string before = line.substr(0, end);
    // What could drive a terminal is shown as its escape, which is longer; and a column may lie behind the
    // end.
    const std::size_t caret = characters_in(visible(before)) + problem.column - 1 - characters_in(before);
    return visible(scenario.file) + ':' + std::to_string(problem.line) + ':' +
           std::to_string(problem.column) + ": " + problem.message + "\n    " + visible(line) + "\n    " +
           std::string(caret, ' ') + '^';
}

std::string text_of(const Expect &expect)
{
    if (!expect.state) {
        return expect.marked ? "marked" : "unmarked";
    }
    std::string text = expect.state == State::silence ? text_of(State::silence) : word_of(*expect.state);
    if (!expect.modules.empty()) {
        text += expect.state == State::silence ? " of " : expect.state == State::waiting ? " for " : " by ";
        text += visible(joined(expect.modules));
    }
    if (expect.because) {
        text += " because " + in_quotes(*expect.because);
    }
    return text;
}

} // namespace cg::scenario
