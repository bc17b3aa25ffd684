// Whole numbers from text.
#ifndef CODEC_NUMBER_H
#define CODEC_NUMBER_H

#include <charconv>
#include <string_view>
#include <system_error>

namespace store
{

// Reads a number in decimal. Returns false for what is none, holds more than that, or is out of range; then
// `number` may have changed.
template <typename Number>
bool parse_number(std::string_view text, Number &number)
{
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

// The same in the one form in which numbers are written, so that no two texts mean one value: false for what
// could be shorter, too: "07", "-0".
template <typename Number>
bool parse_shortest(std::string_view text, Number &number)
{
    if (!parse_number(text, number)) {
        return false;
    }
    const bool is_negative = text.front() == '-';
    const char first = text[is_negative ? 1 : 0];
    return first != '0' || (!is_negative && text.size() == 1);
}

} // namespace store

#endif
