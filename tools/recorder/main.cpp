// cg_recorderd: keeps what became of each card.
#include <csignal>
#include <iostream>

#include "base/failure.h"
#include "service.h"

namespace
{

int run(const cg::Output &output, const std::vector<std::string> &arguments)
{
    try {
        const auto options = recorder::parse_options(arguments, std::cout);
        if (options) {
            recorder::serve(output, *options);
        }
        return cg::done;
    } catch (const cg::Failure &failure) {
        output.error(failure.what());
        return failure.status();
    } catch (const std::exception &error) {
        output.error(error.what());
        return cg::failed;
    }
}

} // namespace

int main(int argc, char **argv)
{
    // A reader of metrics may close its connection while they are written.
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return cg::failed;
    }
    cg::Output output{std::cout, std::cerr};
    output.program = "cg_recorderd";
    return run(output, {argv + std::min(argc, 1), argv + argc});
}
