// What the verbs below `cgctl module` share.
#include "command_line/module_command.h"

#include <CLI/App.hpp>

#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"
#include "process/child_process.h"

namespace cg
{

namespace
{

constexpr double shortest_limit_s = 0.001;
constexpr double longest_limit_s = 86400;

std::string decimal_number(const std::string &text)
{
    const bool good = !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
    return good ? "" : "Value " + visible(text) + " is not a number of seconds, such as 2.5";
}

} // namespace

void require_module_name(const std::string &name)
{
    if (const std::string mistake = module_name_mistake(name); !mistake.empty()) {
        throw Failure(wrong_usage, mistake);
    }
}

void add_time_limit(CLI::App &verb, double &seconds, const char *description)
{
    verb.add_option("--timeout", seconds, description)
        ->type_name("S")
        ->check(decimal_number) // the parser would accept "nan"
        ->check(CLI::Range(shortest_limit_s, longest_limit_s));
}

void require_command(const Session &session, const std::string &example)
{
    if (session.command.empty()) {
        throw Failure(wrong_usage, "no command; put it at the end, as in `" + example + "`");
    }
    if (find_program(session.command.front()).empty()) {
        throw Failure(wrong_usage, "command " + in_quotes(session.command.front()) +
                                       " cannot be executed; a program in PATH, or a path to one");
    }
}

} // namespace cg
