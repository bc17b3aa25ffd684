// A table of texts in columns.
#include "table.h"

#include <algorithm>
#include <numeric>

namespace cgctl
{

namespace
{

constexpr std::size_t gap = 2;

std::vector<std::size_t> natural_widths(const std::vector<std::vector<Cell>> &rows)
{
    std::vector<std::size_t> widths(rows.front().size());
    for (const auto &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columns_of(row[i].text));
        }
    }
    return widths;
}

void shrink(std::vector<std::size_t> &widths, const std::vector<Column> &columns, std::size_t limit)
{
    const std::size_t gaps = (widths.size() - 1) * gap;
    for (std::size_t i = widths.size(); i-- > 0;) {
        const std::size_t wanted = std::accumulate(widths.begin(), widths.end(), gaps);
        if (wanted > limit && columns[i].least != 0 && widths[i] > columns[i].least) {
            widths[i] -= std::min(wanted - limit, widths[i] - columns[i].least);
        }
    }
}

std::string line_of(const std::vector<Cell> &row, const std::vector<std::size_t> &widths,
                    const Terminal &terminal)
{
    std::string line;
    std::size_t missing = 0; // blanks, written only when something follows
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string text = terminal.is_one ? cut_to(row[i].text, widths[i]) : row[i].text;
        if (!text.empty()) {
            line.append(missing, ' ');
            missing = 0;
        }
        line += toned(terminal, row[i].tone, text);
        missing += widths[i] - columns_of(text) + gap;
    }
    return line;
}

} // namespace

std::vector<std::string> table_lines(const std::vector<Column> &columns,
                                     const std::vector<std::vector<Cell>> &rows, const Terminal &terminal)
{
    std::vector<std::vector<Cell>> all(1);
    for (const Column &column : columns) {
        all.front().push_back({column.heading, Tone::heading});
    }
    all.insert(all.end(), rows.begin(), rows.end());
    std::vector<std::size_t> widths = natural_widths(all);
    if (terminal.width != 0) {
        shrink(widths, columns, terminal.width);
    }
    std::vector<std::string> lines;
    std::transform(all.begin(), all.end(), std::back_inserter(lines),
                   [&](const std::vector<Cell> &row) { return line_of(row, widths, terminal); });
    return lines;
}

} // namespace cgctl
