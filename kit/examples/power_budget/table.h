// What cards draw: a file of lines.
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

// What is wrong with a table, and in which line; what() is for the user.
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

    // Watts of a card; nothing when no line is about it.
    std::optional<std::int64_t> watts(std::int32_t type, const std::string &name) const;
};

// Reads a table. Throws Malformed: for a line that is none, one said twice, and a table without a budget or
// without a card, which would be a mistake and no wish.
Table read_table(std::istream &lines, const std::string &file_name);

// The same from a file; Malformed too when it cannot be read.
Table load_table(const std::string &file_name);

} // namespace power_budget

#endif
