// Completion scripts for shells, made from the verbs.
#ifndef COMMAND_LINE_COMPLETION_H
#define COMMAND_LINE_COMPLETION_H

#include <functional>
#include <string>
#include <vector>

#include "command_line/verb_tree.h"

namespace cg
{

// The script for bash: to be sourced, or put into a folder that bash looks in for them. Wants no other
// package.
std::string bash_completion(const Verb &program);

// The script for zsh: a file `_cgctl` for a folder of fpath, or to be sourced after compinit.
std::string zsh_completion(const Verb &program);

// Calls a function for a verb and all below it, the verb first.
void for_each_verb(const Verb &verb, const std::function<void(const Verb &)> &action);

// A text in single quotes, for a shell.
std::string shell_quoted(const std::string &text);

// The record types' short names, and their full ones.
std::string short_type_names();
std::string full_type_names();

// The text with every occurrence of `name` replaced.
std::string filled_in(std::string text, const std::string &name, const std::string &value);

} // namespace cg

#endif
