// Whole numbers in settings, variables of the environment and messages. What the store holds is read by
// store/codec/number.h, into numbers of any type.
#ifndef LOOP_NUMBER_H
#define LOOP_NUMBER_H

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace platform
{

// The decimal number, with or without a minus, that the whole text is; nothing when it is something else, or
// not from `least` to `most`.
inline std::optional<int64_t> whole_number(std::string_view text,
                                           int64_t least = std::numeric_limits<int64_t>::min(),
                                           int64_t most = std::numeric_limits<int64_t>::max())
{
    int64_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, number);
    const bool fits = error == std::errc{} && stopped == end && number >= least && number <= most;
    return fits ? std::optional(number) : std::nullopt;
}

} // namespace platform

#endif
