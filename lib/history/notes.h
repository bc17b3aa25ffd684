// Single values that the file keeps beside its rows, by name.
#ifndef HISTORY_NOTES_H
#define HISTORY_NOTES_H

#include "database.h"

namespace history
{

inline constexpr const char *alive_note = "alive_at"; // the recorder's last heartbeat
inline constexpr const char *begun_note = "begun_at"; // when the file was made
inline constexpr const char *service_note = "life";   // the last line of the service log that is in the file
inline constexpr const char *modules_note_name =
    "modules"; // the registered modules, as their folder had them
inline constexpr const char *modules_daemon_note = "modules_of"; // the instance that has that very list

inline constexpr const char *modules_before_note = "modules_before"; // the last ones that were not none

// The names of modules as one note: "/m1/m2". The names are those of files, so "/" is the one character that
// separates them for certain; "/" alone is an empty list.
std::string names_text(const std::vector<std::string> &names);
std::vector<std::string> parse_names(std::string text);

// Returns the modules that were registered when there last were some; empty when there never were, as far as
// the file knows. Throws Error.
std::vector<std::string> read_registered_before(const Database &database);

// Returns the note's text; empty when there is none. Throws Error.
std::string read_note(const Database &database, const std::string &name);

// Writes a note in place of the one before. Throws Error.
void write_note(const Database &database, const std::string &name, const std::string &value);

// Returns the time that a note holds; nothing when there is no note. Throws Error.
std::optional<Time> read_time_note(const Database &database, const std::string &name);

// Writes a time, in whole milliseconds. Throws Error.
void write_time_note(const Database &database, const std::string &name, Time value);

// A time as notes and file names have it: milliseconds since 1970.
std::string milliseconds_text(Time time);

} // namespace history

#endif
