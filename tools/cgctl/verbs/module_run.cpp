// cgctl module run: a check module that examines cards with a command.
#include "access/store.h"
#include "base/failure.h"
#include "command_line/module_command.h"
#include "command_line/verbs.h"
#include "p_libpub.pb-c.h"
#include "records/record_types.h"
#include "run/check_runner.h"

namespace cg
{

namespace
{

constexpr std::size_t most_parallel = 256;

struct RunOptions {
    std::string name;
    std::size_t parallel = 4;
    double timeout_s = 240; // below check_timeout
};

int run_module(const Session &session, const RunOptions &options)
{
    require_module_name(options.name);
    require_command(session, "cgctl module run " + options.name + " -- ./check");
    CheckRunner::Options settings{options.name, session.command, options.parallel,
                                  std::chrono::duration<double>(options.timeout_s)};
    // The module itself would wait for a store as long as it takes; a wrong endpoint is an error now.
    Store(session).connect(home_of(p_libpub__app_cg_card_check_info__descriptor));
    CheckRunner(session, std::move(settings)).run();
    return done;
}

} // namespace

void add_module_run(CLI::App &module, Session &session)
{
    CLI::App *verb = add_verb(
        module, session, "run",
        "Examine each card with a command. The card is in its environment: CG_MODULE, CG_CARD (1/3/0),\n"
        "CG_DEVID, CG_SLOTID, CG_SSLOTID, CG_DEV_TYPE, CG_NODE_TYPE, CG_NODEID; from card_info "
        "CG_CARD_NAME,\n"
        "CG_SERIAL, CG_ONLINE. Exit status 0 is PASS; anything else DENY, with the first line of the output "
        "as\n"
        "the reason.",
        "  cgctl module run voltage -- ./check-voltage --strict\n"
        "  cgctl module run power --timeout 10 -- sh -c 'test \"$CG_NODE_TYPE\" != DM_TYPE_SFC'");
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
}

} // namespace cg
