// The completion script for bash.
//
// Tables as functions of `case`, written from the verbs, and one fixed part that walks the words of the line.
// It uses nothing of the package bash-completion, which a device need not have: so it joins the words
// that bash splits at "=" and ":" by itself.
#include "command_line/completion.h"

namespace cg
{

namespace
{

// Sets `reply` in place of printing: a subshell for each question would be felt at the keyboard.
constexpr const char *walk = R"script(
# Which values there are, of a kind; fills COMPREPLY.
_cgctl_fill()
{
    local kind=$1 word=$2
    case $kind in
        list:*)
            local before=
            [[ $word == *,* ]] && before=${word%,*},
            mapfile -t COMPREPLY < <(compgen -P "$before" -W "${kind#list:}" -- "${word##*,}")
            compopt -o nospace 2>/dev/null ;;
        words:*) mapfile -t COMPREPLY < <(compgen -W "${kind#words:}" -- "$word") ;;
        FILE) mapfile -t COMPREPLY < <(compgen -f -- "$word"); compopt -o filenames 2>/dev/null ;;
        FOLDER) mapfile -t COMPREPLY < <(compgen -d -- "$word"); compopt -o filenames 2>/dev/null ;;
        TYPE)
            local types=$_cgctl_types
            [[ $word == [ps]_* ]] && types=$_cgctl_full_types
            mapfile -t COMPREPLY < <(compgen -W "$types" -- "$word") ;;
        POS | MODULE | COMMAND | FIELD=VALUE | NAME=VALUE)
            mapfile -t COMPREPLY < <(compgen -W "$("${ask[@]}" complete "$kind" ${about:+"$about"} 2>/dev/null)" -- "$word")
            [[ $kind == *=* ]] && compopt -o nospace 2>/dev/null ;;
    esac
}

