// What one invocation of the command carries from its arguments to its verb.
#ifndef COMMAND_LINE_SESSION_H
#define COMMAND_LINE_SESSION_H

#include <functional>
#include <string>
#include <vector>

#include "base/output.h"

namespace cg
{

struct Session : Output {
    std::string endpoint{};             // --endpoint, or empty: the platform's setting decides
    std::string socket{};               // --socket, or empty: the platform's setting decides
    bool has_command = false;           // a "--" was among the arguments
    std::vector<std::string> command{}; // what stood behind it
    std::function<int()> action{};      // what the chosen verb does; returns an exit status
};

} // namespace cg

#endif
