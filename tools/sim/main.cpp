// cg_sim: plays scenarios against a running store and daemon.
//
// It stands in for everything around the daemon: the device manager that writes the cards, and the check
// modules.
#include <algorithm>
#include <csignal>
#include <iostream>

#include "base/failure.h"
#include "files.h"
#include "play.h"
#include "sim_options.h"

namespace
{

// Parse, read, and play; what cannot be done becomes a message and a status.
int run(cg::Output &output, const std::vector<std::string> &arguments)
{
    try {
        const auto options = cg::parse_options(arguments, output.out);
        if (!options) {
            return cg::done;
        }
        const auto scenarios = cg::read_files(output, options->files);
        return options->check ? cg::confirm(output, scenarios) : cg::play(output, *options, scenarios);
    } catch (const cg::Failure &failure) {
        if (*failure.what() != '\0') {
            output.error(failure.what());
        }
        return failure.status();
    } catch (const std::exception &error) {
        output.error(error.what());
        return cg::failed;
    }
}

} // namespace

int main(int argc, char **argv)
{
    // A store or a reader of our output that goes away is an error to report, not a reason to be killed.
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return cg::failed;
    }
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    cg::Output output{std::cout, std::cerr};
    output.program = "cg_sim";
    // An error of the parser itself should come as asked, too.
    output.json = std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
    return run(output, arguments);
}