# The words of the line up to the cursor, those joined that bash has split at "=" and ":".
_cgctl_join()
{
    local i glue=
    words=("${COMP_WORDS[0]}")
    for ((i = 1; i <= COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} == [=:] && ${#words[@]} -gt 1 ]]; then
            words[-1]+=${COMP_WORDS[i]}
            glue=yes
        elif [[ $glue ]]; then
            words[-1]+=${COMP_WORDS[i]}
            glue=
        else
            words+=("${COMP_WORDS[i]}")
        fi
    done
}

_cgctl()
{
    local words path= option= about= place=0 i word reply ask=("$1")
    _cgctl_join
    for ((i = 1; i < ${#words[@]} - 1; i++)); do
        word=${words[i]}
        if [[ $option ]]; then
            [[ $option == --endpoint || $option == --socket ]] && ask+=("$option" "$word")
            option=
        elif [[ $word == -- ]]; then
            if ((i == ${#words[@]} - 2)); then
                mapfile -t COMPREPLY < <(compgen -c -- "${words[-1]}")
            else
                _cgctl_fill FILE "${words[-1]}"
            fi
            return
        elif [[ $word == --*=* ]]; then
            [[ $word == --endpoint=* || $word == --socket=* ]] && ask+=("$word")
        elif [[ $word == -* ]]; then
            _cgctl_value "$path" "$word" && option=$word
        elif _cgctl_verbs "$path" && [[ " $reply " == *" $word "* ]]; then
            path+=${path:+ }$word
        else
            ((place++ == 0)) && about=$word
        fi
    done
    word=${words[-1]}
    COMPREPLY=()
    if [[ $option ]]; then
        _cgctl_value "$path" "$option"
        _cgctl_fill "$reply" "$word"
    elif [[ $word == --*=* ]] && _cgctl_value "$path" "${word%%=*}"; then
        _cgctl_fill "$reply" "${word#*=}"
        return
    elif [[ $word == -* ]]; then
        _cgctl_options "$path"
        mapfile -t COMPREPLY < <(compgen -W "$reply" -- "$word")
    elif _cgctl_verbs "$path"; then
        mapfile -t COMPREPLY < <(compgen -W "$reply" -- "$word")
    elif _cgctl_place "$path" $((place + 1)); then
        _cgctl_fill "$reply" "$word"
    fi
    # Bash replaces what stands behind the last separator only.
    if [[ $word == *[=:]* && $COMP_WORDBREAKS == *=* ]]; then
        COMPREPLY=("${COMPREPLY[@]#"${word%"${word##*[=:]}"}"}")
    fi
}

complete -F _cgctl cgctl
)script";

std::string joined(const std::vector<std::string> &words, const char *between)
{
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

std::string kind_of(const Argument &argument)
{
    // Several values of an option stand in one word, with commas.
    const bool is_list = argument.repeated && !argument.names.empty();
    return argument.words.empty() ? argument.kind
                                  : (is_list ? "list:" : "words:") + joined(argument.words, " ");
}

// One line of a table: what it is about, and the answer.
std::string entry(const std::string &patterns, const std::string &answer)
{
    return "        " + patterns + ") reply=" + shell_quoted(answer) + " ;;\n";
}

// A function that sets `reply`, and fails when there is nothing.
std::string table(const std::string &comment, const std::string &name, const std::string &subject,
                  const std::string &entries)
{
    return "\n# " + comment + '\n' + name + "()\n{\n    case " + subject + " in\n" + entries +
           "        *) return 1 ;;\n    esac\n}\n";
}

std::string verbs_table(const Verb &program)
{
    std::string entries;
    for_each_verb(program, [&entries](const Verb &verb) {
        std::vector<std::string> names;
        for (const Verb &below : verb.verbs) {
            names.push_back(below.name);
        }
        if (!names.empty()) {
            entries += entry(shell_quoted(verb.path), joined(names, " "));
        }
    });
    return table("The verbs below a verb.", "_cgctl_verbs", "$1", entries);
}

std::string options_table(const Verb &program)
{
    std::string entries;
    for_each_verb(program, [&entries](const Verb &verb) {
        std::vector<std::string> names;
        for (const Argument &option : verb.options) {
            names.push_back(option.names.back());
        }
        entries += entry(shell_quoted(verb.path), joined(names, " "));
    });
    return table("The options of a verb.", "_cgctl_options", "$1", entries);
}

std::string values_table(const Verb &program)
{
    std::string entries;
    for_each_verb(program, [&entries](const Verb &verb) {
        for (const Argument &option : verb.options) {
            std::vector<std::string> patterns;
            for (const std::string &name : option.names) {
                // The program's own options may stand behind every verb.
                patterns.push_back(verb.path.empty() ? "*' " + name + '\''
                                                     : shell_quoted(verb.path + ' ' + name));
            }
            if (!option.label.empty()) {
                entries += entry(joined(patterns, " | "), kind_of(option));
            }
        }
    });
    return table("What an option of a verb takes.", "_cgctl_value", "\"$1 $2\"", entries);
}

std::string places_table(const Verb &program)
{
    std::string entries;
    for_each_verb(program, [&entries](const Verb &verb) {
        for (std::size_t i = 0; i < verb.places.size(); ++i) {
            const std::string place = verb.places[i].repeated ? " '*" : ' ' + std::to_string(i + 1) + '\'';
            entries += entry('\'' + verb.path + place, kind_of(verb.places[i]));
        }
    });
    return table("What stands in a place behind a verb.", "_cgctl_place", "\"$1 $2\"", entries);
}

} // namespace

std::string bash_completion(const Verb &program)
{
    return "# bash completion for cgctl; made by `cgctl completion bash`.\n"
           "# shellcheck shell=bash\n\n_cgctl_types=" +
           shell_quoted(short_type_names()) + "\n_cgctl_full_types=" + shell_quoted(full_type_names()) +
           '\n' + verbs_table(program) + options_table(program) + values_table(program) +
           places_table(program) + walk;
}

} // namespace cg
