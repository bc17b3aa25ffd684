// Command lines of ours as pages show them: found in a text for a shell, without a shell.
#ifndef CGCTL_COMMAND_LINES_H
#define CGCTL_COMMAND_LINES_H

#include <string>
#include <vector>

namespace cg
{

// The arguments of one invocation, without the program's name.
using CommandLine = std::vector<std::string>;

// Returns the invocations of cgctl in a text for a shell: quotes and continued lines are understood,
// comments, redirections, assignments and other programs passed over; a pipe, a list and a substitution are
// several commands.
std::vector<CommandLine> commands_in(const std::string &script);

// A shell's text that a page shows.
struct ShellText {
    std::string text;
    bool in_a_sentence = false; // may leave out what a verb needs
};

// The texts for a shell in a page in Markdown: fenced blocks, and what stands between backticks.
std::vector<ShellText> shown_in_markdown(const std::string &page);

// The same in mdoc(7): displays.
std::vector<ShellText> shown_in_mdoc(const std::string &page);

} // namespace cg

#endif
