// The daemon's debug shell, spoken to line by line.
#ifndef SHELL_DEBUG_SHELL_H
#define SHELL_DEBUG_SHELL_H

#include <sys/types.h>

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "command_line/session.h"

namespace ssat
{
struct Command; // of builtin/ssat_client.h
}

namespace cg
{

// What the last word of a line may become: a command at its beginning, then the names of that command's
// arguments that the line does not have yet.
std::vector<std::string> debug_completions(std::string_view line, const std::vector<ssat::Command> &commands);

// "as\tthey stand" -> {"as", "they", "stand"}.
std::vector<std::string> words_of(std::string_view line);

// The lines of what a command printed, as they can do no harm on a terminal.
std::vector<std::string> lines_for_terminal(const std::string &output);

// The time in what show_time prints at "app_cg run", in seconds since 1970; 0 when it is not there.
int64_t start_time_in(std::string_view printed);

class DebugShell
{
public:
    explicit DebugShell(const Session &session);
    ~DebugShell();
    DebugShell(const DebugShell &) = delete;
    DebugShell &operator=(const DebugShell &) = delete;

    // A prompt on the terminal, until Ctrl-D or quit. Returns the exit status.
    int talk();
    // Commands from a text, a line each; # begins a comment. All are run; the status is 1 when one of them
    // failed.
    int run_lines(std::istream &input);
    // One command. Returns what its handler returned as a status; throws Failure.
    int run(const std::string &command, const std::vector<std::string> &arguments);
    // All commands.
    int list();

private:
    // Carries out a line; what is wrong is told.
    bool run_line(const std::string &line);
    void tell_who();
    void notice_another();
    void help();
    void print(const std::string &output);

    const Session &session_;
    std::string socket_;
    std::vector<ssat::Command> commands_;
    pid_t pid_ = -1;
};

} // namespace cg

#endif
