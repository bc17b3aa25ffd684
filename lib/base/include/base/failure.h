// How a verb ends when it cannot do what it was asked.
//
// An exception rather than a status handed through every function: between the place that notices and the one
// that prints lie parsers and loops that have nothing to add. It never crosses a callback of the platform.
#ifndef BASE_FAILURE_H
#define BASE_FAILURE_H

#include <stdexcept>
#include <string>

namespace cg
{

// The exit statuses.
enum Status : int { done = 0, failed = 1, wrong_usage = 2 };

// Ends the command. what() is one line that says what is wrong and, for wrong usage, what would be right;
// empty when there is nothing to say.
class Failure : public std::runtime_error
{
public:
    // message  what what() returns.
    Failure(Status status, const std::string &message) : std::runtime_error(message), status_(status) {}
    // What the program ends with.
    [[nodiscard]] Status status() const noexcept { return status_; }

private:
    Status status_;
};

} // namespace cg

#endif
