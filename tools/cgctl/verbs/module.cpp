// cgctl module run: a check module that examines cards with a command.
#include "access/store.h"
#include "base/failure.h"
#include "base/text.h"
#include "modules/module_folder.h"
#include "run/check_runner.h"
#include "verbs/module_verbs.h"

namespace cg
{

namespace
{

constexpr std::size_t most_parallel = 256;
constexpr double shortest_limit_s = 0.001;
constexpr double longest_limit_s = 86400;

struct RunOptions {
    std::string name;
    std::size_t parallel = 4;
    double timeout_s = 240; // below check_timeout
};

std::string decimal_number(const std::string &text)
{
    const bool good = !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos;
    return good ? "" : "Value " + visible(text) + " is not a number of seconds, such as 2.5";
}

int run_module(const Session &session, const RunOptions &options)
{
    require_module_name(options.name);
    require_command(session, "cgctl module run " + options.name + " -- ./check");
    CheckRunner::Options settings{options.name, session.command, options.parallel,
                                  std::chrono::duration<double>(options.timeout_s)};
    // The module itself would wait for a store as long as it takes; a wrong endpoint is an error now.
    Store(session).connect(record_type("p_libpub.app_cg_card_check_info").db);
    CheckRunner(session, std::move(settings)).run();
    return done;
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

void add_module(CLI::App &app, Session &session)
{
    const char *examples =
        "  cgctl module run voltage -- ./check-voltage --strict\n"
        "  cgctl module run power --timeout 10 -- sh -c 'test \"$CG_NODE_TYPE\" != DM_TYPE_SFC'";
    CLI::App *module = add_verb(app, session, "module", "Be a check module, or test one", examples);
    module->require_subcommand(1);
    CLI::App *verb = add_verb(
        *module, session, "run",
        "Examine each card with a command. The card is in its environment: CG_MODULE, CG_CARD (1/3/0),\n"
        "CG_DEVID, CG_SLOTID, CG_SSLOTID, CG_DEV_TYPE, CG_NODE_TYPE, CG_NODEID; from card_info "
        "CG_CARD_NAME,\n"
        "CG_SERIAL, CG_ONLINE. Exit status 0 is PASS; anything else DENY, with the first line of the output "
        "as\n"
        "the reason.",
        examples);
    auto options = std::make_shared<RunOptions>();
    verb->add_option("NAME", options->name, "The module's name, at most 15 characters")
        ->required()
        ->type_name("MODULE");
    verb->add_option("--parallel", options->parallel, "Commands at the same time (default 4)")
        ->type_name("N")
        ->check(CLI::Range(std::size_t{1}, most_parallel));
    add_time_limit(*verb, options->timeout_s,
                   "Seconds after which a command is ended and denies (default 240)");
    set_action(*verb, session, options, run_module);
    add_module_test(*module, session);
    add_module_replay(*module, session);
}

} // namespace cg
