// The completion script for zsh: a function for each verb, in the words of zsh's own _arguments.
#include <algorithm>

#include "command_line/completion.h"

namespace cg
{

namespace
{

constexpr const char *helpers = R"script(
# Record types: short names, and full ones where such a name was begun.
_cgctl_types()
{
    local -a short full
    short=(@SHORT@)
    full=(@FULL@)
    if [[ $PREFIX == [ps]_* ]]; then compadd -a full; else compadd -a short; fi
}

# What only the running store, the daemon or the device knows: asked of the command.
_cgctl_ask()
{
    local kind=$1 about= at
    local -a found ask
    ask=($_cgctl_command)
    for ((at = 2; at < CURRENT; at++)); do
        [[ $words[at] == -* || $words[at] == *=* ]] || { about=$words[at]; break }
    done
    found=(${(f)"$($ask complete $kind ${about:+$about} 2>/dev/null)"})
    if [[ $kind == *=* ]]; then compadd -S '' -a found; else compadd -a found; fi
}

# The command behind "--".
_cgctl_behind()
{
    if [[ $words[1] == -- ]]; then
        shift words
        ((CURRENT--))
    fi
    _normal
}
)script";

std::string function_name(const Verb &verb)
{
    return "_cgctl" +
           (verb.path.empty() ? "_all" : '_' + filled_in(filled_in(verb.path, " ", "_"), "-", "_"));
}

// A text inside the brackets or between the colons of a description.
std::string specified(std::string text)
{
    for (const char *special : {"\\", "[", "]", ":"}) {
        text = filled_in(text, special, std::string("\\") + special);
    }
    return text;
}

std::string action_of(const Argument &argument)
{
    if (!argument.words.empty()) {
        std::string words;
        for (const std::string &word : argument.words) {
            words += (words.empty() ? "" : " ") + word;
        }
        // Several values of an option stand in one word, with commas.
        const bool is_list = argument.repeated && !argument.names.empty();
        return is_list ? " _values -s , value " + words : '(' + words + ')';
    }
    if (argument.kind == "FILE") {
        return "_files";
    }
    if (argument.kind == "FOLDER") {
        return "_files -/";
    }
    if (argument.kind == "TYPE") {
        return " _cgctl_types";
    }
    const auto &kinds = known_kinds();
    const bool asked = std::find(kinds.begin(), kinds.end(), argument.kind) != kinds.end();
    return asked ? " _cgctl_ask " + argument.kind : " ";
}

std::string value_of(const Argument &argument)
{
    return argument.label.empty() ? ""
                                  : ':' + specified(argument.kind.empty() ? argument.label : argument.kind) +
                                        ':' + action_of(argument);
}

std::string line(const std::string &description)
{
    return " \\\n        " + shell_quoted(description);
}

std::string arguments_of(const Verb &verb)
{
    std::string text;
    for (const Argument &option : verb.options) {
        for (const std::string &name : option.names) {
            text += line((option.repeated ? "*" : "") + name + '[' + specified(option.description) + ']' +
                         value_of(option));
        }
    }
    for (std::size_t i = 0; i < verb.places.size(); ++i) {
        text += line(
            (verb.places[i].repeated ? "*" : std::to_string(i + 1) + (verb.places[i].required ? "" : ":")) +
            value_of(verb.places[i]));
    }
    if (verb.takes_command) {
        text += line("*:::command: _cgctl_behind");
    }
    return text;
}

std::string leaf(const Verb &verb)
{
    return '\n' + function_name(verb) + "()\n{\n    _arguments" + arguments_of(verb) + "\n}\n";
}

std::string group(const Verb &verb)
{
    std::string names;
    std::string cases;
    for (const Verb &below : verb.verbs) {
        names +=
            "\n                " + shell_quoted(filled_in(below.name, ":", "\\:") + ':' + below.description);
        cases += "\n                " + below.name + ") " + function_name(below) + " ;;";
    }
    return '\n' + function_name(verb) +
           "()\n{\n    local curcontext=$curcontext state line\n    local -A opt_args\n"
           "    _arguments -C" +
           arguments_of(verb) + line("1: :->verb") + line("*:: :->rest") +
           "\n    case $state in\n        verb)\n            local -a verbs\n            verbs=(" + names +
           "\n            )\n            _describe verb verbs ;;\n        rest)\n            case $words[1] "
           "in" +
           cases + "\n            esac ;;\n    esac\n}\n";
}

} // namespace

std::string zsh_completion(const Verb &program)
{
    std::string text = "#compdef cgctl\n# zsh completion for cgctl; made by `cgctl completion zsh`.\n";
    text += filled_in(filled_in(helpers, "@SHORT@", short_type_names()), "@FULL@", full_type_names());
    for_each_verb(program,
                  [&text](const Verb &verb) { text += verb.verbs.empty() ? leaf(verb) : group(verb); });
    return text + R"script(
_cgctl()
{
    local -a _cgctl_command
    local at
    _cgctl_command=($words[1])
    for ((at = 2; at < CURRENT; at++)); do
        case $words[at] in
            --endpoint | --socket) _cgctl_command+=($words[at] $words[at+1]) ;;
            --endpoint=* | --socket=*) _cgctl_command+=($words[at]) ;;
        esac
    done
    _cgctl_all "$@"
}

if [[ $funcstack[1] == _cgctl ]]; then _cgctl "$@"; else compdef _cgctl cgctl; fi
)script";
}

} // namespace cg
