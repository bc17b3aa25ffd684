// The operator's command, run by tests.
//
// It is called as a function where it ends by itself, and in a forked child where it stays until it is
// stopped, so that signals and pipes are real there.
#ifndef CGCTL_RUN_CGCTL_H
#define CGCTL_RUN_CGCTL_H

#include <memory>
#include <string>
#include <vector>

#include "records/record_text.h"
#include "unit/support/store_test.h"

namespace cg
{

// What came of one invocation.
struct Outcome {
    int status = -1;
    std::string out;
    std::string err;

    [[nodiscard]] Json json() const { return Json::parse(out); }
};

// Runs the command in this process.
Outcome run_cgctl(const std::vector<std::string> &arguments);

// Runs the command, expects success, and returns what it printed.
std::string cgctl(const std::vector<std::string> &arguments);

// Starts the command in a child.
std::unique_ptr<Child> start_cgctl(const std::vector<std::string> &arguments);

// The lines of what it printed.
std::vector<std::string> lines_of(const std::string &text);

} // namespace cg

#endif
