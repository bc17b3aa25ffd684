// What one invocation of the command carries from its arguments to its verb.
#ifndef CGCTL_SESSION_H
#define CGCTL_SESSION_H

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "record_text.h"

namespace cgctl
{

struct Session {
    std::ostream &out; // data
    std::ostream &err; // live messages
    bool json = false;
    std::string endpoint{};             // --endpoint, or empty: the platform's setting decides
    std::string socket{};               // --socket, or empty: the platform's setting decides
    bool has_command = false;           // a "--" was among the arguments
    std::vector<std::string> command{}; // what stood behind it
    std::function<int()> action{};      // what the chosen verb does; returns an exit status
    std::string program = "cgctl";      // who says so, before each message

    // Writes a live message: a line, or with --json {"notice": ...}. Flushed at once.
    void notice(const std::string &text) const;
    // Writes an error: a line, or with --json {"error": ...}.
    void error(const std::string &text) const;
    // Writes one line of data and flushes it. Throws as check_output().
    void line(const std::string &text) const;
    // Flushes the data. Throws Failure when the output is gone: without a message when its reader went away,
    // as the one in `cgctl list | head -1` does.
    void check_output() const;
};

} // namespace cgctl

#endif
