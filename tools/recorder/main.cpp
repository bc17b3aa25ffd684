// cg_recorderd: keeps what became of each card.
#include <csignal>
#include <iostream>

#include "failure.h"
#include "service.h"

namespace
{

int run(const cgctl::Session &session, const std::vector<std::string> &arguments)
{
    try {
        const auto options = recorder::parse_options(arguments, std::cout);
        if (options) {
            recorder::serve(session, *options);
        }
        return cgctl::done;
    } catch (const cgctl::Failure &failure) {
        session.error(failure.what());
        return failure.status();
    } catch (const std::exception &error) {
        session.error(error.what());
        return cgctl::failed;
    }
}

} // namespace

int main(int argc, char **argv)
{
    // Whoever reads metrics may go away while they are written.
    if (signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return cgctl::failed;
    }
    cgctl::Session session{std::cout, std::cerr};
    session.program = "cg_recorderd";
    return run(session, {argv + std::min(argc, 1), argv + argc});
}
