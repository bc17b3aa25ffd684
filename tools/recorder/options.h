// The recorder's command line.
#ifndef RECORDER_OPTIONS_H
#define RECORDER_OPTIONS_H

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "recorder.h"

namespace recorder
{

struct Options {
    Settings settings{};
    std::string listen{}; // "127.0.0.1:PORT"; empty: no metrics are served
};

// Parses the arguments, without the program's name. Nothing when help or the version was wanted, which is
// written to `out`. Throws cg::Failure (wrong usage).
std::optional<Options> parse_options(std::vector<std::string> arguments, std::ostream &out);

} // namespace recorder

#endif
