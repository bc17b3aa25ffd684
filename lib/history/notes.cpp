// Single values that the file keeps beside its rows, by name.
#include "notes.h"

namespace history
{

using std::chrono::milliseconds;

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
