// A table of texts in columns, for a terminal of a certain width or for no terminal.
#ifndef CGCTL_TABLE_H
#define CGCTL_TABLE_H

#include <string>
#include <vector>

#include "terminal.h"

namespace cgctl
{

struct Cell {
    std::string text{}; // as visible() made it
    Tone tone = Tone::plain;
};

struct Column {
    const char *heading;
    std::size_t least; // columns to which it may be cut on a narrow terminal; 0: never cut
};

// The lines of a table, the headings first. On a terminal the columns are cut to its width: the last one
// first, then those before it, each to its `least`; elsewhere nothing is cut.
std::vector<std::string> table_lines(const std::vector<Column> &columns,
                                     const std::vector<std::vector<Cell>> &rows, const Terminal &terminal);

} // namespace cgctl

#endif
