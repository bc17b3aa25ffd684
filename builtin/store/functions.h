// The functions that the server keeps, by name and as a whole.
#ifndef STORE_FUNCTIONS_H
#define STORE_FUNCTIONS_H

#include <string>

#include "store/connection/reply.h"
#include "store/connection/stream.h"

namespace store
{

inline constexpr const char *library_name = "vx_mom2";
inline constexpr const char *set_function = "vx_mom2_set";
inline constexpr const char *hmset_function = "vx_mom2_hmset";
inline constexpr const char *del_function = "vx_mom2_del";
inline constexpr const char *pdel_function = "vx_mom2_pdel";
inline constexpr const char *register_function = "vx_mom2_register";

// The library's text, as it is loaded into the server; and its SHA-1, by which versions are told apart.
const std::string &library_code();
const std::string &library_digest();

// The command that loads it.
Command load_functions();
// Whether a call was refused because the server has no such function.
bool is_missing_function(const redisReply *reply);

} // namespace store

#endif
