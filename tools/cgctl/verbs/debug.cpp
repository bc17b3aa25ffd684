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
    if (!options.command.empty()) {
        return shell.run(options.command, options.arguments);
    }
    return options.list || isatty(STDIN_FILENO) == 1 ? shell.list() : shell.run_lines(std::cin);
}

} // namespace

void add_debug(CLI::App &app, Session &session)
{
    CLI::App *verb = add_verb(app, session, "debug",
                              "Run commands of the daemon's debug shell: one, or those of standard input",
                              "  cgctl debug --list\n"
                              "  cgctl debug dump_node\n"
                              "  cgctl debug log-level level=4\n"
                              "  cgctl debug < commands.txt");
    auto options = std::make_shared<DebugOptions>();
    verb->add_option("COMMAND", options->command,
                     "The command; without it standard input has one in each line");
    verb->add_option("NAME=VALUE", options->arguments, "Its arguments, in any order");
    verb->add_flag("--list", options->list, "List all commands");
    set_action(*verb, session, options, debug);
}

} // namespace cg
