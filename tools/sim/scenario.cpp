// From the text of a scenario to its statements.
#include "scenario.h"

#include <algorithm>
#include <array>

#include "base/failure.h"
#include "base/text.h"
#include "scenario_line.h"

namespace cg::scenario
{

namespace
{

constexpr Milliseconds shortest{1};

const std::vector<std::string> roles{"master", "slave", "candidate", "none"};
const std::vector<std::string> card_fields{"name", "serial", "type", "nodeid", "tipc"};
const std::vector<std::string> wanted_words{"passed",  "denied", "waiting", "exempt",  "unasked",
                                            "offline", "absent", "marked",  "unmarked"};

What read_role(Line &line)
{
    const Word word = line.word("a role");
    for (const std::string &role : roles) {
        if (word.text == role && !word.has_key) {
            return SetRole{role};
        }
    }
    throw Mistake{word.column, "unknown role " + in_quotes(word.text) + "; " + suggestion(word.text, roles)};
}

// "for 1/3/0", "for type 210" and "after 2s", in any order.
void read_conditions(Line &line, ModuleRule &rule)
{
    for (bool more = true; more;) {
        const std::size_t column = line.column();
        if (line.take("for")) {
            if (rule.position || rule.type) {
                throw Mistake{column, "a second \"for\"; a line of its own says it of other cards"};
            }
            if (line.take("type")) {
                rule.type = static_cast<int32_t>(line.number("a card type, a number"));
            } else {
                rule.position = line.position();
            }
        } else if (rule.manner == Manner::answers && line.take("after")) {
            rule.after = line.time(Milliseconds{0});
        } else {
            more = false;
        }
    }
}

void read_answer(Line &line, ModuleRule &rule)
{
    const Word verdict = line.word("\"pass\" or \"deny\"");
    if (verdict.text != "pass" && verdict.text != "deny") {
        throw Mistake{verdict.column, in_quotes(verdict.text) + " is no answer; " +
                                          suggestion(verdict.text, {"pass", "deny"})};
    }
    rule.pass = verdict.text == "pass";
    if (!rule.pass && line.peek() != nullptr && line.peek()->quoted) {
        rule.reason = line.quoted("a reason");
    }
}

What read_module(Line &line)
{
    ModuleRule rule{line.module()};
    const Word manner = line.word("\"answers\", \"silent\" or \"away\"");
    if (manner.text == "answers") {
        read_answer(line, rule);
    } else if (manner.text == "silent") {
        rule.manner = Manner::silent;
    } else if (manner.text == "away") {
        rule.manner = Manner::away;
        return rule;
    } else {
        throw Mistake{manner.column, "a module " + in_quotes(manner.text) + "; " +
                                         suggestion(manner.text, {"answers", "silent", "away"})};
    }
    read_conditions(line, rule);
    return rule;
}

// Passes a refusal of what the command line knows, too, to its place here.
template <typename Action>
void at_column(std::size_t column, const Action &action)
{
    try {
        action();
    } catch (const Failure &failure) {
        throw Mistake{column, failure.what()};
    }
}

void require_number(const Word &word)
{
    if (!to_number(word.text, INT32_MIN, INT32_MAX)) {
        throw Mistake{word.column, word.key + "=" + visible(word.text) + ": not a whole number of 32 bits"};
    }
}

void read_card_field(const Word &word, NewCard &card)
{
    if (word.key == "name") {
        card.name = word.text;
    } else if (word.key == "serial") {
        if (!from_hex(word.text)) {
            throw Mistake{word.column,
                          "serial=" + visible(word.text) + ": not hexadecimal; two digits a byte"};
        }
        card.serial = word.text;
    } else if (word.key == "type") {
        require_number(word);
        card.type = word.text;
    } else if (word.key == "nodeid") {
        require_number(word);
        card.nodeid = word.text;
    } else if (word.key == "tipc") {
        require_number(word);
        card.tipc = word.text;
    } else {
        throw Mistake{word.column, "unknown field " + in_quotes(word.key) + " of a card; " +
                                       suggestion(word.key, card_fields)};
    }
}

What read_plug(Line &line)
{
    const std::size_t column = line.column();
    Plug plug{{line.position()}};
    const Word *kind = line.peek();
    if (kind != nullptr && !kind->has_key && kind->text != "offline") {
        at_column(kind->column, [&] { node_type_value(kind->text); });
        plug.card.node_type = line.word("a kind").text;
    }
    std::vector<std::string> given;
    while (!line.at_end()) {
        if (line.take("offline")) {
            plug.card.offline = true;
            continue;
        }
        const Word field = line.word("a field");
        if (!field.has_key) {
            throw Mistake{field.column,
                          in_quotes(field.text) + " is not expected here; NAME=VALUE or offline"};
        }
        for (const std::string &earlier : given) {
            if (earlier == field.key) {
                throw Mistake{field.column, field.key + " is given twice"};
            }
        }
        given.push_back(field.key);
        read_card_field(field, plug.card);
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
    if (!line.take("by")) {
        return;
    }
    if (!line.take("silence")) {
        expect.modules = {line.module()};
        return;
    }
    expect.wanted = Wanted::silence;
    if (line.take("of")) {
        expect.modules = line.modules();
    }
}

void read_denied(Line &line, Expect &expect)
{
    expect.wanted = Wanted::denied;
    if (line.take("by")) {
        expect.modules = {line.module()};
    }
    if (line.take("because")) {
        expect.because = line.quoted("a reason");
    }
}

void read_wanted(Line &line, Expect &expect)
{
    const std::size_t column = line.column();
    if (line.take("passed")) {
        return read_passed(line, expect);
    }
    if (line.take("denied")) {
        return read_denied(line, expect);
    }
    if (line.take("waiting")) {
        expect.wanted = Wanted::waiting;
        if (line.take("for")) {
            expect.modules = line.modules();
        }
        return;
    }
    for (const Wanted wanted : {Wanted::exempt, Wanted::unasked, Wanted::offline, Wanted::absent,
                                Wanted::marked, Wanted::unmarked}) {
        if (line.take(text_of(wanted))) {
            expect.wanted = wanted;
            return;
        }
    }
    const Word word = line.word("what is expected, as in passed or denied,");
    throw Mistake{column, "nothing is " + in_quotes(word.text) + "; " + suggestion(word.text, wanted_words)};
}

What read_expect(Line &line)
{
    Expect expect;
    expect.position = line.position();
    read_wanted(line, expect);
    if (line.take("within")) {
        expect.within = line.time(shortest);
    } else if (line.take("throughout")) {
        expect.throughout = line.time(shortest);
    }
    return expect;
}

std::size_t characters_of(std::string_view text)
{
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

struct Form {
    const char *verb;
    const char *usage;
    What (*read)(Line &line);
};

constexpr std::array forms{
    Form{"role", "role master|slave|candidate|none", read_role},
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
    Form{"expect", "expect POSITION WHAT [within TIME|throughout TIME]", read_expect},
};

const Form &form_of(const Word &verb)
{
    std::vector<std::string> names;
    for (const Form &form : forms) {
        if (verb.text == form.verb && !verb.quoted && !verb.has_key) {
            return form;
        }
        names.emplace_back(form.verb);
    }
    throw Mistake{verb.column,
                  "unknown statement " + in_quotes(verb.text) + "; " + suggestion(verb.text, names)};
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
        if (line.is_empty()) {
            return;
        }
        const Place place{number, line.column()};
        const Form &form = form_of(line.word("a statement"));
        What what = form.read(line);
        line.end(form.usage);
        scenario.statements.push_back({place, line.text(), std::move(what)});
    } catch (const Mistake &mistake) {
        scenario.problems.push_back({{number, mistake.column}, mistake.message});
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
    check_scenario(scenario);
    return scenario;
}

std::string shown(const Scenario &scenario, std::string_view text, const Problem &problem)
{
    const std::string head = visible(scenario.file) + ':' + std::to_string(problem.place.line) + ':' +
                             std::to_string(problem.place.column) + ": " + problem.message;
    const std::string line = lines_of(text).at(problem.place.line - 1);
    std::string shown_line;
    std::size_t caret = 0;
    std::size_t column = 0;
    // A tab is shown as one blank, and what could drive the terminal as its escape, so the caret is counted
    // along.
    for (std::size_t i = 0; i < line.size();) {
        std::size_t length = 1;
        while (i + length < line.size() && (static_cast<unsigned char>(line[i + length]) & 0xC0U) == 0x80U) {
            ++length;
        }
        if (++column == problem.place.column) {
            caret = characters_of(shown_line);
        }
        shown_line += line[i] == '\t' ? " " : visible(line.substr(i, length));
        i += length;
    }
    if (problem.place.column > column) {
        caret = characters_of(shown_line) + problem.place.column - column - 1;
    }
    return head + "\n    " + shown_line + "\n    " + std::string(caret, ' ') + '^';
}

std::string text_of(Milliseconds time)
{
    const int64_t count = time.count();
    if (count % 1000 == 0) {
        return std::to_string(count / 1000) + 's';
    }
    if (count < 1000) {
        return std::to_string(count) + "ms";
    }
    std::string fraction = std::to_string(1000 + count % 1000).substr(1);
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return std::to_string(count / 1000) + '.' + fraction + 's';
}

const char *text_of(Wanted wanted)
{
    static constexpr std::array texts{"passed",  "passed by silence", "denied", "waiting", "exempt",
                                      "unasked", "offline",           "absent", "marked",  "unmarked"};
    return texts.at(static_cast<std::size_t>(wanted));
}

std::string text_of(const Expect &expect)
{
    std::string text = text_of(expect.wanted);
    const char *joint = expect.wanted == Wanted::silence   ? " of "
                        : expect.wanted == Wanted::waiting ? " for "
                                                           : " by ";
    for (const std::string &module : expect.modules) {
        text += joint + visible(module);
        joint = ", ";
    }
    if (expect.because) {
        text += " because " + in_quotes(*expect.because);
    }
    return text;
}

} // namespace cg::scenario
