// What cards draw: a text file.
#include "table.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

namespace power_budget
{

namespace
{

constexpr std::int64_t most_watts = 1'000'000;

// A line of the file, for messages.
struct Place {
    const std::string &file;
    int line;

    [[noreturn]] void fail(const std::string &problem) const
    {
        throw Malformed(file + ':' + std::to_string(line) + ": " + problem);
    }
};

std::string trimmed(const std::string &text)
{
    const std::size_t first = text.find_first_not_of(" \t\r");
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

template <typename Number>
std::optional<Number> number(const std::string &text)
{
    Number value{};
    const char *end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

std::int64_t watts_in(const std::string &text, const Place &place)
{
    const auto watts = number<std::int64_t>(text);
    if (!watts || *watts < 0 || *watts > most_watts) {
        place.fail("'" + text + "' is not a number of watts from 0 to 1000000");
    }
    return *watts;
}

template <typename Map, typename Key>
void add(Map &map, const Key &key, std::int64_t watts, const Place &place)
{
    if (!map.emplace(key, watts).second) {
        place.fail("repeats an earlier line; keep one of them");
    }
}

void parse_line(const std::string &line, const Place &place, Table &table,
                std::optional<std::int64_t> &budget)
{
    const std::size_t equals = line.rfind('=');
    if (equals == std::string::npos) {
        place.fail("no '='; a line is 'budget = W', 'type N = W', 'name TEXT = W' or 'default = W'");
    }
    const std::string what = trimmed(line.substr(0, equals));
    const std::int64_t watts = watts_in(trimmed(line.substr(equals + 1)), place);
    if (what == "budget" || what == "default") {
        auto &value = what == "budget" ? budget : table.otherwise;
        if (value) {
            place.fail(what + " is set by an earlier line; keep one of them");
        }
        value = watts;
    } else if (what.starts_with("name ")) {
        add(table.by_name, trimmed(what.substr(5)), watts, place);
    } else if (what.starts_with("type ")) {
        const auto type = number<std::int32_t>(trimmed(what.substr(5)));
        if (!type) {
            place.fail("'" + trimmed(what.substr(5)) + "' is not a card type, a whole number");
        }
        add(table.by_type, *type, watts, place);
    } else {
        place.fail("'" + what + "' is unknown; a line sets budget, type, name or default");
    }
}

} // namespace

std::optional<std::int64_t> Table::watts(std::int32_t type, const std::string &name) const
{
    if (const auto named = by_name.find(name); named != by_name.end()) {
        return named->second;
    }
    const auto typed = by_type.find(type);
    return typed != by_type.end() ? std::optional(typed->second) : otherwise;
}

Table read_table(std::istream &lines, const std::string &file_name)
{
    Table table;
    std::optional<std::int64_t> budget;
    Place place{file_name, 0};
    for (std::string line; std::getline(lines, line);) {
        place.line++;
        line = trimmed(line);
        if (!line.empty() && line.front() != '#') {
            parse_line(line, place, table, budget);
        }
    }
    if (lines.bad()) {
        throw Malformed(file_name + ": cannot be read: " + std::strerror(errno));
    }
    if (!budget) {
        throw Malformed(file_name + ": no line 'budget = W'");
    }
    if (table.by_name.empty() && table.by_type.empty() && !table.otherwise) {
        throw Malformed(file_name + ": no cards; add 'default = W' to treat all alike");
    }
    table.budget = *budget;
    return table;
}

Table load_table(const std::string &file_name)
{
    std::ifstream file(file_name);
    if (!file) {
        throw Malformed(file_name + ": cannot be read: " + std::strerror(errno));
    }
    return read_table(file, file_name);
}

} // namespace power_budget
