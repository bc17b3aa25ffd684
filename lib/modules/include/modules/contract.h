// What the daemon grants its check modules, in numbers. They are the daemon's own and not configurable.
#ifndef MODULES_CONTRACT_H
#define MODULES_CONTRACT_H

#include <chrono>
#include <cstddef>

namespace cg
{

// After this long without all answers the daemon admits the card unexamined.
inline constexpr std::chrono::seconds check_timeout{300};

inline constexpr const char *default_module_folder = "/etc/app_cg/deny_check";
inline constexpr std::size_t most_modules = 16;        // the daemon ignores further ones without a message
inline constexpr std::size_t longest_module_name = 15; // bytes; the daemon cuts the rest without a message
inline constexpr std::size_t longest_reason = 255;     // bytes; the daemon cuts the rest

} // namespace cg

#endif
