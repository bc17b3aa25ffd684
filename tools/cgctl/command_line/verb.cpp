// How a verb adds itself to the parser.
#include "command_line/verb.h"

namespace cg
{

CLI::App *add_verb(CLI::App &app, Session &session, const char *name, const char *verb_description,
                   const char *verb_examples)
{
    CLI::App *verb = app.add_subcommand(name, verb_description);
    verb->footer(std::string("Examples:\n") + verb_examples);
    verb->group("Verbs");
    verb->add_flag("--json", session.json, "Print JSON, errors included");
    return verb;
}

void add_view_options(CLI::App &verb, std::string &color, std::string &history)
{
    verb.add_option("--color", color, "Colours: on a terminal (auto), always or never")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    verb.add_option("--history", history, "The recorder's file, in place of CG_HISTORY")->type_name("FILE");
}

} // namespace cg
