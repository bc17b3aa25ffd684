// A table of texts in columns, for a terminal of a certain width or for no terminal.
#ifndef BASE_TABLE_H
#define BASE_TABLE_H

#include <string>
#include <vector>

#include "base/terminal.h"

namespace cg
{

// Texts as visible() made them.
struct Cell {
    std::string text{};
    Tone tone = Tone::plain;
    std::string rest{}; // what follows the text after a blank, where there is room; else as the column says
};

// What becomes of the rest of a cell that is too long for its column.
enum class Rest { below, dropped };

struct Column {
    const char *heading;
    std::size_t least;    // columns to which it may be cut on a narrow terminal; 0: never cut
    std::size_t most = 0; // columns that it has at most where not all fits; 0: what it needs
    Rest rest = Rest::below;
};

// The lines of a table, the headings first. Where it is too wide for the terminal, the rests of cells go,
// whole, to lines below theirs; a column whose cells are all rest and that gets no room disappears. What is
// then still too wide is cut: the last column first, then those before it, each to its `least`. Where there
// is no terminal nothing is cut.
std::vector<std::string> table_lines(const std::vector<Column> &columns,
                                     const std::vector<std::vector<Cell>> &rows, const Terminal &terminal);

} // namespace cg

#endif
