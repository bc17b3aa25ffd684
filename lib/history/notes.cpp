// Single values that the file keeps beside its rows, by name.
#include "notes.h"

#include <algorithm>

namespace history
{

using std::chrono::milliseconds;

std::string names_text(const std::vector<std::string> &names)
{
    std::string text = names.empty() ? "/" : "";
    for (const std::string &name : names) {
        text += '/' + name;
    }
    return text;
}

std::vector<std::string> parse_names(std::string text)
{
    std::vector<std::string> names;
    while (text.size() > 1) {
        const std::size_t end = std::min(text.find('/', 1), text.size());
        names.push_back(text.substr(1, end - 1));
        text.erase(0, end);
    }
    return names;
}

// A recorder of before did not keep the second one.
std::vector<std::string> read_registered_before(const Database &database)
{
    std::vector<std::string> present = parse_names(read_note(database, modules_note_name));
    return present.empty() ? parse_names(read_note(database, modules_before_note)) : present;
}

std::string read_note(const Database &database, const std::string &name)
{
    Statement statement(database, "SELECT value FROM notes WHERE name = ?");
    return statement.with(name).step() ? statement.text(0) : "";
}

void write_note(const Database &database, const std::string &name, const std::string &value)
{
    Statement(database, "INSERT OR REPLACE INTO notes VALUES (?, ?)").with(name, value).run();
}

std::optional<Time> read_time_note(const Database &database, const std::string &name)
{
    Statement statement(database, "SELECT CAST(value AS INTEGER) FROM notes WHERE name = ?");
    return statement.with(name).step() ? std::optional(statement.time(0)) : std::nullopt;
}

void write_time_note(const Database &database, const std::string &name, Time value)
{
    write_note(database, name, milliseconds_text(value));
}

std::string milliseconds_text(Time time)
{
    return std::to_string(std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count());
}

} // namespace history
