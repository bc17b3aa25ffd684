// cgctl debug: the client of the daemon's debug shell.
#include <unistd.h>

#include <iostream>

#include "command_line/verbs.h"
#include "shell/debug_shell.h"

namespace cg
{

namespace
{

struct DebugOptions {
    std::string command{};
    std::vector<std::string> arguments{};
    bool list = false;
};

int debug(const Session &session, const DebugOptions &options)
{
    DebugShell shell(session);
    if (options.list) {
        return shell.list();
    }
    if (!options.command.empty()) {
        return shell.run(options.command, options.arguments);
    }
    const bool somebody = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1 && !session.json;
    return somebody ? shell.talk() : shell.run_lines(std::cin);
}

} // namespace

void add_debug(CLI::App &app, Session &session)
{
    CLI::App *verb =
        add_verb(app, session, "debug",
                 "Run commands of the daemon's debug shell: one, those of a prompt, or those of standard "
                 "input",
                 "  cgctl debug\n"
                 "  cgctl debug --list\n"
                 "  cgctl debug dump_node\n"
                 "  cgctl debug log-level level=4");
    auto options = std::make_shared<DebugOptions>();
    verb->add_option("COMMAND", options->command, "The command; without it they are read, a line each");
    verb->add_option("NAME=VALUE", options->arguments, "Its arguments, in any order");
    verb->add_flag("--list", options->list, "List all commands");
    set_action(*verb, session, options, debug);
}

} // namespace cg
