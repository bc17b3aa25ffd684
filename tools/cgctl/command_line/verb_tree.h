// What the command can do, as plain data read off the parser.
//
// Help, completion and the manual page all show the same verbs. The parser knows them already, so none of the
// three has a list of its own that could become outdated.
#ifndef COMMAND_LINE_VERB_TREE_H
#define COMMAND_LINE_VERB_TREE_H

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace cg
{

// An option, or an argument without a name of its own.
struct Argument {
    std::vector<std::string> names{}; // "-h", "--help"; empty for an argument that goes by its place
    std::string label{};              // what stands for the value: "POS"; empty for an option without one
    std::string kind{}; // what completes it: a name of known_kinds(), or anything else for nothing
    std::vector<std::string> words{}; // the values, where they are from a fixed set
    std::string description{};        // without line breaks
    bool required = false;
    bool repeated = false;
};

struct Verb {
    std::string path{}; // "card plug"; empty for the program
    std::string name{};
    std::string description{}; // without line breaks
    std::vector<std::string> examples{};
    std::vector<Argument> options{}; // in the order of the help
    std::vector<Argument> places{};  // arguments that go by their place
    std::vector<Verb> verbs{};       // below this one; those that the help does not show are not among them
    bool wants_verb = false;         // does nothing without one of them
    bool takes_command = false;      // "--" and a command may follow, as an example shows
};

// Reads a verb and those below it. A verb declares what completes a value by the option's type name: a known
// kind, or its words as in "master|slave".
Verb describe(const CLI::App &app);

// Calls a function for a verb and all below it, the verb first.
void for_each_verb(const Verb &verb, const std::function<void(const Verb &)> &action);

// The kinds of values that completion can offer: FILE, FOLDER, POS, TYPE, FIELD=VALUE, COMMAND, NAME=VALUE
// and MODULE.
const std::vector<std::string> &known_kinds();

// What stands for an option's value in the help.
std::string shown_value(const CLI::Option &option);

// The words of an option's fixed set, with bars between; empty without one.
std::string shown_words(const CLI::Option &option);

} // namespace cg

#endif
