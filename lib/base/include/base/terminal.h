// What a terminal needs and a pipe does not: its size, colours, and texts that are cut to fit.
//
// Widths come from Unicode's tables and not from the locale: that is the user's choice, a card's name is not.
#ifndef BASE_TERMINAL_H
#define BASE_TERMINAL_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace cg
{

struct Output;

// How a piece of text is meant. A colour on a terminal, and never the only thing that says it.
enum class Tone { plain, quiet, heading, good, waiting, warning, bad };

struct Terminal {
    bool is_one = false;
    bool colour = false;
    std::size_t width = 0; // 0: unlimited, where there is no terminal
};

// What the output goes to. `colour` is "auto" (on a terminal, unless NO_COLOR is set), "always" or
// "never".
Terminal terminal_of(const Output &output, const std::string &colour);

// The text in the tone's colour.
std::string toned(const Terminal &terminal, Tone tone, const std::string &text);

// How many columns a text takes: two for a wide character, none for one that combines with the one before.
// Text that visible() made.
std::size_t columns_of(std::string_view text);

// The text in lines of at most so many columns, broken between words; a longer word is broken in itself.
std::vector<std::string> wrapped(std::string_view text, std::size_t columns);

// The text, or its beginning and "…" in at most so many columns.
std::string cut_to(std::string_view text, std::size_t columns);

} // namespace cg

#endif
