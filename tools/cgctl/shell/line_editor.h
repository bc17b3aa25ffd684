// Lines that a person types, with editing, history and completion.
//
// libedit, through its own interface: the one that it lends from readline is of global variables, and a
// library of readline's kind is under a licence that would bind ours.
#ifndef SHELL_LINE_EDITOR_H
#define SHELL_LINE_EDITOR_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace cg
{

class LineEditor
{
public:
    // What the last word of a line may become, given the line up to the cursor. A word that ends in '=' is
    // continued without a blank.
    using Completer = std::function<std::vector<std::string>(std::string_view)>;

    // Edits lines of the terminal at standard input and output. The history is read from the file, and kept
    // there when that is possible; an empty name keeps it in memory.
    LineEditor(std::string prompt, std::string history_file, Completer completer);
    ~LineEditor();
    LineEditor(const LineEditor &) = delete;
    LineEditor &operator=(const LineEditor &) = delete;

    // The next line, without its end; nothing at the end of the input (Ctrl-D).
    std::optional<std::string> read();

private:
    struct Parts;

    std::unique_ptr<Parts> parts_;
};

// What all of them begin with.
std::string common_beginning(const std::vector<std::string> &words);

// Where a history is kept: NAME in cgctl's folder below XDG_STATE_HOME, else below ~/.local/state. Makes the
// folder; empty when that can't be.
std::string history_file(const std::string &name);

} // namespace cg

#endif
