// How a verb adds itself to the parser.
#ifndef COMMAND_LINE_VERB_H
#define COMMAND_LINE_VERB_H

#include <CLI/App.hpp>
#include <memory>

#include "command_line/session.h"

namespace cg
{

// Adds a verb. Every verb accepts --json, so that a script can always ask for errors that it can parse.
//
// description  one or more sentences, without a full stop at the end.
// examples     lines that begin with two blanks, each a command line that the parser accepts; one at least.
//
// Help, completion and the manual page are made from what is declared here. What an option accepts is said by
// its type name: a kind that completion knows (verb_tree.h), as in ->type_name("FOLDER"), the words
// themselves, as in
// ->type_name("master|slave"), or a short name like N. Prose goes into docs/man/cgctl, in a file called like
// the verb. A verb in the group "" is shown nowhere.
CLI::App *add_verb(CLI::App &app, Session &session, const char *name, const char *description,
                   const char *examples);

// Adds --color and --history, for the verbs that show cards to people.
void add_view_options(CLI::App &verb, std::string &color, std::string &history);

// Has the verb run this with its options when it is chosen. The options are filled by the parser until then.
template <typename Options>
void set_action(CLI::App &verb, Session &session, const std::shared_ptr<Options> &options,
                int (*run)(const Session &, const Options &))
{
    verb.callback([options, &session, run] {
        session.action = [options, &session, run] { return run(session, *options); };
    });
}

} // namespace cg

#endif
