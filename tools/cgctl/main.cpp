// cgctl: the operator's and integrator's command.
#include <csignal>
#include <iostream>
#include <string>
#include <vector>

#include "command_line/cli.h"

int main(int argc, char **argv)
{
    // A store or a reader of our output that goes away is an error to report, not a reason to be killed.
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return 1;
    }
    const std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    return cg::run(arguments, std::cout, std::cerr);
}
