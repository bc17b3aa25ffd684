// A table of texts in columns.
//
// What an operator searches for stands at the end of the line, a reason or the names of modules, and is the
// first that a narrow terminal has no room for: so it goes on below, instead of being cut.
#include "base/table.h"

#include <algorithm>

namespace cg
{

namespace
{

constexpr std::size_t gap = 2;
constexpr std::size_t indent = 4;

using Rows = std::vector<std::vector<Cell>>;
using Widths = std::vector<std::size_t>; // a column of no width is left out

std::string whole(const Cell &cell)
{
    return cell.text + (cell.text.empty() || cell.rest.empty() ? "" : " ") + cell.rest;
}

std::size_t total(const Widths &widths)
{
    std::size_t sum = 0;
    for (const std::size_t width : widths) {
        sum += width == 0 ? 0 : width + (sum == 0 ? 0 : gap);
    }
    return sum;
}

Widths natural_widths(const Rows &rows)
{
    Widths widths(rows.front().size());
    for (const auto &row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columns_of(whole(row[i])));
        }
    }
    return widths;
}

// Without the rests. A column of nothing else has no heading either.
Widths least_widths(const std::vector<Column> &columns, const Rows &rows)
{
    Widths widths(columns.size());
    for (std::size_t i = 0; i < columns.size(); ++i) {
        std::size_t texts = 0;
        bool has_rest = false;
        for (auto row = rows.begin() + 1; row != rows.end(); ++row) {
            texts = std::max(texts, columns_of((*row)[i].text));
            has_rest = has_rest || !(*row)[i].rest.empty();
        }
        texts = columns[i].most == 0 ? texts : std::min(texts, columns[i].most);
        widths[i] = texts == 0 && has_rest ? 0 : std::max(texts, columns_of(columns[i].heading));
    }
    return widths;
}

// Widens a column to hold as many whole cells as there is room for.
void widen(Widths &widths, std::size_t i, const Rows &rows, std::size_t limit)
{
    const std::size_t used = total(widths) + (widths[i] == 0 ? gap : 0);
    const std::size_t room = widths[i] + limit - std::min(limit, used);
    std::size_t best = widths[i];
    for (auto row = rows.begin() + 1; row != rows.end(); ++row) {
        const std::size_t wanted = (*row)[i].rest.empty() ? 0 : columns_of(whole((*row)[i]));
        best = wanted <= room ? std::max(best, wanted) : best;
    }
    const std::size_t heading = columns_of(rows.front()[i].text);
    if (best > 0 && heading <= room) {
        widths[i] = std::max(best, heading);
    }
}

void shrink(Widths &widths, const std::vector<Column> &columns, std::size_t limit)
{
    for (std::size_t i = widths.size(); i-- > 0;) {
        const std::size_t wanted = total(widths);
        if (wanted > limit && columns[i].least != 0 && widths[i] > columns[i].least) {
            widths[i] -= std::min(wanted - limit, widths[i] - columns[i].least);
        }
    }
}

Widths widths_for(const std::vector<Column> &columns, const Rows &rows, std::size_t limit)
{
    Widths widths = natural_widths(rows);
    if (limit == 0 || total(widths) <= limit) {
        return widths;
    }
    widths = least_widths(columns, rows);
    for (const Rest rest : {Rest::below, Rest::dropped}) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            if (columns[i].rest == rest && total(widths) <= limit) {
                widen(widths, i, rows, limit);
            }
        }
    }
    shrink(widths, columns, limit);
    return widths;
}

bool has_room(const Cell &cell, std::size_t width)
{
    return columns_of(whole(cell)) <= width;
}

std::string line_of(const std::vector<Cell> &row, const Widths &widths, const Terminal &terminal)
{
    std::string line;
    std::size_t missing = 0; // blanks, written only when something follows
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (widths[i] == 0) {
            continue;
        }
        const bool fits = !terminal.is_one || has_room(row[i], widths[i]);
        const std::string text = fits ? whole(row[i]) : cut_to(row[i].text, widths[i]);
        if (!text.empty()) {
            line.append(missing, ' ');
            missing = 0;
        }
        line += toned(terminal, row[i].tone, text);
        missing += widths[i] - columns_of(text) + gap;
    }
    return line;
}

// What the line of a row had no room for.
std::vector<std::string> lines_below(const std::vector<Cell> &row, const std::vector<Column> &columns,
                                     const Widths &widths, const Terminal &terminal)
{
    std::string text;
    Tone tone = Tone::plain;
    for (std::size_t i = 0; i < row.size(); ++i) {
        if (columns[i].rest == Rest::below && !row[i].rest.empty() && !has_room(row[i], widths[i])) {
            tone = text.empty() ? row[i].tone : tone;
            text += (text.empty() ? "" : ": ") + row[i].rest;
        }
    }
    std::vector<std::string> lines;
    if (terminal.is_one && !text.empty()) {
        const std::size_t room = terminal.width > 2 * indent ? terminal.width - indent : indent;
        for (const std::string &line : wrapped(text, room)) {
            lines.push_back(std::string(indent, ' ') + toned(terminal, tone, line));
        }
    }
    return lines;
}

} // namespace

std::vector<std::string> table_lines(const std::vector<Column> &columns,
                                     const std::vector<std::vector<Cell>> &rows, const Terminal &terminal)
{
    Rows all(1);
    for (const Column &column : columns) {
        all.front().push_back({column.heading, Tone::heading});
    }
    all.insert(all.end(), rows.begin(), rows.end());
    const Widths widths = widths_for(columns, all, terminal.width);
    std::vector<std::string> lines;
    for (const auto &row : all) {
        lines.push_back(line_of(row, widths, terminal));
        const std::vector<std::string> below = lines_below(row, columns, widths, terminal);
        lines.insert(lines.end(), below.begin(), below.end());
    }
    return lines;
}

} // namespace cg
