// The command line of cg_sim.
#include "sim_options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>

#include "base/failure.h"
#include "base/text.h"

#ifndef CG_SIM_VERSION
#error "the build says which version this is"
#endif

namespace cg
{

namespace
{

constexpr double least_speed = 0.01;
constexpr double most_speed = 1000;

constexpr const char *description =
    "cg_sim - play a chassis: cards come and go, check modules answer, expectations are judged\n"
    "\n"
    "It plays scenarios, cg_scenario(5), against a running store (VX_MOM_ENDPOINT) and daemon "
    "(SSAT_SOCKET).\n"
    "What happens goes to standard error, the expectations and JSON to standard output.\n"
    "Exit status: 0 every expectation held, 1 one was missed or the play aborted, 2 wrong usage or a\n"
    "mistake in a scenario.";
constexpr const char *examples = "Examples:\n"
                                 "  cg_sim night.scenario\n"
                                 "  cg_sim --check night.scenario day.scenario\n"
                                 "  cg_sim --speed 20 --json -";

void add_options(CLI::App &app, SimOptions &options)
{
    app.name("cg_sim");
    app.footer(examples);
    app.set_version_flag("--version", "cg_sim " CG_SIM_VERSION, "Print the version and end");
    app.set_help_flag("-h,--help", "Print this help and end");
    app.add_option("FILE", options.files, "Scenarios, played one after the other; - is standard input")
        ->required()
        ->type_name("");
    app.add_flag("--check", options.check, "Only check the syntax; no store is needed");
    app.add_option("--speed", options.speed, "How many times faster the daemon's clock runs (default 1)")
        ->type_name("N");
    app.add_flag("--keep", options.keep, "Leave the cards plugged");
    app.add_flag("--stay", options.stay, "At the end, go on playing the modules until stopped");
    app.add_flag("--json", options.json, "Print JSON, errors included");
    app.add_option("--endpoint", options.endpoint, "Where the store is, in place of VX_MOM_ENDPOINT")
        ->type_name("ENDPOINT");
    app.add_option("--socket", options.socket, "Where the debug shell is, in place of SSAT_SOCKET")
        ->type_name("FILE");
}

} // namespace

std::optional<SimOptions> parse_options(std::vector<std::string> arguments, std::ostream &out)
{
    CLI::App app(description);
    SimOptions options;
    add_options(app, options);
    try {
        std::reverse(arguments.begin(), arguments.end()); // the parser consumes them from the back
        app.parse(arguments);
    } catch (const CLI::Success &help) {
        app.exit(help, out, out);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw Failure(wrong_usage, visible(error.what()) + "; `cg_sim --help` shows what is right");
    }
    // Not CLI::Range, which lets "nan" pass.
    if (!(options.speed >= least_speed && options.speed <= most_speed)) {
        throw Failure(wrong_usage, "--speed: not a factor from 0.01 to 1000");
    }
    return options;
}

} // namespace cg
