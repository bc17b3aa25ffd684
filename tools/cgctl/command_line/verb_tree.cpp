// What the command can do, as plain data read off the parser.
#include "command_line/verb_tree.h"

#include <CLI/App.hpp>
#include <algorithm>
#include <sstream>

#include "base/text.h"

namespace cg
{

namespace
{

std::string on_one_line(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

// The words of "a|b", or of a check "TEXT:{a,b}".
std::vector<std::string> fixed_words(const std::string &type)
{
    const auto open = type.find(":{");
    if (open != std::string::npos && type.ends_with('}')) {
        return split(type.substr(open + 2, type.size() - open - 3), ',');
    }
    return type.find('|') == std::string::npos ? std::vector<std::string>{} : split(type, '|');
}

bool is_kind(const std::string &name)
{
    return std::find(known_kinds().begin(), known_kinds().end(), name) != known_kinds().end();
}

Argument argument_of(const CLI::Option &option)
{
    Argument argument;
    for (const std::string &name : option.get_snames()) {
        argument.names.push_back('-' + name);
    }
    for (const std::string &name : option.get_lnames()) {
        argument.names.push_back("--" + name);
    }
    const std::string type = option.get_type_name();
    argument.words = fixed_words(type);
    argument.label = shown_value(option);
    argument.kind = is_kind(type) || !argument.names.empty() ? type : option.get_name();
    argument.description = on_one_line(option.get_description());
    argument.required = option.get_required();
    argument.repeated = option.get_expected_max() > 1;
    return argument;
}

// The lines of the footer that are set in.
std::vector<std::string> examples_of(const CLI::App &app)
{
    std::vector<std::string> examples;
    for (const std::string &line : split(app.get_footer(), '\n')) {
        if (line.starts_with("  ")) {
            examples.push_back(line.substr(2));
        }
    }
    return examples;
}

void add_arguments(const CLI::App &app, Verb &verb)
{
    for (const CLI::Option *option : app.get_options()) {
        if (option->get_positional()) {
            verb.places.push_back(argument_of(*option));
        } else if (!option->get_group().empty()) {
            verb.options.push_back(argument_of(*option));
        }
    }
}

} // namespace

const std::vector<std::string> &known_kinds()
{
    static const std::vector<std::string> kinds{"FILE",        "FOLDER",  "POS",        "TYPE",
                                                "FIELD=VALUE", "COMMAND", "NAME=VALUE", "MODULE"};
    return kinds;
}

void for_each_verb(const Verb &verb, const std::function<void(const Verb &)> &action)
{
    action(verb);
    for (const Verb &below : verb.verbs) {
        for_each_verb(below, action);
    }
}

std::string shown_value(const CLI::Option &option)
{
    if (option.get_type_size() == 0 || option.get_expected_max() == 0) {
        return "";
    }
    if (option.get_positional()) {
        return option.get_name();
    }
    const std::string words = shown_words(option);
    // Behind the colon stands what a check accepts.
    const std::string type = option.get_type_name();
    return words.empty() ? type.substr(0, type.find(':')) : words;
}

std::string shown_words(const CLI::Option &option)
{
    return joined(fixed_words(option.get_type_name()), "|");
}

Verb describe(const CLI::App &app)
{
    Verb verb;
    const bool is_program = app.get_parent() == nullptr;
    verb.name = app.get_name();
    verb.description = on_one_line(app.get_description());
    verb.examples = examples_of(app);
    verb.wants_verb = app.get_require_subcommand_min() > 0;
    verb.takes_command = std::any_of(verb.examples.begin(), verb.examples.end(), [](const std::string &line) {
        return line.find(" -- ") != std::string::npos;
    });
    add_arguments(app, verb);
    for (const CLI::App *sub : app.get_subcommands([](const CLI::App *) { return true; })) {
        if (!sub->get_group().empty()) {
            verb.verbs.push_back(describe(*sub));
        }
    }
    for (const CLI::App *at = &app; !is_program && at->get_parent() != nullptr; at = at->get_parent()) {
        verb.path = at->get_name() + (verb.path.empty() ? "" : ' ' + verb.path);
    }
    verb.takes_command = verb.takes_command && verb.verbs.empty();
    return verb;
}

} // namespace cg
