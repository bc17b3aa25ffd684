// The names of what a record type has in the store besides its records.
//
// `@` cannot begin a type's name, so none of them can collide with a record. Each change has a channel that
// is named by its record's key: a user is granted the channels of the records that he may write, so that
// nobody can publish a change of somebody else's record.
#ifndef CODEC_NAMES_H
#define CODEC_NAMES_H

#include <cstdint>
#include <string>
#include <string_view>

namespace store
{

std::string counter_key(const std::string &type); // text: the revision of the type's last change
std::string index_key(const std::string &type);   // set: the keys of the type's records

// What the channels of a database begin with; channels know no databases. The record's key follows.
std::string channel_prefix(int32_t database);

// A text as it stands as one part of a key: whatever could be taken for a separator, a glob character or a
// control byte is written with percent signs.
std::string key_part(std::string_view text);

// The text that a part of a key stands for. Returns false when the part is not in exactly the form that
// key_part() gives it.
bool parse_key_part(std::string_view part, std::string &text);

inline constexpr const char *data_set_key = "@set";  // text: the identity of a database's data
inline constexpr const char *runs_key = "@runs";     // hash: the server runs that served it
inline constexpr const char *health_key = "@health"; // hash: what is not well with the daemon

} // namespace store

#endif
