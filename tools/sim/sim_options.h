// The command line of cg_sim.
#ifndef SIM_SIM_OPTIONS_H
#define SIM_SIM_OPTIONS_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace cg
{

struct SimOptions {
    std::vector<std::string> files{}; // one at least
    double speed = 1;                 // seconds of the daemon in one of ours
    bool check = false;
    bool keep = false;
    bool stay = false;
    bool json = false;
    std::string endpoint{}; // empty: the platform's setting decides, as for the socket
    std::string socket{};
};

// Parses the arguments, without the program's name. Nothing when help or the version was wanted, which is
// written to `out`. Throws Failure (wrong usage).
std::optional<SimOptions> parse_options(std::vector<std::string> arguments, std::ostream &out);

} // namespace cg

#endif
