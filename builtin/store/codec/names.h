// The names of what a record type has in the store besides its records, and of the server-side functions.
//
// `@` cannot begin a type's name, so none of them can collide with a record. Each change has a channel that
// is named by its record's key: a user is granted the channels of the records that he may write, so that
// nobody can publish a change of somebody else's record.
#ifndef CODEC_NAMES_H
#define CODEC_NAMES_H

#include <cstdint>
#include <string>
#include <string_view>

namespace vx_mom
{

std::string counter_key(const std::string &type); // text: the revision of the type's last change
std::string index_key(const std::string &type);   // set: the keys of the type's records

// What the channels of a database begin with; channels know no databases. The record's key follows.
std::string channel_prefix(int32_t database);

// A text as it stands as one part of a key: whatever could be taken for a separator, a glob character or a
// control byte is written with percent signs.
std::string key_part(std::string_view text);

inline constexpr const char *data_set_key = "@set"; // text: the identity of a database's data
inline constexpr const char *runs_key = "@runs";    // hash: the server runs that served it

// The function library, and its functions.
inline constexpr const char *library_name = "vx_mom1";
inline constexpr const char *set_function = "vx_mom1_set";
inline constexpr const char *hmset_function = "vx_mom1_hmset";
inline constexpr const char *del_function = "vx_mom1_del";
inline constexpr const char *pdel_function = "vx_mom1_pdel";
inline constexpr const char *register_function = "vx_mom1_register";

// The library's text, as it is loaded into the server; and its digest, by which versions are told apart.
const std::string &library_code();
const std::string &library_digest();

} // namespace vx_mom

#endif
