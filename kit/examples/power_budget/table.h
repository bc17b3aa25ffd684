// What cards draw: a text file.
//
//     # comment
//     budget = 2400             watts for all cards together
//     type 230 = 120            watts of every card of this type
//     name uplink 3 = 95        watts of the card of this name, whatever its type
//     default = 50              watts of any other card; without this line such a card is denied
#ifndef POWER_BUDGET_TABLE_H
#define POWER_BUDGET_TABLE_H

#include <cstdint>
#include <istream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace power_budget
{

// A table that cannot be used; what() names the line and the mistake.
class Malformed : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct Table {
    std::int64_t budget = 0;
    std::map<std::int32_t, std::int64_t> by_type{};
    std::map<std::string, std::int64_t> by_name{};
    std::optional<std::int64_t> otherwise{};

    // What a card draws; nothing when no line matches it.
    std::optional<std::int64_t> watts(std::int32_t type, const std::string &name) const;
};

// Reads a table; the file name is for messages. Throws Malformed: for a line that does not parse, one that
// repeats another, and a table without a budget or without cards, which can only be a mistake.
Table read_table(std::istream &lines, const std::string &file_name);

// The same from a file; Malformed too when it cannot be read.
Table load_table(const std::string &file_name);

} // namespace power_budget

#endif
