// From the text of a scenario to its statements.
#include "scenario.h"

#include <algorithm>
#include <array>
#include <set>

#include "admission/words.h"
#include "base/failure.h"
#include "base/terminal.h"
#include "base/text.h"

namespace cg::scenario
{

namespace
{

using admission::State;

What parse_role(Line &line)
{
    // In the enumeration's order.
    return SetRole{
        static_cast<PDev__DmRoleE>(line.choice("a role", {"none", "master", "slave", "candidate"}))};
}

// "for 1/3/0", "for type 210" and "after 2s", in any order.
void parse_conditions(Line &line, ModuleRule &rule)
{
    for (;;) {
        const std::size_t begin = line.at();
        if (line.accept("for")) {
            if (rule.position || rule.type) {
                throw Mistake{begin, "a second \"for\"; a line of its own says it of other cards"};
            }
            if (line.accept("type")) {
                rule.type = line.number("a card type, a number");
            } else {
                rule.position = line.position();
            }
        } else if (rule.manner == Manner::answers && line.accept("after")) {
            rule.after = line.time(Milliseconds{0});
        } else {
            return;
        }
    }
}

What parse_module(Line &line)
{
    ModuleRule rule{line.module()};
    rule.manner = static_cast<Manner>(line.choice("a behaviour of a module", {"answers", "silent", "away"}));
    if (rule.manner == Manner::answers) {
        rule.pass = line.choice("an answer", {"pass", "deny"}) == 0;
        if (!rule.pass && line.at_quoted()) {
            rule.reason = line.quoted("a reason");
        }
    }
    if (rule.manner != Manner::away) {
        parse_conditions(line, rule);
    }
    return rule;
}

// What a statement may say of a card; the first one is said without its name.
struct Field {
    const char *name;
    void (*set)(NewCard &card, const std::string &value);
};

constexpr std::array fields{
    Field{"kind", [](NewCard &card, const std::string &value) { card.node_type = value; }},
    Field{"name", [](NewCard &card, const std::string &value) { card.name = value; }},
    Field{"serial", [](NewCard &card, const std::string &value) { card.serial = value; }},
    Field{"type", [](NewCard &card, const std::string &value) { card.type = value; }},
    Field{"nodeid", [](NewCard &card, const std::string &value) { card.nodeid = value; }},
    Field{"tipc", [](NewCard &card, const std::string &value) { card.tipc = value; }},
};

const Field &field_of(const Word &word, const std::string &name)
{
    const auto *const found = std::find_if(fields.begin() + 1, fields.end(),
                                           [&](const Field &field) { return name == field.name; });
    if (found == fields.end()) {
        throw Mistake{word.begin, "unknown field " + in_quotes(name) + " of a card; " +
                                      suggestion(name, {"name", "serial", "type", "nodeid", "tipc"})};
    }
    return *found;
}

What parse_plug(Line &line)
{
    const std::size_t begin = line.at();
    Plug plug{{line.position()}};
    std::set<std::string> given;
    while (!line.at_end()) {
        if (line.accept("offline")) {
            plug.card.offline = true;
            continue;
        }
        const Word word = line.word("a field");
        const std::size_t equals = word.quoted ? std::string::npos : word.text.find('=');
        const bool is_kind = equals == std::string::npos;
        if (is_kind && !given.empty()) {
            throw Mistake{word.begin, in_quotes(word.text) + " is not expected here; NAME=VALUE or offline"};
        }
        const std::string value = is_kind ? word.text : word.text.substr(equals + 1);
        const Field &field = is_kind ? fields.front() : field_of(word, word.text.substr(0, equals));
        if (!given.insert(field.name).second) {
            throw Mistake{word.begin, std::string(field.name) + " is given more than once"};
        }
        field.set(plug.card, value);
        try {
            NewCard alone; // at a position from which ids can be made
            field.set(alone, value);
            card_info_of(alone);
        } catch (const Failure &failure) {
            throw Mistake{word.begin, failure.what()};
        }
    }
    if ((!plug.card.nodeid || !plug.card.tipc) && !has_derived_ids(plug.card.position)) {
        throw Mistake{begin, "no ids can be made for " + plug.card.position.text() +
                                 ", only up to 127/255/255; give nodeid= and tipc="};
    }
    return plug;
}

template <Move move>
What parse_switch(Line &line)
{
    return Switch{line.position(), move};
}

void parse_modules(Line &line, const char *keyword, Expect &expect)
{
    if (line.accept(keyword)) {
        expect.modules = line.modules();
    }
}

void parse_passed(Line &line, Expect &expect)
{
    if (!line.accept("by")) {
        return;
    }
    if (line.accept("silence")) { // earlier words for it
        expect.state = State::silence;
        parse_modules(line, "of", expect);
    } else {
        expect.modules = {line.module()};
    }
}

void parse_denied(Line &line, Expect &expect)
{
    if (line.accept("by")) {
        expect.modules = {line.module()};
    }
    if (line.accept("because")) {
        expect.because = line.quoted("a reason");
    }
}

void parse_wanted(Line &line, Expect &expect)
{
    static constexpr std::array states{State::passed, State::silence, State::denied,  State::waiting,
                                       State::exempt, State::unasked, State::offline, State::absent};
    if (line.accept("unasked")) { // an earlier word for it
        expect.state = State::unasked;
        return;
    }
    std::vector<std::string> words{"unmarked", "marked"};
    for (const State state : states) {
        words.push_back(split(text_of(state), ' ').front());
    }
    const std::size_t choice = line.choice("a state", words);
    if (choice < 2) {
        expect.marked = choice == 1;
        return;
    }
    expect.state = states.at(choice - 2);
    words = split(text_of(*expect.state), ' ');
    for (std::size_t i = 1; i < words.size(); ++i) {
        (void)line.choice("the state's next word", {words[i]});
    }
    if (expect.state == State::passed) {
        parse_passed(line, expect);
    } else if (expect.state == State::silence) {
        parse_modules(line, "of", expect);
    } else if (expect.state == State::denied) {
        parse_denied(line, expect);
    } else if (expect.state == State::waiting) {
        parse_modules(line, "for", expect);
    }
}

What parse_expect(Line &line)
{
    Expect expect{line.position()};
    const std::size_t begin = line.at();
    parse_wanted(line, expect);
    expect.text = line.text_from(begin);
    if (line.accept("within")) {
        expect.within = line.time();
    } else if (line.accept("throughout")) {
        expect.throughout = line.time();
    }
    return expect;
}

// Every kind of statement.
struct Form {
    const char *verb;
    const char *usage;
    What (*parse)(Line &line);
};

constexpr std::array forms{
    Form{"role", "role none|master|slave|candidate", parse_role},
    Form{"module",
         "module NAME answers pass|deny [\"REASON\"] [for POSITION|for type N] [after TIME], "
         "or module NAME silent|away",
         parse_module},
    Form{"plug", "plug POSITION [KIND] [NAME=VALUE ...] [offline]", parse_plug},
    Form{"online", "online POSITION", parse_switch<Move::online>},
    Form{"offline", "offline POSITION", parse_switch<Move::offline>},
    Form{"pull", "pull POSITION", parse_switch<Move::pull>},
    Form{"wait", "wait TIME", [](Line &line) -> What { return Wait{line.time()}; }},
    Form{"say", "say \"TEXT\"", [](Line &line) -> What { return Say{line.quoted("what is said")}; }},
    Form{"expect", "expect POSITION STATE [within TIME|throughout TIME]", parse_expect},
};

std::size_t characters_in(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

Problem problem_of(std::size_t number, std::string line, const Mistake &mistake)
{
    std::replace(line.begin(), line.end(), '\t', ' ');
    const std::string before = line.substr(0, mistake.at);
    const std::size_t behind = mistake.at - before.size(); // the end of the line
    return {number, characters_in(before) + behind + 1, mistake.message,
            "    " + visible(line) + "\n    " + std::string(columns_of(visible(before)) + behind, ' ') + '^'};
}

void parse_line(Scenario &scenario, std::size_t number, const std::string &text)
{
    static const std::vector<std::string> verbs = [] {
        std::vector<std::string> names;
        std::transform(forms.begin(), forms.end(), std::back_inserter(names),
                       [](const Form &form) { return form.verb; });
        return names;
    }();
    try {
        Line line(text);
        if (!line.at_end()) {
            const Form &form = forms.at(line.choice("a statement", verbs));
            What what = form.parse(line);
            line.end(form.usage);
            scenario.statements.push_back({number, std::move(what)});
        }
    } catch (const Mistake &mistake) {
        scenario.problems.push_back(problem_of(number, text, mistake));
    }
}

} // namespace

Scenario parse_scenario(const std::string &file, std::string_view text)
{
    Scenario scenario{file};
    std::size_t number = 0;
    for (std::string line : split(text, '\n')) {
        if (line.ends_with('\r')) {
            line.pop_back(); // of a file from elsewhere
        }
        parse_line(scenario, ++number, line);
    }
    return scenario;
}

} // namespace cg::scenario
