// Where a program prints: data to its output, live messages to its error output.
#ifndef BASE_OUTPUT_H
#define BASE_OUTPUT_H

#include <iosfwd>
#include <string>

namespace cg
{

struct Output {
    std::ostream &out; // data
    std::ostream &err; // live messages
    bool json = false;
    std::string program = "cgctl"; // printed before each message

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

} // namespace cg

#endif
