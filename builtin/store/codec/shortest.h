// Reading whole numbers in the one form in which they are written: no two texts mean one value.
#ifndef CODEC_SHORTEST_H
#define CODEC_SHORTEST_H

#include <charconv>
#include <string_view>
#include <system_error>

namespace store
{

// Reads a number. Returns false for what is none, is out of range, or could be shorter: "+7", "07", "-0".
template <typename Number>
bool parse_shortest(std::string_view text, Number &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    const bool is_negative = text.front() == '-';
    const char first = text[is_negative ? 1 : 0];
    return first != '0' || (!is_negative && text.size() == 1);
}

} // namespace store

#endif
