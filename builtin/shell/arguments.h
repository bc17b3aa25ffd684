// Arguments of debug commands, checked against the template that the command was registered with.
//
// Named and complete, rather than by position with defaults: a command that changes a running daemon should
// not guess what a typing error meant.
#ifndef SHELL_ARGUMENTS_H
#define SHELL_ARGUMENTS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace ssat
{

constexpr size_t max_arguments = 8;

using Names = std::vector<std::string>;
using Values = std::vector<int32_t>;

// Returns the names in a template, in order: none for "void", else 1 to 8 different ones from blank-separated
// parts of the form "name=%d". Nothing when the text is not a template.
std::optional<Names> parse_template(const std::string &text);

// What is wrong with the arguments, for the user.
struct UsageError {
    std::string message;
};

// Returns the values in the template's order, from arguments of the form "name=value" in any order; each must
// be given exactly once and be a decimal or 0x number in the range of int32_t.
std::variant<Values, UsageError> check_arguments(const Names &names, std::span<const std::string> arguments);

// Returns how a command is to be called, as in "log-level level=NUMBER".
std::string usage(const std::string &command, const Names &names);

} // namespace ssat

#endif
