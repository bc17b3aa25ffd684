// Descriptor 1, lent to a client for the duration of one command.
//
// Commands print with printf; the one who asked wants to see it. A pipe was the alternative, but a command
// that prints more than a pipe holds would wait for a reader on its own thread; so it is a file in memory.
// End of file could not mark the end anyway, because a command may keep a duplicate of descriptor 1 for good.
//
// A command may also point descriptor 1 elsewhere for good. Then it is not taken back, and from then on
// nothing is lent any more: the loan would undo what the operator wanted. A file there may be cut at any
// time.
#ifndef SHELL_OUTPUT_H
#define SHELL_OUTPUT_H

#include <string>

#include <sys/types.h>

#include "loop/descriptor.h"

namespace ssat
{

// What a descriptor refers to.
struct Identity {
    bool open = false;
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const Identity &) const = default;
};

// Returns what a descriptor refers to now. A closed one is equal to any other closed one.
Identity identity_of(int fd);

// What a command printed, as far as we have it.
struct Printed {
    std::string text;  // at most max_output_size bytes
    std::string at;    // where output went that is not in `text`, "" for nowhere else
    bool whole = true; // false when `text` was cut
};

// One loan: from construction until take_back().
class OutputLoan
{
public:
    // original  what descriptor 1 was when the process opened its shell. Lends when it still is that.
    explicit OutputLoan(const Identity &original);
    ~OutputLoan() { take_back(); }
    OutputLoan(const OutputLoan &) = delete;
    OutputLoan &operator=(const OutputLoan &) = delete;

    // Ends the loan: gives descriptor 1 back what it had, unless the command has moved it. A second call does
    // nothing and returns nothing.
    Printed take_back();

private:
    void lend();
    Printed end_loan();

    bool ended_ = false;
    platform::Descriptor memory_; // empty when nothing is lent
    platform::Descriptor saved_;  // empty when descriptor 1 was closed
};

} // namespace ssat

#endif
