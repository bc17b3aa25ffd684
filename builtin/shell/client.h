// The other end of the debug shell: sends one command to a running process and waits for what came of it.
//
// Blocking and without the platform's context, because a tool asks one question and ends; each call opens a
// connection of its own. The path is that of socket_path(), unless the user names another one.
#ifndef SHELL_CLIENT_H
#define SHELL_CLIENT_H

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include <sys/types.h>

#include "shell/socket.h"

namespace ssat
{

// Why no handler has replied.
enum class Failure {
    nobody_there,    // no process listens on the socket, or the socket does not exist
    not_permitted,   // only root and the user whom the process runs as get in
    unknown_command, // the process does not offer the command, or not under that module
    wrong_usage,     // the arguments are not those of the command; nothing was called
    timed_out,       // the process listens, but did not answer in time; the command may still run
    broken,          // the answer is none of this protocol, or the connection broke while it came
};

// What is thrown in place of a reply. what() is one line that says what is wrong and, for
// wrong_usage, what would be right.
class Error : public std::runtime_error
{
public:
    // message  what what() returns.
    Error(Failure failure, const std::string &message);
    Failure failure() const noexcept { return failure_; }

private:
    Failure failure_;
};

// What came of a command whose handler was called.
struct Reply {
    int32_t result = 0;     // what the handler returned
    std::string output;     // the bytes it printed on standard output, as far as they were lent to us
    std::string output_at;  // where its output went when it did not come to us (a path as the kernel names
                            // it, "closed", or "" when everything is in `output`)
    bool truncated = false; // `output` is only the beginning
};

// A command as the process offers it.
struct Command {
    std::string module;
    std::string name;
    std::string args_template; // "void", or "a=%d b=%d"
};

// Has a command executed.
//
// arguments  texts of the form "name=value", in any order.
// timeout    for the whole exchange.
// Throws Error when no handler was called, or when its answer did not arrive.
Reply run(const std::string &socket_path, const std::string &module, const std::string &command,
          const std::vector<std::string> &arguments, std::chrono::milliseconds timeout);

// Returns the process that listens on the socket, as the kernel knows it. Throws Error.
pid_t process_at(const std::string &socket_path, std::chrono::milliseconds timeout);

// Returns the commands that the process offers, in the order of their registration. Throws Error.
std::vector<Command> commands(const std::string &socket_path, std::chrono::milliseconds timeout);

} // namespace ssat

#endif
