// The operator's command, run by tests; see the header.
#include "unit/tools/cgctl/run_cgctl.h"

#include <gtest/gtest.h>

#include <iostream>
#include <sstream>

#include "command_line/cli.h"

namespace cg
{

Outcome run_cgctl(const std::vector<std::string> &arguments)
{
    std::ostringstream out;
    std::ostringstream err;
    const int status = run(arguments, out, err);
    return {status, out.str(), err.str()};
}

std::string cgctl(const std::vector<std::string> &arguments)
{
    const Outcome outcome = run_cgctl(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.out;
}

std::unique_ptr<Child> start_cgctl(const std::vector<std::string> &arguments)
{
    return std::make_unique<Child>([&] { return run(arguments, std::cout, std::cerr); });
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

} // namespace cg
