// The daemon's debug shell, spoken to line by line.
#ifndef SHELL_DEBUG_SHELL_H
#define SHELL_DEBUG_SHELL_H

#include <sys/types.h>

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "command_line/session.h"

namespace cg
{

// The lines of what a command printed, as they can do no harm on a terminal.
std::vector<std::string> lines_for_terminal(const std::string &output);

// The time in what show_time prints at "app_cg run", in seconds since 1970; 0 when it is not there.
int64_t start_time_in(std::string_view printed);

class DebugShell
{
public:
    explicit DebugShell(const Session &session);

    // Commands from a text, a line each; # begins a comment. All are run; the status is 1 when one of them
    // failed.
    int run_lines(std::istream &input);
    // One command. Returns what its handler returned as a status; throws Failure.
    int run(const std::string &command, const std::vector<std::string> &arguments);
    // All commands.
    int list();

private:
    // Carries out a line; prints what is wrong with it, and returns whether all was well.
    bool run_line(const std::string &line);
    // Prints which daemon answers, as a live message.
    void print_identity();
    // Prints it again when another process has taken its place.
    void notice_restart();
    void print(const std::string &output);

    const Session &session_;
    std::string socket_;
    pid_t pid_ = -1;
};

} // namespace cg

#endif
